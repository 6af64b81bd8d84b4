#pragma once

#include "files/CXFile.h"

#include <cstddef>
#include <memory>

/// A disk file with a buffer of its own, read and written in any mixture of bytes and lines; take CXFile where few large
/// pieces are moved, and CStdioFileEx for text whose encoding is to be found out.
/// Positions and lengths are those the caller sees: bytes that are still in the buffer count as written.
/// Line ends are written as they are given. A line of a pipe or a terminal is read when it is there, whatever follows it.
/// One thread at a time.
///
/// Written bytes reach the system when the buffer is full and with Flush, Seek, SetLength, reading, Close and Abort. When
/// that fails in a throwing file, what could not be written stays in the buffer, the next of these operations tries again,
/// and Close reports it. In a file that does not throw it is dropped, and XLastFailure() says why.
class TEVTOOLS_API CXStdioFile : public CXFile
{
public:
    X_DECLARE_LIBRARY_CLASS(CXStdioFile)

    explicit CXStdioFile(bool throwOnError = true);
    CXStdioFile(void* handle, bool throwOnError);
    CXStdioFile(const wchar_t* path, unsigned int flags);
    template <class Path, tev::IfPathArgument<Path> = 0>
    CXStdioFile(const Path& path, unsigned int flags) : CXStdioFile(CXTString<wchar_t>(path).GetConstBuffer(), flags)
    {
    }
    /// Writes what is in the buffer. A failure is ignored: call Close to see it.
    ~CXStdioFile() override;

    bool Open(const wchar_t* path, unsigned int flags, CXFileException* error = nullptr) override;
    using CXFile::Open;
    unsigned __int64 Seek(__int64 offset, SeekPosition origin) override;
    bool SetLength(unsigned __int64 length) override;
    unsigned __int64 GetLength() const override;
    unsigned int Read(void* buffer, unsigned int count) override;
    void Write(const void* buffer, unsigned int count) override;
    /// Passes what is in the buffer to the system, which may still hold it in memory.
    void Flush() override;
    /// The file is closed even when its last bytes cannot be written and the failure is thrown.
    void Close() override;
    void Abort() override;
    unsigned __int64 GetPosition() const override;

    /// Reads up to and including the next LF, or to the end of the file; CR LF becomes LF. NULs are characters.
    /// False, with the line empty, at the end of the file. The line is empty after an exception too.
    virtual bool ReadString(CXTString<char>& line);
    /// The same for text in 16-bit units, little-endian. A byte left over at the end of the file becomes U+FFFD.
    virtual bool ReadString(CXTString<wchar_t>& line);
    /// Writes the characters as they are. Null writes nothing.
    virtual void WriteString(const char* text);
    /// Writes 16-bit units, little-endian.
    virtual void WriteString(const wchar_t* text);

    /// Sets the size of the buffer in bytes, 64 KiB otherwise. Has no effect after the first reading or writing; sizes
    /// below 8 count as 8.
    void SetBufferSize(unsigned int size);

protected:
    /// Bytes in the file's buffer or in a string; valid until the next operation on either.
    struct RawText
    {
        const char* m_bytes;
        std::size_t m_size;
    };

    /// Reads the next line as it is in the file, line end included. It is assembled in `assembled` where the buffer
    /// does not hold all of it. False at the end of the file.
    bool ReadRawLine(xStringEncoding encoding, CXTString<char>& assembled, RawText& line);
    /// Reads the complete lines that there are, up to about 32 KiB but at least one; they end with CR, LF or CR LF. False at
    /// the end of the file.
    bool ReadRawLines(xStringEncoding encoding, CXTString<char>& lines);
    struct LineTraits
    {
        bool m_ended; ///< by LF or CR LF
        bool m_mayHoldNul;
    };

    /// Reads a line of text into an empty string and removes its LF or CR LF.
    bool ReadTextLine(xStringEncoding encoding, CXTString<char>& assembled, CXTString<wchar_t>& line,
                      LineTraits& traits);
    /// The bytes that are read next, at most 8 and fewer only at the end of the file, without reading past them.
    RawText PeekBytes(std::size_t count);
    /// Reads on until it knows whether the line holds a CR before its last character, CR LF counted as one. The line begins
    /// behind so many bytes that were peeked at. Where the file cannot seek, all of them stay in the buffer, so that Seek goes
    /// back all the same.
    bool LineHoldsReturn(xStringEncoding encoding, std::size_t skipped);
    void WriteBytes(const char* bytes, std::size_t count);
    /// Closes the file, as Open does with the one that was open. Throws when the last bytes cannot be written.
    void LeaveFile();
    /// Copies a caught exception's contents to the caller's object, if there is one, and deletes it.
    static void TakeFailure(CXFileException* failure, CXFileException* error);

private:
    std::size_t Available(std::size_t wanted)
    {
        return m_filled - m_next >= wanted ? m_filled - m_next : FillBuffer(wanted);
    }
    const char* Unread() const noexcept { return m_buffer.get() + m_next; }
    std::size_t FillBuffer(std::size_t wanted);
    void MakeBuffer();
    void WritePending();
    void WritePendingQuietly() noexcept;
    void GrowBuffer();
    unsigned __int64 PositionToFillFrom() const;
    bool ReturnUnread();
    void FailToSeek() const;

    std::unique_ptr<char[]> m_buffer;
    std::size_t m_bufferSize = 65536;
    unsigned __int64 m_origin = 0; // position in the file of the first byte read into the buffer
    std::size_t m_filled = 0;      // bytes read into the buffer; 0 while any are to be written
    std::size_t m_next = 0;        // of these, how many the caller has read
    std::size_t m_pending = 0;     // bytes to be written
    bool m_asciiLikely = true;     // the line before was ASCII
    CXTString<char> m_scratch;
};
