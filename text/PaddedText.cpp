#include "text/PaddedText.h"

#include "text/CodePageText.h"
#include "text/LineScan.h"
#include "text/UtfAvx2.h"

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

void SetLength(CXTString<wchar_t>& text, std::size_t length)
{
    CXTCharArray<wchar_t>& array = text;
    array.m_length = length;
    array.m_data[length] = 0;
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
        size -= unit;
        if (size >= unit && IsUnit(bytes + size - unit, encoding, '\r'))
            size -= unit;
        wchar_t* characters = text.GetBufferSetLength64(size + avx2::kPadding);
        const ByteOrder order = encoding == xEncodingUtf16BE ? ByteOrder::big : ByteOrder::little;
        const avx2::PaddedDecoding result = utf16 ? avx2::DecodePaddedUtf16(bytes, size, order, characters)
                                                  : avx2::DecodePaddedUtf8(bytes, size, characters);
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
        wchar_t* characters = text.GetBufferSetLength64(avx2::kShortLine + avx2::kPadding);
        avx2::PaddedDecoding result;
        const std::size_t size = avx2::DecodeShortLineUtf8(bytes, available, ascii, characters, result);
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
