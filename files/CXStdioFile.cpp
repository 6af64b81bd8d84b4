#include "files/CXStdioFile.h"

#include "objects/CXFileException.h"
#include "objects/FailureNote.h"
#include "objects/ResultOr.h"
#include "platform/FileSystem.h"
#include "platform/SystemErrors.h"
#include "text/LineScan.h"
#include "text/PaddedText.h"
#include "text/TextSearch.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace
{
constexpr std::size_t kSmallestBlock = 8;
constexpr std::size_t kLinesAtOnce = 32768; // bytes; even, so that no UTF-16 unit is split
constexpr std::size_t kMostAtOnce = 1u << 30;

/// Where nothing can be sought, positions count from the start of the buffer.
unsigned __int64 StartOfBuffer(unsigned __int64 position)
{
    return position == tev::platform::kNoPosition ? 0 : position;
}

// How many of the last characters are the line end LF or CR LF.
template <class T>
unsigned __int64 LineEndSize(const CXTCharArray<T>& line)
{
    const unsigned __int64 length = line.m_length;
    if (length == 0 || line.m_data[length - 1] != T('\n'))
        return 0;
    return length >= 2 && line.m_data[length - 2] == T('\r') ? 2 : 1;
}

/// The system's position without a note, since what cannot seek has none.
unsigned __int64 PositionOf(void* handle)
{
    std::uint64_t position = 0;
    const bool isKnown =
        tev::platform::CurrentFileSystem().Seek(handle, 0, tev::platform::SeekOrigin::Current, position);
    return isKnown ? position : tev::platform::kNoPosition;
}

template <class T>
void DropLast(CXTCharArray<T>& line, unsigned __int64 count)
{
    line.m_length -= count;
    line.m_data[line.m_length] = T();
}
} // namespace

X_IMPLEMENT_LIBRARY_CLASS(CXStdioFile, CXFile, xSchemaNotSerializable)

CXStdioFile::CXStdioFile(bool throwOnError) : CXFile(throwOnError) {}

CXStdioFile::CXStdioFile(void* handle, bool throwOnError) : CXFile(handle, throwOnError) {}

CXStdioFile::CXStdioFile(const wchar_t* path, unsigned int flags) : CXFile(path, flags) {}

CXStdioFile::~CXStdioFile()
{
    WritePendingQuietly();
}

bool CXStdioFile::Open(const wchar_t* path, unsigned int flags, CXFileException* error)
{
    const tev::ExclusiveUse use(m_use);
    try
    {
        LeaveFile();
        return CXFile::Open(path, flags, error);
    }
    catch (CXFileException* failure)
    {
        tev::NoteException("CXStdioFile::Open", *failure, path);
        TakeFailure(failure, error);
        return false;
    }
}

unsigned __int64 CXStdioFile::Seek(__int64 offset, SeekPosition origin)
{
    const tev::ExclusiveUse use(m_use);
    WritePending();
    auto distance = static_cast<unsigned __int64>(offset); // wraps where it points backwards
    if (m_filled != 0 && origin != end)
    {
        const unsigned __int64 target = distance + (origin == current ? m_next : 0 - m_origin);
        if (target <= m_filled)
        {
            m_next = static_cast<std::size_t>(target);
            return m_origin + m_next;
        }
        if (origin == current)
            distance -= m_filled - m_next;
    }
    const unsigned __int64 position = CXFile::Seek(static_cast<__int64>(distance), origin);
    if (position != tev::platform::kNoPosition)
        m_filled = m_next = 0;
    return position;
}

bool CXStdioFile::SetLength(unsigned __int64 length)
{
    const tev::ExclusiveUse use(m_use);
    WritePending();
    if (ReturnUnread())
        return CXFile::SetLength(length);
    FailToSeek();
    return false;
}

unsigned __int64 CXStdioFile::GetLength() const
{
    const tev::SharedUse use(m_use);
    const unsigned __int64 length = CXFile::GetLength();
    return m_pending == 0 ? length : std::max(length, CXStdioFile::GetPosition());
}

