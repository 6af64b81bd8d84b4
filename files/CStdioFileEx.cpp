#include "files/CStdioFileEx.h"

#include "objects/CXFileException.h"
#include "objects/FailureNote.h"
#include "objects/ThreadException.h"
#include "platform/FileSystem.h"
#include "text/CodePageText.h"
#include "text/LineScan.h"
#include "text/TextSearch.h"

#include <algorithm>
#include <string_view>

namespace
{
constexpr unsigned kUtf8CodePage = 65001;
constexpr unsigned kUtf16CodePage = 1200;
constexpr unsigned kUtf16BECodePage = 1201;
constexpr std::string_view kUtf16Mark("\xFF\xFE", 2);
constexpr std::string_view kUtf8Mark("\xEF\xBB\xBF", 3);

void CutTo(CXTString<wchar_t>& line, std::size_t length)
{
    CXTCharArray<wchar_t>& text = line;
    if (length == text.m_length)
        return;
    text.m_data[length] = 0;
    text.m_length = length;
}

bool StartsWith(std::string_view text, std::string_view start)
{
    return text.substr(0, start.size()) == start;
}

xStringEncoding EncodingOfMark(std::string_view start)
{
    return StartsWith(start, kUtf16Mark)  ? xEncodingUtf16
           : StartsWith(start, kUtf8Mark) ? xEncodingUtf8
                                          : xEncodingUnknown;
}

// Empty where the encoding has none.
std::string_view MarkOf(xStringEncoding encoding)
{
    return encoding == xEncodingUtf16 ? kUtf16Mark : encoding == xEncodingUtf8 ? kUtf8Mark : std::string_view();
}

bool IsPartOfMark(std::string_view start)
{
    return start != kUtf16Mark && start != kUtf8Mark && (StartsWith(kUtf16Mark, start) || StartsWith(kUtf8Mark, start));
}

// Turns exceptions on as long as it lives.
class Throwing
{
public:
    explicit Throwing(bool& throwOnError) : m_throwOnError(throwOnError), m_before(throwOnError)
    {
        throwOnError = true;
    }
    ~Throwing() { m_throwOnError = m_before; }
    Throwing(const Throwing&) = delete;
    Throwing& operator=(const Throwing&) = delete;

private:
    bool& m_throwOnError;
    bool m_before;
};

// Position of the first NUL, or the length.
std::size_t FindNul(const wchar_t* text, std::size_t length)
{
    return std::min(length, tev::FindCharacter(text, length, L'\0'));
}

std::size_t LengthWithoutEnd(const CXTString<wchar_t>& line)
{
    const wchar_t* text = line;
    std::size_t length = line.GetLength64();
    if (length >= 2 && text[length - 1] == L'\r' && text[length - 2] == L'\n')
        length -= 2;
    else if (length != 0 && (text[length - 1] == L'\r' || text[length - 1] == L'\n'))
        --length;
    return length;
}

// Position of the first CR or LF from `start` on, or the length.
std::size_t FindLineBreak(const CXTString<wchar_t>& text, std::size_t start)
{
    const wchar_t* characters = text;
    const wchar_t* end = characters + text.GetLength64();
    return static_cast<std::size_t>(
        std::find_if(characters + start, end, [](wchar_t c) { return c == L'\r' || c == L'\n'; }) - characters);
}
} // namespace

X_IMPLEMENT_LIBRARY_CLASS(CStdioFileEx, CXStdioFile, xSchemaNotSerializable)

CStdioFileEx::CStdioFileEx(bool throwOnError) : CXStdioFile(throwOnError) {}

CStdioFileEx::CStdioFileEx(const wchar_t* path, unsigned int mode) : CStdioFileEx(true)
{
    CXFileException error;
    if (!CStdioFileEx::Open(path, mode, &error))
        XThrow<CXFileException>(error);
}

CStdioFileEx::~CStdioFileEx() = default;

xStringEncoding CStdioFileEx::GetFileEncoding(const CXTString<wchar_t>& path, bool& hasBom)
{
    hasBom = false;
    CXFile file(path.GetConstBuffer(), modeRead | shareDenyNone | typeBinary);
    char start[kUtf8Mark.size()];
    const unsigned int count = file.Read(start, sizeof(start));
    file.Close();
    const xStringEncoding encoding = EncodingOfMark({start, count});
    hasBom = encoding != xEncodingUnknown;
    return encoding;
}

