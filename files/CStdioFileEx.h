#pragma once

#include "files/CXStdioFile.h"

/// A text file that detects its encoding. Opened for reading text, it recognises the byte-order marks of UTF-8 and of
/// little-endian UTF-16 and files whose lines end with CR alone; lines are read as wide text without their ends. Written,
/// it makes UTF-16 with a mark, or 8-bit text in a chosen encoding. Use CXStdioFile where bytes must not be converted.
/// A big-endian mark is not recognised: such text is read after SetCodePage(xEncodingUtf16BE), the mark as U+FEFF.
/// One thread at a time.
class TEVTOOLS_API CStdioFileEx : public CXStdioFile
{
public:
    X_DECLARE_LIBRARY_CLASS(CStdioFileEx)

    // Bits of the open mode, in addition to those of CXFile::OpenFlags.
    static constexpr unsigned int kWriteUtf16 =
        0x400; ///< write text as UTF-16 (with modeCreate, modeWrite or modeReadWrite)
    static constexpr unsigned int kReadUtf8 = 0x800;          ///< with typeText: text without a mark is UTF-8, not ANSI
    static constexpr unsigned int kUtf16Written = 0x10000000; ///< set in GetOpenMode by kWriteUtf16

    explicit CStdioFileEx(bool throwOnError = true);
    /// Opens a file and throws on errors, also when it cannot be opened.
    CStdioFileEx(const wchar_t* path, unsigned int mode);
    template <class Path, tev::IfPathArgument<Path> = 0>
    CStdioFileEx(const Path& path, unsigned int mode) : CStdioFileEx(CXTString<wchar_t>(path).GetConstBuffer(), mode)
    {
    }
    ~CStdioFileEx() override;

    /// Looks at the first bytes of a file: xEncodingUtf16 or xEncodingUtf8 where it starts with their mark, else
    /// xEncodingUnknown. Throws CXFileException when the file cannot be opened or read.
    static xStringEncoding GetFileEncoding(const CXTString<wchar_t>& path, bool& hasBom);

    /// Opens a file. With typeText and neither modeCreate nor modeWrite its encoding and line ends are detected first. That
    /// waits for the first line of a pipe, where it ends with CR for the next character too, and loses nothing of it.
    /// False, with the cause and the path in `error` when it is given, also when that detection fails.
    bool Open(const wchar_t* path, unsigned int mode, CXFileException* error = nullptr) override;
    using CXStdioFile::Open;

    /// Reads a line and removes its end; the line is cut at its first NUL. Text of an unknown code page reads as empty.
    /// False, with the line empty, at the end of the file. A failure throws, with the line empty.
    ///
    /// A line ends with LF or CR LF. In a file whose first line holds a CR before its end, CR alone ends a line too.
    bool ReadString(CXTString<wchar_t>& line) override;
    /// Reads as CXStdioFile does, the bytes as they are, after the mark.
    bool ReadString(CXTString<char>& line) override;
    /// Writes text in the file's encoding; line ends stay as they are. In a file opened with kWriteUtf16, or with a mark,
    /// what is written at position 0 is preceded by the mark, also after the file was cut to nothing. Null, and text that the
    /// encoding cannot express at all, writes nothing.
    void WriteString(const wchar_t* text) override;
    /// Writes the characters as they are; in UTF-16 and UTF-32, converted from the ANSI code page.
    void WriteString(const char* text) override;

    /// Sets the encoding of a text without a mark of UTF-16, also to UTF-16 or UTF-32 by name or code-page number; holds for
    /// what is read or written from now on. Ignored when the encoding is xEncodingUtf16 or xEncodingUtf16BE. The code-page
    /// number 65001 becomes xEncodingUtf8, others stay as they are. A file that does not throw is closed where it cannot
    /// be read from its start once it has been examined.
    void SetCodePage(xStringEncoding encoding);
    xStringEncoding GetEncoding() const noexcept { return m_encoding; }
    /// Whether the file was found to start with a mark, or a mark was written; no longer when it was cut off or replaced.
    bool HasBom() const noexcept { return m_hasBom; }
    bool IsFileUnicodeText() const noexcept { return m_encoding == xEncodingUtf16 || m_encoding == xEncodingUtf16BE; }
    bool IsFileUTF8() const noexcept { return m_encoding == xEncodingUtf8; }
    /// The mode given to Open, with kUtf16Written added where it applies.
    unsigned int GetOpenMode() const noexcept { return m_openMode; }

    /// Skips `count` lines, from the start of the file (CXFile::begin) or from the current line (any other origin).
    /// Returns how many there were; 0 in a file that does not throw and cannot go back to its start.
    unsigned int SkipLines(unsigned int count, unsigned int origin);
    /// Length of the text without its mark: in 16-bit units for UTF-16, else in bytes.
    unsigned __int64 GetCharCount() const;
    /// Reads a line and scans it as CXTString::ScanS does. Returns the number of targets filled; -1 at the end of the file
    /// and when the line ends before the first conversion.
    int FScanfS(const wchar_t* format, ...);

    /// At position 0 of a file with a mark, ReadString skips the mark again.
    unsigned __int64 Seek(__int64 offset, SeekPosition origin) override;
    bool SetLength(unsigned __int64 length) override;
    unsigned int Read(void* buffer, unsigned int count) override;
    void Write(const void* buffer, unsigned int count) override;
    void Close() override;
    void Abort() override;
    /// The position after the line that was read last.
    unsigned __int64 GetPosition() const override;

private:
    bool IsTextRead() const noexcept;
    bool WritesUtf16() const noexcept { return (m_openMode & kUtf16Written) != 0; }
    /// The encoding that lines are read and written with.
    xStringEncoding TextEncoding() const noexcept;
    void DetectMark();
    void CheckCarriageReturns();
    void SkipMark();
    bool IsAtStart() const;
    void WriteMark();
    void WriteLineBuffer();
    std::size_t MarkSize() const noexcept;
    bool ReadCachedLine(CXTString<wchar_t>& line);
    void SkipRawLine(xStringEncoding encoding);
    std::size_t CachedBytes() const noexcept;
    void EmptyCache();
    bool LeaveCache();

    bool m_bomPending = true;
    bool m_hasBom = false;
    xStringEncoding m_encoding = xEncodingUnknown;
    unsigned int m_openMode = 0;
    bool m_carriageReturnMode = false;
    int m_crCursor = -1;
    CXTString<char> m_lineBuffer; // in carriage-return mode the bytes of the CR cache
    CXTString<wchar_t> m_crCache;
    std::size_t m_rawCursor = 0; // position of the CR cursor in the line buffer
    bool m_atStart = true;       // nothing was read or written since the position was 0
    xStringEncoding m_markEncoding =
        xEncodingUnknown; // of the mark that text at the start follows; unknown: there is none
};
