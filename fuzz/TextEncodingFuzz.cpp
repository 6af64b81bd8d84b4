// Conversions in all encodings against plain decoders and encoders written anew here. The first byte chooses the
// encoding, the second one how far into a block of memory the text begins.

#include "text/CXTString.h"
#include "text/InstructionSets.h"
#include "text/Utf.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>

namespace
{
constexpr wchar_t kReplaced = 0xFFFD;

void Check(bool condition)
{
    if (!condition)
        std::abort();
}

bool IsSurrogate(uint32_t c)
{
    return c >= 0xD800 && c <= 0xDFFF;
}

/// Takes as many bytes as some character begins with: the whole character, or a maximal subpart.
std::wstring DecodeUtf8Plainly(const std::string& bytes)
{
    const auto isStart = [&bytes](size_t at, size_t count) {
        // Whether the bytes begin a character, by what their bits say: all characters that begin so lie in one range.
        if (at + count > bytes.size())
            return false;
        const unsigned lead = static_cast<unsigned char>(bytes[at]);
        const size_t whole = lead < 0x80   ? 1
                             : lead < 0xC0 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF8 ? 4
                                           : 0;
        if (count > whole)
            return false;
        uint32_t lowest = whole == 1 ? lead : lead & (0x7Fu >> whole);
        for (size_t i = 1; i < count; ++i)
        {
            const unsigned byte = static_cast<unsigned char>(bytes[at + i]);
            if (byte >> 6 != 2)
                return false;
            lowest = lowest << 6 | (byte & 0x3F);
        }
        uint32_t highest = lowest;
        for (size_t i = count; i < whole; ++i)
        {
            lowest <<= 6;
            highest = highest << 6 | 0x3F;
        }
        static const uint32_t shortest[] = {0, 0, 0x80, 0x800, 0x10000};
        lowest = std::max(lowest, shortest[whole]);
        highest = std::min<uint32_t>(highest, 0x10FFFF);
        return lowest <= highest && !(IsSurrogate(lowest) && IsSurrogate(highest));
    };
    std::wstring text;
    for (size_t at = 0; at < bytes.size();)
    {
        size_t count = 4;
        while (count > 1 && !isStart(at, count))
            --count;
        const unsigned lead = static_cast<unsigned char>(bytes[at]);
        const size_t whole = lead < 0x80 ? 1 : lead < 0xC0 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        if (!isStart(at, count) || count != whole)
            text += kReplaced;
        else
        {
            uint32_t c = whole == 1 ? lead : lead & (0x7Fu >> whole);
            for (size_t i = 1; i < count; ++i)
                c = c << 6 | (static_cast<unsigned char>(bytes[at + i]) & 0x3Fu);
            text += static_cast<wchar_t>(c);
        }
        at += count;
    }
    return text;
}

std::wstring DecodeUnitsPlainly(const std::string& bytes, size_t unitSize, bool bigEndian)
{
    std::wstring text;
    for (size_t at = 0; at < bytes.size(); at += unitSize)
    {
        if (bytes.size() - at < unitSize)
        {
            text += kReplaced;
            break;
        }
        uint32_t unit = 0;
        for (size_t i = 0; i < unitSize; ++i)
            unit |= uint32_t{static_cast<unsigned char>(bytes[at + i])} << 8 * (bigEndian ? unitSize - 1 - i : i);
        if (unitSize == 4)
            text += unit > 0x10FFFF || IsSurrogate(unit) ? kReplaced : static_cast<wchar_t>(unit);
        else if (unit >> 10 == 0x37 && !text.empty() && static_cast<uint32_t>(text.back()) >> 10 == 0x36)
            text.back() = static_cast<wchar_t>((static_cast<uint32_t>(text.back()) - 0xD7C0) * 0x400 + (unit & 0x3FF));
        else
            text += static_cast<wchar_t>(unit);
    }
    return text;
}

std::string EncodeUtf8Plainly(const std::wstring& text)
{
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i)
    {
        auto c = static_cast<uint32_t>(text[i]);
        if (c >> 10 == 0x36 && i + 1 < text.size() && static_cast<uint32_t>(text[i + 1]) >> 10 == 0x37)
            c = (c - 0xD7C0) * 0x400 + (static_cast<uint32_t>(text[++i]) & 0x3FF);
        if (c > 0x10FFFF || IsSurrogate(c))
            c = '?';
        const int following = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
        static const uint32_t leads[] = {0, 0xC0, 0xE0, 0xF0};
        bytes += static_cast<char>(leads[following] | c >> 6 * following);
        for (int rest = following - 1; rest >= 0; --rest)
            bytes += static_cast<char>(0x80 | (c >> 6 * rest & 0x3F));
    }
    return bytes;
}