bool CStdioFileEx::Open(const wchar_t* path, unsigned int mode, CXFileException* error)
{
    const tev::ExclusiveUse use(m_use);
    m_bomPending = true;
    m_atStart = true;
    m_hasBom = false;
    m_markEncoding = xEncodingUnknown;
    m_encoding = xEncodingUnknown;
    m_openMode = mode;
    m_carriageReturnMode = false;
    EmptyCache();
    m_path = path;
    try
    {
        if (!CXStdioFile::Open(path, mode, error))
            return false;
        const Throwing throwing(m_throwOnError); // a mark that cannot be read is not a missing one
        if (IsTextRead())
            DetectMark();
        else if ((mode & kWriteUtf16) != 0 && (mode & (modeCreate | modeWrite | modeReadWrite)) != 0)
        {
            m_openMode |= kUtf16Written;
            m_markEncoding = xEncodingUtf16;
        }
        if ((mode & typeText) != 0 && (mode & kReadUtf8) != 0 && !WritesUtf16() && m_encoding == xEncodingUnknown)
            m_encoding = xEncodingUtf8;
        if (IsTextRead())
            CheckCarriageReturns();
        return true;
    }
    catch (CXFileException* failure)
    {
        tev::NoteException("CStdioFileEx::Open", *failure, path);
        TakeFailure(failure, error);
        Abort();
        return false;
    }
    catch (...)
    {
        Abort(); // a file whose encoding is not known must not be read
        throw;
    }
}

bool CStdioFileEx::ReadString(CXTString<wchar_t>& line)
{
    const tev::ExclusiveUse use(m_use);
    line.Empty();
    if (m_bomPending)
        SkipMark();
    if (m_carriageReturnMode)
        return ReadCachedLine(line);
    LineTraits traits;
    try
    {
        if (!ReadTextLine(TextEncoding(), m_lineBuffer, line, traits))
            return false;
    }
    catch (...)
    {
        line.Empty();
        throw;
    }
    m_atStart = false;
    if (!traits.m_ended)
        CutTo(line, LengthWithoutEnd(line));
    if (traits.m_mayHoldNul)
        CutTo(line, FindNul(line, line.GetLength64()));
    return true;
}

bool CStdioFileEx::ReadString(CXTString<char>& line)
{
    const tev::ExclusiveUse use(m_use);
    line.Empty();
    if (!LeaveCache())
        return false;
    if (m_bomPending)
        SkipMark();
    const bool read = CXStdioFile::ReadString(line);
    m_atStart = m_atStart && !read;
    return read;
}

void CStdioFileEx::WriteString(const wchar_t* text)
{
    const tev::ExclusiveUse use(m_use);
    // The cache needs the line buffer.
    if (!LeaveCache() || !XEncodeText(text, tev::TextLength(text), TextEncoding(), m_lineBuffer))
        return;
    WriteLineBuffer();
}

bool CStdioFileEx::IsAtStart() const
{
    // In a file that does not throw, the mark may have been lost with a write that failed.
    if (m_atStart || m_throwOnError)
        return m_atStart;
    const tev::FailuresUnnoted unnoted; // a pipe has no position
    return GetPosition() == 0;
}

void CStdioFileEx::WriteMark()
{
    const std::string_view mark = MarkOf(m_markEncoding);
    if (mark.empty() || !IsAtStart())
        return;
    Write(mark.data(), static_cast<unsigned int>(mark.size()));
    m_hasBom = true;
}

void CStdioFileEx::WriteLineBuffer()
{
    WriteMark();
    WriteBytes(m_lineBuffer.GetConstBuffer(), m_lineBuffer.GetLength64());
}

void CStdioFileEx::WriteString(const char* text)
{
    const tev::ExclusiveUse use(m_use);
    if (text == nullptr)
        return;
    const xStringEncoding encoding = TextEncoding();
    const std::size_t length = tev::TextLength(text);
    const std::size_t unit = tev::UnitSize(encoding);
    if (unit != 1 && (encoding != xEncodingUtf16 || !tev::IsAnsiAscii(text, length)))
        return WriteString(CXTString<wchar_t>(text).GetConstBuffer());
    if (!LeaveCache())
        return;
    if (unit == 1)
    {
        WriteMark();
        return WriteBytes(text, length);
    }
    tev::AsciiToUtf16(text, length, m_lineBuffer);
    WriteLineBuffer();
}

