#include "core/PaddedText.h"

#include "core/CodePageText.h"
#include "core/LineScan.h"
#include "core/UtfAvx2.h"

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
        CXTCharArray<wchar_t>& array = text;
        array.m_length = result.m_length;
        characters[result.m_length] = 0;
        return {result.m_valid, result.m_hasNul};
    }
#endif
    return {};
}