unsigned int CXStdioFile::Read(void* buffer, unsigned int count)
{
    const tev::ExclusiveUse use(m_use);
    if (m_handle == nullptr || buffer == nullptr)
        return 0;
    auto* target = static_cast<char*>(buffer);
    std::size_t wanted = count;
    while (wanted != 0)
    {
        if (m_next == m_filled && wanted >= m_bufferSize)
        {
            WritePending();
            m_filled = m_next = 0;
            wanted -= CXFile::Read(target, static_cast<unsigned int>(wanted));
            break;
        }
        const std::size_t taken = std::min(wanted, Available(1));
        if (taken == 0)
            break;
        std::memcpy(target, Unread(), taken);
        m_next += taken;
        target += taken;
        wanted -= taken;
    }
    return count - static_cast<unsigned int>(wanted);
}

void CXStdioFile::Write(const void* buffer, unsigned int count)
{
    const tev::ExclusiveUse use(m_use);
    if (m_handle == nullptr || buffer == nullptr)
        return CXFile::Write(buffer, count);
    if (!ReturnUnread())
    {
        // What cannot seek has a stream for each direction, and the one that is read goes on where it was.
        return PositionOf(m_handle) == tev::platform::kNoPosition ? CXFile::Write(buffer, count) : FailToSeek();
    }
    if (count > m_bufferSize - m_pending)
        WritePending();
    if (count >= m_bufferSize)
        return CXFile::Write(buffer, count);
    MakeBuffer();
    std::memcpy(m_buffer.get() + m_pending, buffer, count);
    m_pending += count;
}

void CXStdioFile::Flush()
{
    const tev::ExclusiveUse use(m_use);
    WritePending();
}

void CXStdioFile::Close()
{
    const tev::ExclusiveUse use(m_use);
    try
    {
        WritePending();
    }
    catch (...)
    {
        m_pending = 0;
        CXFile::Abort();
        throw;
    }
    m_filled = m_next = 0;
    CXFile::Close();
}

void CXStdioFile::Abort()
{
    const tev::ExclusiveUse use(m_use);
    WritePendingQuietly();
    m_filled = m_next = m_pending = 0;
    CXFile::Abort();
}

unsigned __int64 CXStdioFile::GetPosition() const
{
    const tev::SharedUse use(m_use);
    if (m_filled != 0)
        return m_origin + m_next;
    if (m_pending == 0)
        return CXFile::GetPosition();
    return StartOfBuffer(PositionOf(m_handle)) + m_pending;
}

bool CXStdioFile::ReadString(CXTString<char>& line)
{
    const tev::ExclusiveUse use(m_use);
    RawText raw;
    try
    {
        if (!ReadRawLine(xEncodingAnsi, line, raw))
            return false;
    }
    catch (...)
    {
        line.Empty();
        throw;
    }
    if (line.IsEmpty())
        line.Assign(raw.m_bytes, raw.m_size);
    if (LineEndSize<char>(line) == 2)
    {
        DropLast<char>(line, 2);
        line += '\n';
    }
    return true;
}

bool CXStdioFile::ReadString(CXTString<wchar_t>& line)
{
    const tev::ExclusiveUse use(m_use);
    LineTraits traits;
    line.Empty();
    try
    {
        if (!ReadTextLine(xEncodingUtf16, m_scratch, line, traits))
            return false;
        if (traits.m_ended)
            line += L'\n';
        return true;
    }
    catch (...)
    {
        line.Empty();
        throw;
    }
}

void CXStdioFile::WriteString(const char* text)
{
    WriteBytes(text, tev::TextLength(text));
}

void CXStdioFile::WriteString(const wchar_t* text)
{
    const tev::ExclusiveUse use(m_use);
    if (XEncodeText(text, tev::TextLength(text), xEncodingUtf16, m_scratch))
        WriteBytes(m_scratch.GetConstBuffer(), m_scratch.GetLength64());
}

void CXStdioFile::SetBufferSize(unsigned int size)
{
    const tev::ExclusiveUse use(m_use);
    if (m_buffer == nullptr)
        m_bufferSize = std::max<std::size_t>(size, kSmallestBlock);
}

