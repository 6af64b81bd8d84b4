#include "text/LineScan.h"

#if defined(__x86_64__)
#include <emmintrin.h>
#endif

namespace
{
#if defined(__x86_64__)
constexpr std::size_t kBlock = 32;

// Repeats the character's unit; what it is compared with below has the same byte order.
template <std::size_t unit>
__m128i Repeat(char character, xStringEncoding encoding) noexcept
{
    if constexpr (unit == 1)
        return _mm_set1_epi8(character);
    else
        return _mm_set1_epi16(static_cast<short>(encoding == xEncodingUtf16 ? character : character << 8));
}

template <std::size_t unit>
__m128i Same(__m128i a, __m128i b) noexcept
{
    return unit == 1 ? _mm_cmpeq_epi8(a, b) : _mm_cmpeq_epi16(a, b);
}

// Searches whole blocks. Returns the offset of what was found, or that of the rest with `found` false.
template <std::size_t unit, bool returnsToo>
std::size_t FindInBlocks(const char* bytes, std::size_t size, xStringEncoding encoding, bool& found) noexcept
{
    const __m128i lineFeeds = Repeat<unit>('\n', encoding);
    const __m128i returns = Repeat<unit>('\r', encoding);
    const auto matches = [=](const char* half) {
        const __m128i text = _mm_loadu_si128(reinterpret_cast<const __m128i*>(half));
        __m128i same = Same<unit>(text, lineFeeds);
        if constexpr (returnsToo)
            same = _mm_or_si128(same, Same<unit>(text, returns));
        return static_cast<unsigned>(_mm_movemask_epi8(same));
    };
    std::size_t at = 0;
    for (; size - at >= kBlock; at += kBlock)
    {
        const unsigned places = matches(bytes + at) | matches(bytes + at + kBlock / 2) << (kBlock / 2);
        found = places != 0;
        if (found)
            return at + static_cast<std::size_t>(__builtin_ctz(places));
    }
    return at;
}
#endif

template <std::size_t unit, bool returnsToo>
std::size_t Find(const char* bytes, std::size_t size, xStringEncoding encoding) noexcept
{
    std::size_t at = 0;
#if defined(__x86_64__)
    if constexpr (unit <= 2)
    {
        bool found = false;
        at = FindInBlocks<unit, returnsToo>(bytes, size, encoding, found);
        if (found)
            return at;
    }
#endif
    for (; at < size; at += unit)
        if (tev::IsUnit(bytes + at, encoding, '\n') || (returnsToo && tev::IsUnit(bytes + at, encoding, '\r')))
            return at;
    return tev::kNotFound;
}
} // namespace

std::size_t tev::FindWideLineFeed(const char* bytes, std::size_t size, xStringEncoding encoding) noexcept
{
    return IsUtf16(encoding) ? Find<2, false>(bytes, size, encoding) : Find<4, false>(bytes, size, encoding);
}

std::size_t tev::FindLineBreak(const char* bytes, std::size_t size, xStringEncoding encoding) noexcept
{
    switch (UnitSize(encoding))
    {
    case 1:
        return Find<1, true>(bytes, size, encoding);
    case 2:
        return Find<2, true>(bytes, size, encoding);
    default:
        return Find<4, true>(bytes, size, encoding);
    }
}

std::size_t tev::FindLastLineBreak(const char* bytes, std::size_t size, xStringEncoding encoding) noexcept
{
    const std::size_t unit = UnitSize(encoding);
    for (std::size_t at = size; at != 0;)
    {
        at -= unit;
        if (IsUnit(bytes + at, encoding, '\n') || IsUnit(bytes + at, encoding, '\r'))
            return at;
    }
    return kNotFound;
}
