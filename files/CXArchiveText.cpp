// Counts, lengths and text in an archive.

#include "files/CXArchive.h"

#include "objects/CXException.h"
#include "text/TextSearch.h"
#include "text/Utf.h"

#include <algorithm>
#include <string>

namespace
{
constexpr unsigned char kLongForm = 0xFF; // the length does not fit into the first byte
constexpr unsigned kEscape16 = 0xFFFF;    // the next wider form follows
constexpr unsigned kEscape32 = 0xFFFFFFFF;
constexpr unsigned kTagUtf16BE = 0xFFFC; // these three take the place of a 16-bit length
constexpr unsigned kTagUtf8 = 0xFFFD;
constexpr unsigned kTagUtf16 = 0xFFFE;
constexpr unsigned kLargestLength16 = kTagUtf16BE - 1;

// Text is read in steps, so that a false length in untrusted input costs no memory.
constexpr std::size_t kFirstReadStep = 0x10000;

unsigned TagOf(xStringEncoding encoding)
{
    switch (encoding)
    {
    case xEncodingUtf8:
        return kTagUtf8;
    case xEncodingUtf16:
        return kTagUtf16;
    case xEncodingUtf16BE:
        return kTagUtf16BE;
    default:
        return 0;
    }
}

bool EncodingOfTag(unsigned tag, xStringEncoding& encoding)
{
    for (const xStringEncoding tagged : {xEncodingUtf8, xEncodingUtf16, xEncodingUtf16BE})
    {
        if (TagOf(tagged) == tag)
        {
            encoding = tagged;
            return true;
        }
    }
    return false;
}

template <class T>
void CutAtNul(CXTString<T>& text)
{
    const std::size_t nul = tev::FindCharacter(text.GetConstBuffer(), text.GetLength64(), T());
    if (nul != tev::kNotFound)
        text.ReleaseBuffer(static_cast<int>(nul));
}

template <class T>
std::size_t LengthToNul(const CXTString<T>& text)
{
    return std::min<std::size_t>(tev::FindCharacter(text.GetConstBuffer(), text.GetLength64(), T()),
                                 text.GetLength64());
}
} // namespace

void CXArchive::WriteCount(unsigned __int64 count)
{
    const bool fits16 = count < kEscape16;
    *this << static_cast<unsigned short>(fits16 ? count : kEscape16);
    if (fits16)
        return;
    const bool fits32 = count < kEscape32;
    *this << static_cast<unsigned int>(fits32 ? count : kEscape32);
    if (!fits32)
        *this << count;
}

unsigned __int64 CXArchive::ReadCount()
{
    const auto count16 = LoadValue<unsigned short>();
    if (count16 < kEscape16)
        return count16;
    const auto count32 = LoadValue<unsigned int>();
    return count32 < kEscape32 ? count32 : LoadValue<unsigned __int64>();
}

void CXArchive::WriteStringLength(unsigned __int64 length, xStringEncoding encoding)
{
    if (const unsigned tag = TagOf(encoding))
        *this << kLongForm << static_cast<unsigned short>(tag);
    if (length < kLongForm)
    {
        *this << static_cast<unsigned char>(length);
        return;
    }
    // Ends before the tags, so that no length is taken for one.
    const bool fits16 = length <= kLargestLength16;
    *this << kLongForm << static_cast<unsigned short>(fits16 ? length : kEscape16);
    if (fits16)
        return;
    const bool fits32 = length < kEscape32;
    *this << static_cast<unsigned int>(fits32 ? length : kEscape32);
    if (!fits32)
        *this << length;
}

unsigned __int64 CXArchive::ReadStringLength(xStringEncoding& encoding)
{
    encoding = xEncodingAnsi;
    auto length8 = LoadValue<unsigned char>();
    if (length8 < kLongForm)
        return length8;
    auto length16 = LoadValue<unsigned short>();
    if (EncodingOfTag(length16, encoding))
    {
        // A tag is recognised only here; after it the same values are lengths.
        length8 = LoadValue<unsigned char>();
        if (length8 < kLongForm)
            return length8;
        length16 = LoadValue<unsigned short>();
    }
    if (length16 < kEscape16)
        return length16;
    const auto length32 = LoadValue<unsigned int>();
    return length32 < kEscape32 ? length32 : LoadValue<unsigned __int64>();
}