bool CXStdioFile::ReadRawLine(xStringEncoding encoding, CXTString<char>& assembled, RawText& line)
{
    const std::size_t unit = tev::UnitSize(encoding);
    if (!assembled.IsEmpty())
        assembled.Empty();
    while (const std::size_t available = Available(unit))
    {
        const std::size_t searched = tev::WholeUnits(available, unit);
        const char* bytes = Unread();
        const std::size_t lineFeed = tev::FindLineFeed(bytes, searched, encoding);
        const bool ended = lineFeed != tev::kNotFound;
        // Less than a unit is left over only at the end of the file.
        const std::size_t taken = ended ? lineFeed + unit : std::max(searched, available - searched);
        m_next += taken;
        if (ended && assembled.IsEmpty())
        {
            line = {bytes, taken};
            return true;
        }
        assembled.Append(bytes, taken);
        if (ended)
            break;
    }
    line = {assembled.GetConstBuffer(), static_cast<std::size_t>(assembled.GetLength64())};
    return line.m_size != 0;
}

bool CXStdioFile::ReadRawLines(xStringEncoding encoding, CXTString<char>& lines)
{
    const std::size_t unit = tev::UnitSize(encoding);
    lines.Empty();
    while (const std::size_t available = Available(unit))
    {
        const char* bytes = Unread();
        const std::size_t searched = tev::WholeUnits(available, unit);
        // Not the last unit: of a CR there it is not known yet whether LF follows, and a pipe might have to be waited for.
        const std::size_t wanted = std::min(searched - std::min(searched, unit), kLinesAtOnce);
        std::size_t lineBreak = tev::FindLastLineBreak(bytes, wanted, encoding);
        std::size_t before = 0;
        if (lineBreak == tev::kNotFound)
        {
            before = wanted;
            lineBreak = tev::FindLineBreak(bytes + before, searched - before, encoding);
        }
        const bool ended = lineBreak != tev::kNotFound;
        const std::size_t taken = ended ? before + lineBreak + unit : std::max(searched, available - searched);
        const bool afterReturn = ended && tev::IsUnit(bytes + taken - unit, encoding, '\r');
        lines.Append(bytes, taken);
        m_next += taken;
        if (afterReturn && Available(unit) >= unit && tev::IsUnit(Unread(), encoding, '\n'))
        {
            lines.Append(Unread(), unit);
            m_next += unit;
        }
        if (ended)
            break;
    }
    return !lines.IsEmpty();
}

bool CXStdioFile::ReadTextLine(xStringEncoding encoding, CXTString<char>& assembled, CXTString<wchar_t>& line,
                               LineTraits& traits)
{
    traits.m_ended = true;
    if (const std::size_t taken =
            tev::DecodeShortLine(Unread(), m_filled - m_next, encoding, line, traits.m_mayHoldNul, m_asciiLikely))
    {
        m_next += taken;
        return true;
    }
    RawText raw;
    if (!ReadRawLine(encoding, assembled, raw))
        return false;
    if (raw.m_bytes != assembled.GetConstBuffer())
    {
        const tev::PaddedText padded = tev::DecodePaddedLine(raw.m_bytes, raw.m_size, encoding, line);
        traits = {true, padded.m_hasNul};
        if (padded.m_decoded)
            return true;
    }
    traits = {false, true};
    if (!XDecodeText(raw.m_bytes, raw.m_size, encoding, line))
        return true;
    const unsigned __int64 lineEnd = LineEndSize<wchar_t>(line);
    traits.m_ended = lineEnd != 0;
    DropLast<wchar_t>(line, lineEnd);
    return true;
}

CXStdioFile::RawText CXStdioFile::PeekBytes(std::size_t count)
{
    const std::size_t available = Available(count);
    return {Unread(), std::min(count, available)};
}

bool CXStdioFile::LineHoldsReturn(xStringEncoding encoding, std::size_t skipped)
{
    const std::size_t unit = tev::UnitSize(encoding);
    const bool seeks = PositionOf(m_handle) != tev::platform::kNoPosition;
    std::size_t looked = skipped; // bytes of the buffer without a line break
    for (;;)
    {
        // Room for a line break and what is behind it.
        if (seeks)
            m_next += std::exchange(looked, 0);
        else if (m_bufferSize - looked < 2 * unit)
            GrowBuffer();
        const std::size_t available = Available(looked + unit);
        if (available < looked + unit)
            return false;
        const std::size_t searched = tev::WholeUnits(available - looked, unit);
        const std::size_t lineBreak = tev::FindLineBreak(Unread() + looked, searched, encoding);
        looked += std::min(lineBreak, searched);
        if (lineBreak == tev::kNotFound)
            continue;
        if (!tev::IsUnit(Unread() + looked, encoding, '\r'))
            return false;
        if (seeks)
            m_next += std::exchange(looked, 0);
        else if (m_bufferSize - looked < 2 * unit)
            GrowBuffer();
        const std::size_t rest = Available(looked + 2 * unit) - looked;
        return rest > unit && (rest < 2 * unit || !tev::IsUnit(Unread() + looked + unit, encoding, '\n'));
    }
}

