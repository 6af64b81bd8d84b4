#include "files/CStdioFileEx.h"

#include "objects/CXFileException.h"
#include "text/LineScan.h"
#include "text/TextSearch.h"

#include <algorithm>
#include <cstring>

namespace
{
constexpr unsigned kUtf8CodePage = 65001;
constexpr char kUtf16Mark[] = {'\xFF', '\xFE'};
constexpr char kUtf8Mark[] = {'\xEF', '\xBB', '\xBF'};

void CutTo(CXTString<wchar_t>& line, std::size_t length)
{
    CXTCharArray<wchar_t>& text = line;
    if (length == text.m_length)
        return;
    text.m_data[length] = 0;
    text.m_length = length;
}

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

X_IMPLEMENT_CLASS(CStdioFileEx, CXStdioFile, xSchemaNotSerializable)

CStdioFileEx::CStdioFileEx(bool throwOnError) : CXStdioFile(throwOnError) {}

CStdioFileEx::CStdioFileEx(const wchar_t* path, unsigned int mode) : CStdioFileEx(true)
{
    CXFileException error;
    if (!CStdioFileEx::Open(path, mode, &error))
        CXFileException::Throw(error.GetCause(), error.GetFileName());
}

CStdioFileEx::~CStdioFileEx() = default;

xStringEncoding CStdioFileEx::GetFileEncoding(const CXTString<wchar_t>& path, bool& hasBom)
{
    hasBom = false;
    CXFile file(path.GetConstBuffer(), modeRead | shareDenyNone | typeBinary);
    char start[3];
    const unsigned int count = file.Read(start, sizeof(start));
    file.Close();
    xStringEncoding encoding = xEncodingUnknown;
    if (count >= sizeof(kUtf16Mark) && std::memcmp(start, kUtf16Mark, sizeof(kUtf16Mark)) == 0)
        encoding = xEncodingUtf16;
    else if (count == sizeof(kUtf8Mark) && std::memcmp(start, kUtf8Mark, sizeof(kUtf8Mark)) == 0)
        encoding = xEncodingUtf8;
    hasBom = encoding != xEncodingUnknown;
    return encoding;
}

bool CStdioFileEx::Open(const wchar_t* path, unsigned int mode, CXFileException* error)
{
    m_bomPending = true;
    m_mayBeAtStart = true;
    m_hasBom = false;
    m_encoding = xEncodingUnknown;
    m_openMode = mode;
    m_carriageReturnMode = false;
    EmptyCache();
    m_path = path;
    try
    {
        LeaveFile(); // its lock would keep the same file from being opened
        unsigned int passedOn = mode;
        if (IsTextRead())
            m_encoding = GetFileEncoding(m_path, m_hasBom);
        else if ((mode & kWriteUtf16) != 0 && (mode & (modeCreate | modeWrite | modeReadWrite)) != 0)
            m_openMode |= kUtf16Written;
        if (tev::IsUtf16(TextEncoding()))
            passedOn = (mode & ~(typeText | kReadUtf8 | kWriteUtf16)) | typeBinary;
        if ((passedOn & typeText) != 0 && (passedOn & kReadUtf8) != 0 && m_encoding == xEncodingUnknown)
            m_encoding = xEncodingUtf8;
        if (!CXStdioFile::Open(path, passedOn, error))
            return false;
        if (IsTextRead())
            CheckCarriageReturns();
        return true;
    }
    catch (CXFileException* failure)
    {
        TakeFailure(failure, error);
        Abort();
        return false;
    }
}

bool CStdioFileEx::ReadString(CXTString<wchar_t>& line)
{
    line.Empty();
    if (m_bomPending)
        SkipMark();
    if (m_carriageReturnMode)
        return ReadCachedLine(line);
    LineTraits traits;
    if (!ReadTextLine(TextEncoding(), m_lineBuffer, line, traits))
        return false;
    if (!traits.m_ended)
        CutTo(line, LengthWithoutEnd(line));
    if (traits.m_mayHoldNul)
        CutTo(line, FindNul(line, line.GetLength64()));
    return true;
}

bool CStdioFileEx::ReadString(CXTString<char>& line)
{
    line.Empty();
    LeaveCache();
    if (m_bomPending)
        SkipMark();
    return CXStdioFile::ReadString(line);
}

void CStdioFileEx::WriteString(const wchar_t* text)
{
    LeaveCache(); // which needs the line buffer
    if (!XEncodeText(text, tev::TextLength(text), TextEncoding(), m_lineBuffer))
        return;
    if (WritesUtf16() && m_mayBeAtStart)
    {
        if (GetPosition() == 0)
        {
            CXStdioFile::Write(kUtf16Mark, sizeof(kUtf16Mark));
            m_hasBom = true;
        }
        m_mayBeAtStart = !m_throwOnError; // a write that failed in silence may have lost the mark
    }
    WriteBytes(m_lineBuffer.GetConstBuffer(), m_lineBuffer.GetLength64());
}

void CStdioFileEx::SetCodePage(xStringEncoding encoding)
{
    if (IsFileUnicodeText())
        return;
    LeaveCache();
    m_encoding = encoding == kUtf8CodePage ? xEncodingUtf8 : encoding;
    // Open examined the bytes as 8-bit characters.
    if (IsFileUnicodeText() && IsTextRead() && GetPosition() == 0)
        CheckCarriageReturns();
}

unsigned int CStdioFileEx::SkipLines(unsigned int count, unsigned int origin)
{
    if (origin == begin)
        Seek(0, begin);
    CXTString<wchar_t> line;
    unsigned int skipped = 0;
    while (skipped < count && ReadString(line))
        ++skipped;
    return skipped;
}

unsigned __int64 CStdioFileEx::GetCharCount() const
{
    const unsigned __int64 length = GetLength();
    const unsigned __int64 mark = m_hasBom ? MarkSize() : 0;
    return (length - std::min(length, mark)) / tev::UnitSize(TextEncoding());
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
    LeaveCache();
    m_mayBeAtStart = true;
    const unsigned __int64 position = CXStdioFile::Seek(offset, origin);
    if (position == 0)
        m_bomPending = true;
    return position;
}

bool CStdioFileEx::SetLength(unsigned __int64 length)
{
    LeaveCache();
    m_mayBeAtStart = true;
    return CXStdioFile::SetLength(length);
}

unsigned int CStdioFileEx::Read(void* buffer, unsigned int count)
{
    LeaveCache();
    return CXStdioFile::Read(buffer, count);
}

void CStdioFileEx::Write(const void* buffer, unsigned int count)
{
    LeaveCache();
    CXStdioFile::Write(buffer, count);
}

void CStdioFileEx::Close()
{
    EmptyCache();
    CXStdioFile::Close();
}

void CStdioFileEx::Abort()
{
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

unsigned int CStdioFileEx::MarkSize() const noexcept
{
    return tev::IsUtf16(TextEncoding()) ? sizeof(kUtf16Mark) : sizeof(kUtf8Mark);
}

void CStdioFileEx::CheckCarriageReturns()
{
    m_carriageReturnMode = LineHoldsReturn(TextEncoding());
    CXStdioFile::Seek(0, begin);
}

void CStdioFileEx::SkipMark()
{
    if (m_hasBom && GetPosition() == 0)
    {
        char mark[sizeof(kUtf8Mark)];
        CXStdioFile::Read(mark, MarkSize());
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

// Seeks back to the end of the line that was read last.
void CStdioFileEx::LeaveCache()
{
    if (const std::size_t ahead = CachedBytes())
        CXStdioFile::Seek(-static_cast<__int64>(ahead), current);
    if (m_crCursor >= 0)
        EmptyCache();
}