CXArchive& CXArchive::operator<<(const CXTString<char>& text)
{
    const std::size_t length = LengthToNul(text);
    WriteStringLength(length, xEncodingAnsi);
    Write(text.GetConstBuffer(), length);
    return *this;
}

CXArchive& CXArchive::operator<<(const CXTString<wchar_t>& text)
{
    WriteUnits(text.GetConstBuffer(), LengthToNul(text), xEncodingUtf16);
    return *this;
}

void CXArchive::WriteString(const char* text, xStringEncoding encoding)
{
    const tev::ExclusiveUse use(m_use);
    const std::size_t length = tev::TextLength(text);
    WriteStringLength(length, encoding);
    Write(text, length);
}

void CXArchive::WriteString(const wchar_t* text, xStringEncoding encoding)
{
    WriteUnits(text, tev::TextLength(text), encoding);
}

// 16-bit units, little-endian whatever the tag says.
void CXArchive::WriteUnits(const wchar_t* text, std::size_t length, xStringEncoding encoding)
{
    const tev::ExclusiveUse use(m_use);
    const std::size_t size = tev::MeasureWideInUtf16(text, length);
    WriteStringLength(size / 2, encoding);
    if (size <= static_cast<std::size_t>(m_end - m_current))
    {
        tev::WideToUtf16(text, length, size, reinterpret_cast<char*>(m_current));
        m_current += size;
        return;
    }
    std::string units(size, '\0');
    tev::WideToUtf16(text, length, size, units.data());
    Write(units.data(), size);
}

CXArchive& CXArchive::operator>>(CXTString<char>& text)
{
    const tev::ExclusiveUse use(m_use);
    xStringEncoding encoding;
    const std::size_t length = ReadTextLength(encoding);
    if (encoding == xEncodingUtf16)
    {
        CXTString<wchar_t> wide;
        ReadUnits(wide, length);
        text = wide.GetConstBuffer();
        return *this;
    }
    ReadBytes(text, length);
    CutAtNul(text);
    return *this;
}

CXArchive& CXArchive::operator>>(CXTString<wchar_t>& text)
{
    const tev::ExclusiveUse use(m_use);
    xStringEncoding encoding;
    const std::size_t length = ReadTextLength(encoding);
    if (length == 0)
        text.Empty();
    else if (encoding == xEncodingUtf16)
        ReadUnits(text, length);
    else if (encoding != xEncodingUtf16BE) // which stays in the stream, for a caller that knows what to do with it
    {
        CXTString<char> bytes;
        ReadBytes(bytes, length);
        CutAtNul(bytes);
        if (!XDecodeText(bytes.GetConstBuffer(), bytes.GetLength64(), encoding, text))
            text.Empty();
    }
    return *this;
}

// The length of a text's body. The operators see only its low 32 bits, and no more than half of those are lengths.
std::size_t CXArchive::ReadTextLength(xStringEncoding& encoding)
{
    const auto length = static_cast<int>(static_cast<unsigned int>(ReadStringLength(encoding)));
    if (length < 0)
        CXArchiveException::Throw(archiveEndOfFile);
    return static_cast<std::size_t>(length);
}

void CXArchive::ReadUnits(CXTString<wchar_t>& text, std::size_t length)
{
    const std::size_t size = 2 * length;
    bool decoded;
    if (size <= static_cast<std::size_t>(m_end - m_current))
    {
        decoded = XDecodeText(m_current, size, xEncodingUtf16, text);
        m_current += size;
    }
    else
    {
        std::string bytes;
        ReadInSteps(size, [&](std::size_t reached) {
            bytes.resize(reached);
            return bytes.data();
        });
        decoded = XDecodeText(bytes.data(), size, xEncodingUtf16, text);
    }
    if (!decoded)
        text.Empty();
    CutAtNul(text);
}

void CXArchive::ReadBytes(CXTString<char>& bytes, std::size_t count)
{
    bytes.Empty();
    ReadInSteps(count, [&](std::size_t reached) { return bytes.GetBufferSetLength(static_cast<int>(reached)); });
}

// Reads `count` bytes into memory that `resize` makes longer and longer.
template <class Resize>
void CXArchive::ReadInSteps(std::size_t count, Resize resize)
{
    for (std::size_t done = 0; done < count;)
    {
        const std::size_t step = std::min(count - done, std::max(done, kFirstReadStep));
        EnsureRead(resize(done + step) + done, step);
        done += step;
    }
}
