#include "tools/tev/TextSource.h"

#include "tools/tev/Encodings.h"
#include "tools/tev/System.h"
#include "tools/tev/Tool.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

namespace tev::tool
{
namespace
{
constexpr std::size_t kBlockSize = 1024 * 1024;

unsigned char ByteAt(const char* bytes, std::size_t position)
{
    return static_cast<unsigned char>(bytes[position]);
}

std::size_t WholeUtf8(const char* bytes, std::size_t size)
{
    constexpr std::size_t kLongestSequence = 4;
    for (std::size_t back = 1; back < kLongestSequence && back <= size; ++back)
    {
        const unsigned char byte = ByteAt(bytes, size - back);
        if (byte < 0x80)
            return size;
        if (byte >= 0xC0)
        {
            const std::size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : 2;
            return length > back ? size - back : size;
        }
    }
    return size;
}

std::size_t WholeUtf16(const char* bytes, std::size_t size, bool bigEndian)
{
    size -= size % 2;
    if (size == 0)
        return 0;
    const bool endsInHighSurrogate = (ByteAt(bytes, size - (bigEndian ? 2 : 1)) & 0xFC) == 0xD8;
    return endsInHighSurrogate ? size - 2 : size;
}

/// In any code page a line feed or a space is a complete character, never part of one.
std::size_t WholeOfCodePage(const char* bytes, std::size_t size)
{
    const std::string_view text(bytes, size);
    for (const char last : {'\n', ' '})
    {
        const std::size_t found = text.rfind(last);
        if (found != std::string_view::npos)
            return found + 1;
    }
    return 0;
}

/// The number of bytes that are complete characters; 0 when more bytes are needed to decide.
std::size_t WholeCharacters(const char* bytes, std::size_t size, xStringEncoding encoding)
{
    if (encoding == xEncodingUtf8)
        return WholeUtf8(bytes, size);
    if (IsUtf16(encoding))
        return WholeUtf16(bytes, size, encoding == xEncodingUtf16BE);
    return IsUtf32(encoding) ? size - size % 4 : WholeOfCodePage(bytes, size);
}
} // namespace

std::unique_ptr<CXFile> OpenInput(const std::string& name)
{
    if (name == kStandardStream)
    {
        auto file = std::make_unique<CXFile>(CXFile::HandleFromDescriptor(kStandardInput), true);
        file->SetFilePath(L"standard input");
        return file;
    }
    std::error_code unknown;
    if (std::filesystem::is_directory(SystemPath(name), unknown))
        throw Failure(name, "is a folder");
    constexpr unsigned kFlags = CXFile::modeRead | CXFile::shareDenyNone | CXFile::modeNoInherit;
    return std::make_unique<CXFile>(Widen(name).c_str(), kFlags);
}

std::uint64_t SizeOf(const std::string& name)
{
    std::error_code unknown;
    const std::uintmax_t size = std::filesystem::file_size(SystemPath(name), unknown);
    return unknown ? 0 : size;
}

TextSource::TextSource(const std::string& name) : m_file(OpenInput(name)), m_buffer(kBlockSize), m_size(SizeOf(name))
{
    Fill();
    m_mark = XFindTextMark(m_buffer.data(), m_filled);
    m_start = m_mark.m_size;
}

std::string_view TextSource::Next(xStringEncoding encoding)
{
    for (;;)
    {
        Fill();
        const std::size_t available = m_filled - m_start;
        const std::size_t whole = m_atEnd ? available : WholeCharacters(&m_buffer[m_start], available, encoding);
        if (whole != 0 || m_atEnd)
        {
            const std::string_view bytes(m_buffer.data() + m_start, whole);
            m_start += whole;
            return bytes;
        }
        m_buffer.resize(2 * m_buffer.size());
    }
}

/// Moves the rest to the front and reads until the buffer is full or the file ends.
void TextSource::Fill()
{
    if (m_start != 0)
    {
        std::memmove(m_buffer.data(), m_buffer.data() + m_start, m_filled - m_start);
        m_filled -= m_start;
        m_start = 0;
    }
    while (m_filled < m_buffer.size() && !m_atEnd)
    {
        const std::size_t wanted = std::min<std::size_t>(m_buffer.size() - m_filled, 1u << 30);
        const unsigned int count = m_file->Read(m_buffer.data() + m_filled, static_cast<unsigned int>(wanted));
        m_atEnd = count == 0;
        m_filled += count;
        m_read += count;
    }
}

} // namespace tev::tool