/// The text in a block of its own, at an odd offset, with nothing after it.
template <class T>
struct Placed
{
    Placed(const T* text, size_t size, size_t offset) : m_block(new T[offset + size]), m_text(m_block.get() + offset)
    {
        std::copy(text, text + size, m_text);
    }
    std::unique_ptr<T[]> m_block;
    T* m_text;
};

bool Decode(const std::string& bytes, unsigned encoding, size_t offset, std::wstring& text)
{
    const Placed<char> placed(bytes.data(), bytes.size(), offset);
    CXTString<wchar_t> result;
    const bool done = XDecodeText(placed.m_text, bytes.size(), static_cast<xStringEncoding>(encoding), result);
    text.assign(result.GetConstBuffer(), result.GetLength64());
    return done;
}

bool Encode(const std::wstring& text, unsigned encoding, size_t offset, std::string& bytes)
{
    const Placed<wchar_t> placed(text.data(), text.size(), offset);
    CXTString<char> result;
    const bool done = XEncodeText(placed.m_text, text.size(), static_cast<xStringEncoding>(encoding), result);
    bytes.assign(result.GetConstBuffer(), result.GetLength64());
    return done;
}

/// The kernels write into blocks of just the measured size.
void CheckKernels(const std::string& bytes, const std::wstring& text, size_t offset)
{
    const Placed<char> source(bytes.data(), bytes.size(), offset);
    const tev::TextMeasure measure = tev::MeasureUtf8(source.m_text, bytes.size());
    Check(measure.m_length == text.size());
    const Placed<wchar_t> wide(text.data(), text.size(), offset % 3);
    std::fill_n(wide.m_text, text.size(), L'\0');
    tev::Utf8ToWide(source.m_text, bytes.size(), measure, wide.m_text);
    Check(std::equal(text.begin(), text.end(), wide.m_text));

    const std::string expected = EncodeUtf8Plainly(text);
    const tev::TextMeasure back = tev::MeasureWide(wide.m_text, text.size());
    Check(back.m_length == expected.size());
    const Placed<char> narrow(expected.data(), expected.size(), offset);
    std::fill_n(narrow.m_text, expected.size(), '\0');
    tev::WideToUtf8(wide.m_text, text.size(), back, narrow.m_text);
    Check(std::equal(expected.begin(), expected.end(), narrow.m_text));
}

/// Wide text of arbitrary values, where the bytes give a value each 32 bits.
void CheckEncoders(const std::string& bytes, size_t offset)
{
    std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));
    std::string utf8;
    Check(Encode(text, xEncodingUtf8, offset, utf8));
    Check(utf8 == EncodeUtf8Plainly(text));
    std::string utf16;
    Check(Encode(text, xEncodingUtf16, offset, utf16));
    std::wstring back;
    Check(Decode(utf16, xEncodingUtf16, offset, back));
    std::string utf8Again;
    Check(Encode(back, xEncodingUtf8, offset, utf8Again));
    Check(utf8Again == utf8);
}

void CheckCodePage(const std::string& bytes, unsigned codePage, size_t offset)
{
    std::wstring text;
    if (!Decode(bytes, codePage, offset, text))
    {
        Check(text.empty());
        return;
    }
    Check(text.size() <= bytes.size() * 2 + 1);
    std::string again;
    Check(Encode(text, codePage, offset, again));
    std::wstring twice;
    Check(Decode(again, codePage, offset, twice));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const unsigned codePages[] = {37,   437,   874,   932,   936,   949,   950,   1252,  1255,  1258,
                                         1361, 20127, 50220, 50225, 51932, 51950, 54936, 65000, 99999, 28600};
    if (size < 2)
        return 0;
    const unsigned choice = data[0];
    const size_t offset = data[1] % 64;
    const std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
    std::wstring text;
    switch (choice % 8)
    {
    case 0:
    case 1:
        Check(Decode(bytes, xEncodingUtf8, offset, text));
        Check(text == DecodeUtf8Plainly(bytes));
        for (const bool without : {true, false})
        {
            tev::g_withoutAvx2 = without;
            CheckKernels(bytes, text, offset);
        }
        break;
    case 2:
    case 3: {
        const bool bigEndian = choice % 8 == 3;
        const unsigned encoding = bigEndian ? xEncodingUtf16BE : xEncodingUtf16;
        Check(Decode(bytes, encoding, offset, text));
        Check(text == DecodeUnitsPlainly(bytes, 2, bigEndian));
        std::string again;
        Check(Encode(text, encoding, offset, again));
        if (bytes.size() % 2 == 0)
            Check(again == bytes);
        break;
    }
    case 4:
    case 5:
        Check(Decode(bytes, choice % 8 == 4 ? 12000 : 12001, offset, text));
        Check(text == DecodeUnitsPlainly(bytes, 4, choice % 8 == 5));
        break;
    case 6:
        CheckEncoders(bytes, offset);
        break;
    default:
        CheckCodePage(bytes, codePages[choice / 8 % std::size(codePages)], offset);
    }
    return 0;
}
