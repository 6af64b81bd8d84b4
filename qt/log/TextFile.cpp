#include "qt/log/TextFile.h"

#include "objects/CXFileException.h"
#include "objects/LastFailure.h"
#include "qt/toolkit/QtText.h"
#include "services/Paths.h"
#include "text/TextDetection.h"

#include <algorithm>
#include <cstring>

namespace
{
constexpr unsigned kUtf16Pages[] = {1200, 1201};
constexpr unsigned kUtf32Pages[] = {12000, 12001};
constexpr std::size_t kDetectedBytes = 64 * 1024;
constexpr std::size_t kSampledBytes = 4096;
constexpr unsigned kReadFlags = CXFile::modeRead | CXFile::shareDenyNone | CXFile::modeNoInherit;

bool IsBigEndian(xStringEncoding encoding)
{
    return encoding == xEncodingUtf16BE || encoding == kUtf16Pages[1] || encoding == kUtf32Pages[1];
}

// The offset of the next unit with this character, or `size`.
std::size_t FindUnit(const char* bytes, std::size_t size, std::size_t offset, const TextForm& form, char character)
{
    const std::size_t unit = form.UnitSize();
    const std::size_t low = IsBigEndian(form.m_encoding) ? unit - 1 : 0;
    while (offset + unit <= size)
    {
        const void* const found = std::memchr(bytes + offset + low, character, size - offset - low);
        if (found == nullptr)
            break;
        offset = static_cast<std::size_t>(static_cast<const char*>(found) - bytes) - low;
        const std::size_t aligned = offset - offset % unit;
        if (aligned == offset && offset + unit <= size && form.IsUnit(bytes + offset, character))
            return offset;
        offset = aligned + unit;
    }
    return size;
}

std::size_t FindReturnOrFeed(const char* bytes, std::size_t size, std::size_t offset, const TextForm& form)
{
    const std::size_t unit = form.UnitSize();
    for (; offset + unit <= size; offset += unit)
    {
        if (form.IsUnit(bytes + offset, '\n') || form.IsUnit(bytes + offset, '\r'))
            return offset;
    }
    return size;
}

// The stamp is taken first: where another file gets the path in between, it is noticed later that the stamp is not of that.
bool OpenForReading(CXFile& file, const CXTString<wchar_t>& path, XFileStamp& stamp, CXFileException& error)
{
    static_cast<void>(XGetFileStamp(path, stamp)); // else the file cannot be opened, either
    // A pipe would wait for its other end.
    if (fileExists(path) && !fileIsFile(path))
    {
        CXFileException::ThrowErrno(fileInvalidFile, 0, path, &error);
        return false;
    }
    return file.Open(path.GetConstBuffer(), kReadFlags, &error);
}

// A short read may be the end, or come before a failure: only the next one tells.
std::size_t ReadAll(CXFile& file, char* bytes, std::size_t size, bool& failed)
{
    XClearLastFailure();
    std::size_t read = 0;
    while (read < size)
    {
        const unsigned part = file.Read(bytes + read, static_cast<unsigned>(size - read));
        if (part == 0)
            break;
        read += part;
    }
    failed = failed || (read < size && XLastFailure());
    return read;
}

xStringEncoding EncodingOfBytes(const char* bytes, std::size_t size, bool isWhole)
{
    xStringEncoding encoding = XExamineText(bytes, size).m_encoding;
    // The last character may be cut.
    for (std::size_t cut = 1; cut < 4 && cut < size && encoding == xEncodingUnknown && !isWhole; ++cut)
    {
        if (XExamineText(bytes, size - cut).m_encoding == xEncodingUtf8)
            encoding = xEncodingUtf8;
    }
    return encoding == xEncodingUnknown ? xEncodingAnsi : encoding;
}
} // namespace

std::size_t TextForm::UnitSize() const noexcept
{
    const auto isOneOf = [this](const unsigned(&pages)[2]) { return m_encoding == pages[0] || m_encoding == pages[1]; };
    if (m_encoding == xEncodingUtf16 || m_encoding == xEncodingUtf16BE || isOneOf(kUtf16Pages))
        return 2;
    return isOneOf(kUtf32Pages) ? 4 : 1;
}

