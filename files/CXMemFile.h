#pragma once

#include "files/CXFile.h"

#include <atomic>

/// A file in memory: the interface of CXFile over one block that grows. Archives read and write in its block directly.
/// It fails by throwing CXInvalidArgException, CXMemoryException or CXFileException (bad seek), or quietly, as chosen;
/// then XLastFailure() says why.
/// One thread at a time.
///
/// The block is the file's own, or a caller's. A caller's block is read and written in place as far as it reaches; when
/// the file must grow, the contents move into a block of its own and the caller's is left alone. Bytes that become part
/// of the file without being written are zero, and so is new capacity.
class TEVTOOLS_API CXMemFile : public CXFile
{
public:
    X_DECLARE_LIBRARY_CLASS(CXMemFile)

    /// An empty file. `growBytes` is the step in which the capacity grows; 0 stands for 2048.
    explicit CXMemFile(unsigned int growBytes = 0, bool throwOnError = true);
    /// A file over a caller's block, as Attach.
    CXMemFile(const unsigned char* buffer, unsigned __int64 size, bool growable, bool throwOnError = true);
    /// Frees the block when it is the file's own.
    ~CXMemFile() override;

    /// Makes a block of `size` bytes the file's contents, position 0; an earlier block is released as by Close.
    /// With `growable` the file owns the block, which must come from Alloc, and grows in steps of 2048. Else the
    /// block stays the caller's, must outlive its use here, and is written to when the file is.
    /// A null block with a size is an invalid argument and changes nothing.
    void Attach(const unsigned char* buffer, unsigned __int64 size, bool growable);
    /// Hands out the block and leaves the file empty. A block that was the file's own is released with Free. Null when
    /// the file has none; ask for the length before.
    [[nodiscard]] unsigned char* Detach();
    /// The block, null when there is none. Invalid after the next call that may grow the file.
    unsigned char* GetBuffer();
    const unsigned char* GetBuffer() const;

    /// A block of zeros, null when there is no memory; Free releases it and ignores null.
    [[nodiscard]] static unsigned char* Alloc(unsigned __int64 size);
    static void Free(unsigned char* block);

    /// Always false, cause fileInvalidFile: memory has no path.
    bool Open(const wchar_t* path, unsigned int flags, CXFileException* error = nullptr) override;
    using CXFile::Open;
    /// Moves the position; one past the end makes the capacity reach it and leaves the length. A position before the
    /// start, and one past the end that is counted from the end, are bad seeks: without exceptions the first becomes 0
    /// and the second leaves the position. An unknown origin leaves the position.
    unsigned __int64 Seek(__int64 offset, SeekPosition origin) override;
    /// Lengths above 0xFFFFFFFF are refused as out of memory. A position past the new end moves back to it; else it stays.
    bool SetLength(unsigned __int64 length) override;
    unsigned __int64 GetLength() const override;
    /// Reads up to the end of the file.
    unsigned int Read(void* buffer, unsigned int count) override;
    /// Writes at the position. `buffer` may point into the file's own block. Dropped when there is no memory and the
    /// file does not throw.
    void Write(const void* buffer, unsigned int count) override;
    /// Does nothing.
    void Flush() override;
    /// Empties the file and frees the block when it is the file's own. The file can be used again.
    void Close() override;
    void Abort() override;
    unsigned __int64 GetPosition() const override;

protected:
    /// See CXFile. A commit of more than the capacity holds is an invalid argument; a successful one returns `count`.
    unsigned __int64 BufferCommand(unsigned int command, unsigned __int64 count, unsigned char** start,
                                   unsigned char** stop) override;

    /// Makes the capacity hold `needed` bytes, by whole grow steps. When there is no memory it throws CXMemoryException
    /// or returns false; the file is unchanged.
    virtual bool GrowBuffer(unsigned __int64 needed);
    /// Resizes a block from Alloc, which stays valid when it returns null. The bytes beyond the old size are unspecified.
    virtual unsigned char* Realloc(unsigned char* block, unsigned __int64 size);
    /// Copies every byte that is read or written; the areas may overlap. Returns `target`.
    virtual unsigned char* Memcpy(unsigned char* target, const unsigned char* source, unsigned __int64 count);

    unsigned __int64 m_growBytes;
    unsigned __int64 m_capacity;
    unsigned __int64 m_length;
    unsigned __int64 m_position;
    unsigned char* m_buffer;
    bool m_autoDelete; ///< the block is the file's own
    bool m_throwOnMemError;

private:
    unsigned char* Resize(unsigned __int64 capacity);
    bool CanReach(unsigned __int64 offset);
    bool ReserveAtPosition(unsigned __int64 count);
    bool GrowForWriting(unsigned int count, const unsigned char*& source);
    void AdvanceWritten(unsigned __int64 count);
    void ZeroUpTo(unsigned __int64 newEnd);
    void ClearUpTo(unsigned __int64 stop) const;
    bool IsDerived() const noexcept;
    unsigned __int64 ExposeForReading(unsigned __int64 count, unsigned char** start, unsigned char** stop);
    unsigned __int64 ExposeForWriting(unsigned __int64 count, unsigned char** start, unsigned char** stop);
    unsigned __int64 Commit(unsigned __int64 count);
    unsigned __int64 RefuseArgument() const;

    /// Bytes from here to the capacity were never written to. Those before m_unclearFrom are zero, the others are cleared
    /// when they can be seen.
    unsigned __int64 m_untouchedFrom;
    mutable std::atomic<unsigned __int64> m_unclearFrom;
};

/// A memory file that can grow in proportion to its size, for contents that are written in many small pieces.
/// One thread at a time.
class TEVTOOLS_API CCustomMemFile : public CXMemFile
{
public:
    static constexpr unsigned int growProportionally = 0x1; ///< each growth is by a factor of at least 1.6

    explicit CCustomMemFile(unsigned int flags, unsigned int growBytes = 0);
    CCustomMemFile(const unsigned char* buffer, unsigned __int64 size, bool growable, unsigned int flags);
    ~CCustomMemFile() override;

protected:
    bool GrowBuffer(unsigned __int64 needed) override;

    unsigned int m_flags;
};