void CStdioFileEx::SetCodePage(xStringEncoding encoding)
{
    const tev::ExclusiveUse use(m_use);
    if (IsFileUnicodeText() || !LeaveCache())
        return;
    const std::size_t unitBefore = tev::UnitSize(TextEncoding());
    m_encoding = encoding == kUtf8CodePage ? xEncodingUtf8 : encoding;
    // All 8-bit characters have been examined alike.
    if ((unitBefore != 1 || tev::UnitSize(TextEncoding()) != 1) && IsTextRead() && m_atStart)
        CheckCarriageReturns();
}

unsigned int CStdioFileEx::SkipLines(unsigned int count, unsigned int origin)
{
    const tev::ExclusiveUse use(m_use);
    if (origin == begin && Seek(0, begin) == tev::platform::kNoPosition)
        return 0; // in a file that does not throw
    CXTString<wchar_t> line;
    unsigned int skipped = 0;
    while (skipped < count && ReadString(line))
        ++skipped;
    return skipped;
}

unsigned __int64 CStdioFileEx::GetCharCount() const
{
    const unsigned __int64 length = GetLength();
    return (length - std::min<unsigned __int64>(length, MarkSize())) / tev::UnitSize(TextEncoding());
}

int CStdioFileEx::FScanfS(const wchar_t* format, ...)
{
    CXTString<wchar_t> line;
    if (!ReadString(line))
        return -1;
    va_list arguments;
    va_start(arguments, format);
    const int filled = line.ScanVS(format, arguments);
    va_end(arguments);
    return filled;
}

unsigned __int64 CStdioFileEx::Seek(__int64 offset, SeekPosition origin)
{
    const tev::ExclusiveUse use(m_use);
    if (!LeaveCache())
        return tev::platform::kNoPosition;
    const unsigned __int64 position = CXStdioFile::Seek(offset, origin);
    if (position != tev::platform::kNoPosition)
        m_atStart = position == 0;
    m_bomPending = m_bomPending || position == 0;
    return position;
}

bool CStdioFileEx::SetLength(unsigned __int64 length)
{
    const tev::ExclusiveUse use(m_use);
    if (!LeaveCache() || !CXStdioFile::SetLength(length))
        return false;
    m_atStart = length == 0;
    m_hasBom = m_hasBom && length >= MarkSize();
    return true;
}

unsigned int CStdioFileEx::Read(void* buffer, unsigned int count)
{
    const tev::ExclusiveUse use(m_use);
    if (!LeaveCache())
        return 0;
    const unsigned int read = CXStdioFile::Read(buffer, count);
    m_atStart = m_atStart && read == 0;
    return read;
}

void CStdioFileEx::Write(const void* buffer, unsigned int count)
{
    const tev::ExclusiveUse use(m_use);
    if (!LeaveCache())
        return;
    CXStdioFile::Write(buffer, count);
    if (m_atStart && count != 0 && buffer != nullptr && m_markEncoding != xEncodingUnknown)
        m_hasBom = EncodingOfMark({static_cast<const char*>(buffer), count}) == m_markEncoding;
    m_atStart = m_atStart && count == 0;
}

void CStdioFileEx::Close()
{
    const tev::ExclusiveUse use(m_use);
    EmptyCache();
    CXStdioFile::Close();
}

void CStdioFileEx::Abort()
{
    const tev::ExclusiveUse use(m_use);
    EmptyCache();
    CXStdioFile::Abort();
}

unsigned __int64 CStdioFileEx::GetPosition() const
{
    return CXStdioFile::GetPosition() - CachedBytes();
}

bool CStdioFileEx::IsTextRead() const noexcept
{
    return (m_openMode & typeText) != 0 && (m_openMode & (modeCreate | modeWrite)) == 0;
}

xStringEncoding CStdioFileEx::TextEncoding() const noexcept
{
    if (WritesUtf16() || m_encoding == kUtf16CodePage)
        return xEncodingUtf16;
    return m_encoding == kUtf16BECodePage ? xEncodingUtf16BE : m_encoding;
}

// Bytes of the mark that the file has.
std::size_t CStdioFileEx::MarkSize() const noexcept
{
    return m_hasBom ? MarkOf(m_markEncoding).size() : 0;
}

void CStdioFileEx::DetectMark()
{
    // Byte by byte, because the first line of a pipe may be shorter than a mark.
    std::string_view start;
    for (std::size_t wanted = 1; start.size() + 1 == wanted && IsPartOfMark(start); ++wanted)
    {
        const RawText peeked = PeekBytes(wanted);
        start = {peeked.m_bytes, peeked.m_size};
    }
    m_markEncoding = EncodingOfMark(start);
    m_encoding = m_markEncoding;
    m_hasBom = m_encoding != xEncodingUnknown;
}