bool TextForm::IsUnit(const char* unit, char character) const noexcept
{
    const std::size_t size = UnitSize();
    const std::size_t low = IsBigEndian(m_encoding) ? size - 1 : 0;
    for (std::size_t i = 0; i < size; ++i)
    {
        if (unit[i] != (i == low ? character : '\0'))
            return false;
    }
    return true;
}

void TextForm::Decode(const char* bytes, std::size_t size, QString& text) const
{
    CXTString<wchar_t> wide;
    if (size != 0 && XDecodeText(bytes, size, m_encoding, wide))
        text += XToQString(wide);
}

bool FindLine(const char* bytes, std::size_t size, std::size_t offset, const TextForm& form, LineBytes& line) noexcept
{
    const std::size_t unit = form.UnitSize();
    const std::size_t end = form.m_returnsEndLines ? FindReturnOrFeed(bytes, size, offset, form)
                                                   : FindUnit(bytes, size, offset, form, '\n');
    if (end == size || end + unit > size)
        return false;
    line.m_offset = offset;
    line.m_next = end + unit;
    line.m_size = end - offset;
    if (form.IsUnit(bytes + end, '\r'))
    {
        if (line.m_next + unit > size)
            return false;
        if (form.IsUnit(bytes + line.m_next, '\n'))
            line.m_next += unit;
    }
    else if (!form.m_returnsEndLines && line.m_size >= unit && form.IsUnit(bytes + end - unit, '\r'))
        line.m_size -= unit;
    return true;
}

TextFile::TextFile(xStringEncoding encoding) : m_file(false)
{
    m_form.m_encoding = encoding;
}

std::shared_ptr<TextFile> TextFile::Open(const CXTString<wchar_t>& path, xStringEncoding encoding,
                                         CXFileException& error)
{
    const std::shared_ptr<TextFile> file(new TextFile(encoding));
    {
        const tev::LockGuard guard(file->m_lock);
        if (!OpenForReading(file->m_file, path, file->m_memory.m_stamp, error))
            return nullptr;
    }
    file->Detect(encoding);
    return file;
}

void TextFile::Detect(xStringEncoding encoding)
{
    bool failed = false;
    m_detectedLength = GetLength();
    const Sample start = Take(0, kDetectedBytes, failed);
    const std::size_t size = start.m_bytes.size();
    const XTextMark mark = XFindTextMark(start.m_bytes.data(), size);
    if (encoding != xEncodingUnknown)
        m_form.m_encoding = encoding;
    else if (mark.m_size != 0)
        m_form.m_encoding = mark.m_encoding;
    else
        m_form.m_encoding = EncodingOfBytes(start.m_bytes.data(), size, size < kDetectedBytes);
    if (mark.m_encoding == m_form.m_encoding)
        m_form.m_markSize = mark.m_size;
    m_head.m_bytes.assign(start.m_bytes.data(), start.m_bytes.data() + std::min(size, kSampledBytes));

    // The first line end may be far behind what was read: it is looked for in pieces.
    const std::size_t unit = m_form.UnitSize();
    Sample piece = start;
    std::size_t offset = m_form.m_markSize;
    while (size >= 4)
    {
        const std::size_t found = FindReturnOrFeed(piece.m_bytes.data(), piece.m_bytes.size(), offset, m_form);
        const std::size_t next = found + unit;
        if (next <= piece.m_bytes.size() && m_form.IsUnit(piece.m_bytes.data() + found, '\n'))
            m_form.m_isSettled = true;
        else if (next + unit <= piece.m_bytes.size())
        {
            m_form.m_isSettled = true;
            m_form.m_returnsEndLines = !m_form.IsUnit(piece.m_bytes.data() + next, '\n');
        }
        // Far behind, a first line is one that is cut for showing anyway, and no text with a CR for each line.
        if (m_form.m_isSettled || piece.m_bytes.size() < kDetectedBytes || piece.m_position >= 16 * kDetectedBytes)
            break;
        const bool isAtReturn = found < piece.m_bytes.size();
        const std::size_t step = isAtReturn ? found : piece.m_bytes.size() - piece.m_bytes.size() % unit;
        piece = Take(piece.m_position + step, kDetectedBytes, failed);
        offset = 0;
    }
    m_form.m_isSettled = m_form.m_isSettled || size == kDetectedBytes;
    m_detectedLength = failed ? 0 : std::max<std::uint64_t>(m_detectedLength, size);
}