void CXStdioFile::WriteBytes(const char* bytes, std::size_t count)
{
    const tev::ExclusiveUse use(m_use);
    for (std::size_t piece; count != 0; bytes += piece, count -= piece)
    {
        piece = std::min<std::size_t>(count, kMostAtOnce);
        Write(bytes, static_cast<unsigned int>(piece));
    }
}

void CXStdioFile::LeaveFile()
{
    if (m_closeOnDelete)
        return CXStdioFile::Close();
    WritePending();
    m_filled = m_next = 0;
    m_handle = nullptr;
}

void CXStdioFile::TakeFailure(CXFileException* failure, CXFileException* error)
{
    if (error != nullptr)
        *error = *failure;
    failure->Delete();
}

// Makes at least `wanted` bytes available at the front of the buffer, if the file has them.
std::size_t CXStdioFile::FillBuffer(std::size_t wanted)
{
    WritePending();
    MakeBuffer();
    if (m_filled == 0)
        m_origin = PositionToFillFrom();
    if (m_next != 0)
    {
        m_origin += m_next;
        m_filled -= m_next;
        std::memmove(m_buffer.get(), Unread(), m_filled);
        m_next = 0;
    }
    while (m_filled < wanted)
    {
        // The writer of a pipe may send no more before what is there has been read.
        const unsigned int count =
            ReadAvailable(m_buffer.get() + m_filled, static_cast<unsigned int>(m_bufferSize - m_filled));
        if (count == 0)
            break;
        m_filled += count;
    }
    return m_filled;
}

void CXStdioFile::MakeBuffer()
{
    if (m_buffer == nullptr)
        m_buffer.reset(new char[m_bufferSize + tev::kTextPadding]());
}

void CXStdioFile::WritePending()
{
    if (m_pending == 0)
        return;
    std::size_t written = 0;
    try
    {
        WriteCounted(m_buffer.get(), static_cast<unsigned int>(m_pending), written);
    }
    catch (...)
    {
        m_pending -= written;
        std::memmove(m_buffer.get(), m_buffer.get() + written, m_pending);
        throw;
    }
    m_pending = 0;
}

void CXStdioFile::WritePendingQuietly() noexcept
{
    static_cast<void>(tev::ResultOr(false, [this] {
        WritePending();
        return true;
    }));
}

void CXStdioFile::GrowBuffer()
{
    MakeBuffer();
    std::unique_ptr<char[]> larger(new char[2 * m_bufferSize + tev::kTextPadding]());
    std::memcpy(larger.get(), m_buffer.get(), m_filled);
    m_buffer = std::move(larger);
    m_bufferSize *= 2;
}

// A position that the system does not say must not become a wrong one; only what cannot seek has none.
unsigned __int64 CXStdioFile::PositionToFillFrom() const
{
    const unsigned __int64 position = PositionOf(m_handle);
    if (position == tev::platform::kNoPosition && m_handle != nullptr &&
        tev::platform::LastSystemError() != tev::platform::kCannotSeek)
        FailToSeek();
    return StartOfBuffer(position);
}

// Moves the system's position back to that of the caller. False, with nothing changed, where that fails.
bool CXStdioFile::ReturnUnread()
{
    std::uint64_t position = 0;
    if (m_next != m_filled &&
        !tev::platform::CurrentFileSystem().Seek(m_handle, -static_cast<__int64>(m_filled - m_next),
                                                 tev::platform::SeekOrigin::Current, position))
        return false;
    m_filled = m_next = 0;
    return true;
}

void CXStdioFile::FailToSeek() const
{
    if (m_throwOnError)
        CXFileException::ThrowOsError(fileBadSeek, m_path, nullptr);
    tev::NoteLastError("CXStdioFile::Seek", m_path);
}
