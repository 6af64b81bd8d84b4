#include "text/PaddedText.h"

#include "text/CodePageText.h"
#include "text/LineScan.h"
#include "text/TextSearch.h"
#include "text/UtfAvx2.h"

#include <cstring>

namespace
{
#if TEV_UTF_AVX2
static_assert(tev::avx2::kPadding <= tev::kTextPadding);

bool IsUtf8(xStringEncoding encoding)
{
    const unsigned codePage = tev::NarrowCodePage(encoding);
    return codePage == tev::kCodePageUtf8 ||
           (codePage == tev::kCodePageAnsi && XGetAnsiCodePage() == tev::kCodePageUtf8);
}

void SetLength(CXTCharArray<wchar_t>& text, std::size_t length)
{
    text.m_length = length;
    text.m_data[length] = 0;
}

// Decoding writes more than the line, but a text grows only to the line with its end, as it does where that is measured
// first. What does not fit is decoded aside.
constexpr std::size_t kMostAside = 1024;
constexpr std::size_t kLeastRoom = 32; ///< in a text, where it is worth a try

void TakeOver(const wchar_t* line, std::size_t length, std::size_t withEnd, CXTString<wchar_t>& text)
{
    constexpr std::size_t kFew = 16; // any text has room for them, and a copy of a fixed size takes no call
    wchar_t* own = text.GetBufferSetLength64(withEnd);
    if (length <= kFew)
        std::memcpy(own, line, kFew * sizeof(wchar_t));
    else
        tev::CopyCharacters(own, line, length);
}
#endif
} // namespace

tev::PaddedText tev::DecodePaddedLine(const char* bytes, std::size_t size, xStringEncoding encoding,
                                      CXTString<wchar_t>& text)
{
#if TEV_UTF_AVX2
    if constexpr (sizeof(wchar_t) == sizeof(char32_t))
    {
        const bool utf16 = IsUtf16(encoding);
        if (!avx2::IsAvailable() || !(utf16 || IsUtf8(encoding)))
            return {};
        const std::size_t unit = UnitSize(encoding);
        std::size_t lineEnd = 1;
        size -= unit;
        if (size >= unit && IsUnit(bytes + size - unit, encoding, '\r'))
        {
            size -= unit;
            ++lineEnd;
        }
        const std::size_t room = size / unit + avx2::kPadding;
        CXTCharArray<wchar_t>& own = text;
        const bool aside = room >= own.m_capacity;
        if (aside && room > kMostAside)
            return {};
        wchar_t buffer[kMostAside];
        wchar_t* characters = aside ? buffer : own.m_data;
        const ByteOrder order = encoding == xEncodingUtf16BE ? ByteOrder::big : ByteOrder::little;
        const avx2::PaddedDecoding result = utf16 ? avx2::DecodePaddedUtf16(bytes, size, order, characters)
                                                  : avx2::DecodePaddedUtf8(bytes, size, characters);
        if (aside && result.m_valid)
            TakeOver(buffer, result.m_length, result.m_length + lineEnd, text);
        if (!aside || result.m_valid)
            SetLength(text, result.m_length);
        return {result.m_valid, result.m_hasNul};
    }
#endif
    return {};
}

std::size_t tev::DecodeShortLine(const char* bytes, std::size_t available, xStringEncoding encoding,
                                 CXTString<wchar_t>& text, bool& hasNul, bool& ascii)
{
#if TEV_UTF_AVX2
    if constexpr (sizeof(wchar_t) == sizeof(char32_t))
    {
        if (!avx2::IsAvailable() || !IsUtf8(encoding))
            return 0;
        CXTCharArray<wchar_t>& own = text;
        const std::size_t room = own.m_capacity == 0 ? 0 : own.m_capacity - 1;
        constexpr std::size_t kEnough = avx2::kShortLine + avx2::kPadding;
        avx2::PaddedDecoding result;
        std::size_t size = 0;
        if (room >= (ascii ? kLeastRoom : kLeastRoom + avx2::kPadding))
            size = avx2::DecodeShortLineUtf8(bytes, available, ascii, own.m_data, room, result);
        if (size == 0 && room < kEnough)
        {
            wchar_t buffer[kEnough];
            size = avx2::DecodeShortLineUtf8(bytes, available, ascii, buffer, kEnough, result);
            if (size != 0 && result.m_valid)
                TakeOver(buffer, result.m_length, result.m_length + 1, text);
        }
        if (size == 0 || !result.m_valid)
        {
            text.Empty();
            return 0;
        }
        hasNul = result.m_hasNul;
        ascii = result.m_length + 1 == size;
        SetLength(text, result.m_length - (size >= 2 && bytes[size - 2] == '\r' ? 1 : 0));
        return size;
    }
#endif
    return 0;
}