void CStdioFileEx::CheckCarriageReturns()
{
    // Characters begin behind the mark, also where it is no whole number of them.
    const std::size_t markSize = MarkSize();
    if (PeekBytes(markSize + 1).m_size <= markSize)
        return; // and what cannot seek need not go back
    m_carriageReturnMode = LineHoldsReturn(TextEncoding(), markSize);
    if (CXStdioFile::Seek(0, begin) != tev::platform::kNoPosition)
        return;
    if (m_throwOnError)
        CXFileException::ThrowOsError(fileBadSeek, m_path, nullptr);
    Abort(); // reading would begin behind the lines that were looked at
}

// The mark may have been cut off or replaced since it was found.
void CStdioFileEx::SkipMark()
{
    const std::string_view mark = MarkOf(m_markEncoding);
    if (m_atStart && !mark.empty())
    {
        const RawText start = PeekBytes(mark.size());
        if (start.m_size == 0)
            return; // nothing is there yet, or it could not be read
        m_hasBom = mark == std::string_view(start.m_bytes, start.m_size);
        char skipped[kUtf8Mark.size()];
        m_atStart = CXStdioFile::Read(skipped, static_cast<unsigned int>(MarkSize())) == 0;
    }
    m_bomPending = false;
}

bool CStdioFileEx::ReadCachedLine(CXTString<wchar_t>& line)
{
    const xStringEncoding encoding = TextEncoding();
    if (m_crCursor < 0)
    {
        if (!ReadRawLines(encoding, m_lineBuffer))
            return false;
        // Text of an unknown code page gives an empty cache, and that an empty line.
        static_cast<void>(XDecodeText(m_lineBuffer.GetConstBuffer(), m_lineBuffer.GetLength64(), encoding, m_crCache));
        m_crCursor = 0;
        m_rawCursor = 0;
    }
    const std::size_t start = static_cast<std::size_t>(m_crCursor);
    const std::size_t stop = FindLineBreak(m_crCache, start);
    const wchar_t* text = m_crCache;
    line.Assign(text + start, FindNul(text + start, stop - start));
    const std::size_t next = stop + (text[stop] == L'\r' && text[stop + 1] == L'\n' ? 2 : 1);
    m_atStart = false;
    SkipRawLine(encoding);
    if (next < m_crCache.GetLength64())
        m_crCursor = static_cast<int>(next);
    else
        EmptyCache();
    return true;
}

// Moves the raw cursor along with the CR cursor.
void CStdioFileEx::SkipRawLine(xStringEncoding encoding)
{
    const std::size_t unit = tev::UnitSize(encoding);
    const std::size_t rest = tev::WholeUnits(CachedBytes(), unit);
    const char* bytes = m_lineBuffer.GetConstBuffer() + m_rawCursor;
    const std::size_t lineBreak = tev::FindLineBreak(bytes, rest, encoding);
    if (lineBreak == tev::kNotFound)
    {
        m_rawCursor = m_lineBuffer.GetLength64();
        return;
    }
    const std::size_t next = lineBreak + unit;
    const bool pair =
        tev::IsUnit(bytes + lineBreak, encoding, '\r') && next < rest && tev::IsUnit(bytes + next, encoding, '\n');
    m_rawCursor += pair ? next + unit : next;
}

// Bytes of the file that are in the cache and not read yet.
std::size_t CStdioFileEx::CachedBytes() const noexcept
{
    return m_crCursor < 0 ? 0 : static_cast<std::size_t>(m_lineBuffer.GetLength64()) - m_rawCursor;
}

void CStdioFileEx::EmptyCache()
{
    m_crCache.Empty();
    m_crCursor = -1;
}

// Seeks back to the end of the line that was read last. False, with the cache as it is, where that fails.
bool CStdioFileEx::LeaveCache()
{
    const std::size_t ahead = CachedBytes();
    if (ahead != 0 && CXStdioFile::Seek(-static_cast<__int64>(ahead), current) == tev::platform::kNoPosition)
    {
        if (m_throwOnError)
            CXFileException::ThrowOsError(fileBadSeek, m_path, nullptr);
        return false;
    }
    if (m_crCursor >= 0)
        EmptyCache();
    return true;
}