bool TextFile::IsUnsettled() const
{
    return !m_form.m_isSettled && GetLength() > m_detectedLength;
}

std::uint64_t TextFile::GetLength() const
{
    const tev::LockGuard guard(m_lock);
    const std::uint64_t length = m_file.GetLength();
    return length == ~std::uint64_t{} ? 0 : length;
}

std::size_t TextFile::Read(std::uint64_t position, char* bytes, std::size_t size, bool& failed) const
{
    const tev::LockGuard guard(m_lock);
    if (m_file.Seek(static_cast<__int64>(position), CXFile::begin) != position)
    {
        failed = true;
        return 0;
    }
    return ReadAll(m_file, bytes, size, failed);
}

TextFile::Sample TextFile::Take(std::uint64_t position, std::size_t size, bool& failed) const
{
    Sample sample;
    sample.m_position = position;
    sample.m_bytes.resize(size);
    sample.m_bytes.resize(Read(position, sample.m_bytes.data(), size, failed));
    return sample;
}

bool TextFile::IsUnchanged(const Sample& sample, bool& failed) const
{
    return Take(sample.m_position, sample.m_bytes.size(), failed).m_bytes == sample.m_bytes;
}

void TextFile::Remember(std::uint64_t end, std::uint64_t length)
{
    const std::uint64_t position = end - std::min<std::uint64_t>(end, kSampledBytes);
    bool failed = false;
    Sample sample = Take(position, static_cast<std::size_t>(end - position), failed);
    const tev::LockGuard guard(m_lock);
    m_memory.m_tail = std::move(sample);
    m_memory.m_end = end;
    m_memory.m_length = length;
}

TextFile::Change TextFile::FindChange(const CXTString<wchar_t>& path, CXFileException& error)
{
    CXFile now(false);
    XFileStamp stamp;
    if (!OpenForReading(now, path, stamp, error))
        return Change::None;
    // A file that grows meanwhile is between the two.
    const std::uint64_t least = now.GetLength();
    const std::uint64_t length = GetLength();
    Memory memory;
    {
        const tev::LockGuard guard(m_lock);
        memory = m_memory;
    }
    // A layered file system may have one identity for the file that is open and a copy that is written.
    if (!stamp.IsSameFile(memory.m_stamp) || length < least || length > now.GetLength())
        return Change::Replaced;
    // A file that states no length, or a wrong one, has it before and now.
    if (length < memory.m_end && length != memory.m_length)
        return Change::Cut;
    bool failed = false;
    std::vector<char> head(m_head.m_bytes.size());
    head.resize(ReadAll(now, head.data(), head.size(), failed));
    const bool hasHead = !failed && IsUnchanged(m_head, failed);
    const bool hasTail = !failed && IsUnchanged(memory.m_tail, failed);
    if (failed)
    {
        CXFileException::ThrowErrno(XLastFailure().GetCause(), 0, path, &error);
        return Change::None;
    }
    if (head != m_head.m_bytes)
        return hasHead ? Change::Replaced : Change::Changed;
    if (!hasHead || !hasTail)
        return Change::Changed;
    // Who writes more may have set the time already, but not the length.
    if (stamp != memory.m_stamp && stamp.m_size == memory.m_stamp.m_size && GetLength() == stamp.m_size)
        return Change::Changed;
    const tev::LockGuard guard(m_lock);
    m_memory.m_stamp = stamp;
    return Change::None;
}
