#pragma once

#include "objects/CXObject.h"
#include "objects/ThreadUse.h"
#include "text/CXTString.h"

class CXFileException;

/// A file as a stream of bytes, over a handle of the operating system. CXMemFile is the same over memory.
///
/// Paths may be written with '/' and '\', both separate. A code point U+DC80 to U+DCFF in a path stands for the raw byte
/// 0x80 to 0xFF of a name that is not UTF-8.
///
/// A failed operation throws CXFileException when the object was made to throw on errors; else it returns the failure
/// value that stands with it, and XLastFailure() says why (objects/LastFailure.h). Open, Seek, GetPosition and GetLength never
/// throw.
/// One thread at a time.
class TEVTOOLS_API CXFile : public CXObject
{
public:
    X_DECLARE_LIBRARY_CLASS(CXFile)

    /// How a file is opened: one mode, one share value, and any of the other bits.
    ///
    /// Sharing holds between all openers that use this library, in this process and others: an open succeeds if its
    /// access is permitted by all who have the file open, and theirs by it. On Linux other
    /// programs do not take part; see docs/porting.md.
    enum OpenFlags : unsigned int
    {
        modeRead = 0x0, ///< the access value 3 reads too
        modeWrite = 0x1,
        modeReadWrite = 0x2,
        shareCompat = 0x00, ///< as shareExclusive
        shareExclusive = 0x10,
        shareDenyWrite = 0x20,
        shareDenyRead = 0x30,
        shareDenyNone = 0x40,
        modeNoInherit = 0x80,    ///< programs that this process starts do not get the handle
        modeCreate = 0x1000,     ///< creates the file; one that exists loses its contents, whatever the access
        modeNoTruncate = 0x2000, ///< with modeCreate: one that exists is opened as it is
        typeText = 0x4000,       ///< for the text-file classes
        typeBinary = 0x8000      ///< for the text-file classes
    };

    enum SeekPosition : unsigned int
    {
        begin = 0,
        current = 1,
        end = 2
    };

    enum BufferCommands : unsigned int
    {
        bufferRead = 0,
        bufferWrite = 1,
        bufferCommit = 2,
        bufferCheck = 3
    };

    /// A closed file.
    explicit CXFile(bool throwOnError = true);
    /// Wraps an open handle of the operating system, which stays the caller's: the destructor leaves it open, Close
    /// closes it. On Linux a handle is made with HandleFromDescriptor.
    CXFile(void* handle, bool throwOnError);
    /// Opens a file and throws on errors, also when it cannot be opened.
    CXFile(const wchar_t* path, unsigned int flags);
    template <class Path, tev::IfPathArgument<Path> = 0>
    CXFile(const Path& path, unsigned int flags) : CXFile(CXTString<wchar_t>(path).GetConstBuffer(), flags)
    {
    }
    /// Closes what Open opened. Never throws; call Close to see writes that failed late.
    ~CXFile() override;
    CXFile(const CXFile&) = delete;
    CXFile& operator=(const CXFile&) = delete;

    /// The handle that stands for a file descriptor (0 is standard input); null for a negative one. The descriptor must
    /// be in blocking mode.
    static void* HandleFromDescriptor(int descriptor) noexcept;

    /// Opens a file; one that the object had opened is closed first. The path is kept as it is given, also on failure.
    /// False, with the cause and the path in `error` when it is given, when the file cannot be opened; an empty path and
    /// one of 260 characters or more are bad paths. A folder is "access denied".
    virtual bool Open(const wchar_t* path, unsigned int flags, CXFileException* error = nullptr);
    /// Opens a file by a std::filesystem::path or a wide string or view of the standard library.
    template <class Path, tev::IfPathArgument<Path> = 0>
    bool Open(const Path& path, unsigned int flags, CXFileException* error = nullptr)
    {
        return Open(CXTString<wchar_t>(path).GetConstBuffer(), flags, error);
    }
    /// Moves the position and returns it; all bits set on failure. A position past the end is allowed.
    virtual unsigned __int64 Seek(__int64 offset, SeekPosition origin);
    /// Cuts the file or extends it with zeros, and moves the position to its end. False on failure.
    virtual bool SetLength(unsigned __int64 length);
    /// All bits set on failure.
    virtual unsigned __int64 GetLength() const;
    /// Reads `count` bytes and returns how many were read: fewer only at the end of the file, or when reading failed after
    /// some. 0 at the end, on failure, on a closed file and for a null buffer.
    virtual unsigned int Read(void* buffer, unsigned int count);
    /// Writes all bytes; the cause is fileDiskFull when only a part could be written. Without exceptions a failure is
    /// silent.
    virtual void Write(const void* buffer, unsigned int count);
    /// Returns when everything written is on the disk. Does nothing on a closed file.
    virtual void Flush();
    /// Closes the handle, also when it throws. The path stays. Does nothing on a closed file.
    virtual void Close();
    /// As Close, but never throws.
    virtual void Abort();
    /// Changes the path that the object reports; the file is not touched.
    virtual void SetFilePath(const CXTString<wchar_t>& path);
    /// The part of the path after its last separator.
    virtual CXTString<wchar_t> GetFileName() const;
    virtual CXTString<wchar_t> GetFilePath() const;

protected:
    /// As CXFile::Write; `written` is how many bytes the file took, also when it throws.
    void WriteCounted(const void* buffer, unsigned int count, std::size_t& written);
    /// As CXFile::Read, but waits only until there is something: a pipe or a terminal may deliver fewer bytes before its end.
    unsigned int ReadAvailable(void* buffer, unsigned int count);
    /// Exposes a file's memory, so that an archive can read and write in place. A disk file exposes none and returns 0.
    /// The commands of a file that does:
    /// - bufferCheck returns 1.
    /// - bufferRead sets `start` and `stop` around at most `count` bytes from the position on (0xFFFFFFFF: all there are),
    ///   moves the position past them and returns their number.
    /// - bufferWrite sets `start` and `stop` around room for `count` bytes at the position, which stays, and returns how
    ///   many fit.
    /// - bufferCommit makes `count` bytes that were written there part of the file: moves the position past them, extends
    ///   the length.
    /// The pointers are invalid after the next call other than bufferCommit.
    virtual unsigned __int64 BufferCommand(unsigned int command, unsigned __int64 count, unsigned char** start,
                                           unsigned char** stop);
    friend class CXArchive;

public:
    /// All bits set on failure.
    virtual unsigned __int64 GetPosition() const;

    void SeekToBegin() { Seek(0, begin); }
    /// Returns the length.
    unsigned __int64 SeekToEnd() { return Seek(0, end); }

protected:
    void* m_handle;       ///< null when closed
    bool m_closeOnDelete; ///< the destructor closes the handle
    bool m_throwOnError;  ///< failures throw
    tev::ThreadUse m_use; ///< of the whole object, derived parts included
    CXTString<wchar_t> m_path;
};
