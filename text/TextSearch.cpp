#include "text/TextSearch.h"

#include "base/BitScan.h"
#include "base/LittleEndian.h"
#include "text/InstructionSets.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cwctype>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace
{
using tev::FindCharacter;
using tev::kNotFound;

int Sign(int value) noexcept
{
    return (value > 0) - (value < 0);
}

template <class T>
bool SameRun(const T* left, const T* right, size_t count) noexcept
{
    return std::memcmp(left, right, count * sizeof(T)) == 0;
}

// Compares at each occurrence of the first character.
template <class T>
size_t FindByFirst(const T* text, size_t places, const T* pattern, size_t count) noexcept
{
    for (size_t at = 0; at < places; ++at)
    {
        const size_t step = FindCharacter(text + at, places - at, pattern[0]);
        if (step == kNotFound)
            return kNotFound;
        at += step;
        if (SameRun(text + at, pattern, count))
            return at;
    }
    return kNotFound;
}

#if defined(__x86_64__)
// Two characters of the pattern, its first and its last, are searched in two vectors of text at a time. Where both
// occur at their distance the rest is compared. In ordinary text a single letter occurs everywhere, two at a given
// distance rarely, so this seldom stops, while a search for the first letter alone stops every few characters.

// The match among the candidates that the mask has from `text` on. Each character sets as many bits as it has bytes.
template <class T>
size_t FindCandidate(std::uint64_t mask, const T* text, const T* pattern, size_t count) noexcept
{
    while (mask != 0)
    {
        const size_t place = tev::TrailingZeros(mask) / sizeof(T);
        if (SameRun(text + place, pattern, count))
            return place;
        for (size_t i = 0; i < sizeof(T); ++i)
            mask &= mask - 1;
    }
    return kNotFound;
}

template <class T>
__attribute__((target("avx2"))) inline __m256i Spread(T character) noexcept
{
    if constexpr (sizeof(T) == 1)
        return _mm256_set1_epi8(static_cast<char>(character));
    else if constexpr (sizeof(T) == 2)
        return _mm256_set1_epi16(static_cast<short>(character));
    else
        return _mm256_set1_epi32(static_cast<int>(character));
}

template <class T>
__attribute__((target("avx2"))) inline __m256i SameCharacters(__m256i a, __m256i b) noexcept
{
    if constexpr (sizeof(T) == 1)
        return _mm256_cmpeq_epi8(a, b);
    else if constexpr (sizeof(T) == 2)
        return _mm256_cmpeq_epi16(a, b);
    else
        return _mm256_cmpeq_epi32(a, b);
}

template <class T>
__attribute__((target("avx2"))) inline __m256i LoadCharacters(const T* text) noexcept
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text));
}

template <class T>
__attribute__((target("avx2"))) size_t FindByBothEnds(const T* text, size_t places, const T* pattern,
                                                      size_t count) noexcept
{
    constexpr size_t kStep = 32 / sizeof(T);
    const __m256i first = Spread(pattern[0]);
    const __m256i last = Spread(pattern[count - 1]);
    const T* lasts = text + count - 1;
    const auto candidates = [&](size_t at) __attribute__((target("avx2")))
    {
        return _mm256_and_si256(SameCharacters<T>(first, LoadCharacters(text + at)),
                                SameCharacters<T>(last, LoadCharacters(lasts + at)));
    };
    size_t at = 0;
    for (; at + 2 * kStep <= places; at += 2 * kStep)
    {
        const __m256i low = candidates(at);
        const __m256i high = candidates(at + kStep);
        if (_mm256_testz_si256(_mm256_or_si256(low, high), _mm256_or_si256(low, high)) != 0)
            continue;
        const auto mask = static_cast<unsigned>(_mm256_movemask_epi8(low)) |
                          static_cast<std::uint64_t>(static_cast<unsigned>(_mm256_movemask_epi8(high))) << 32;
        const size_t found = FindCandidate(mask, text + at, pattern, count);
        if (found != kNotFound)
            return at + found;
    }
    const size_t rest = FindByFirst(text + at, places - at, pattern, count);
    return rest == kNotFound ? kNotFound : at + rest;
}

// The same with the vectors that every processor has.
template <class T>
class BothEnds
{
public:
    BothEnds(const T* text, const T* pattern, size_t count) noexcept
        : m_text(text), m_lasts(text + count - 1), m_first(Repeat(pattern[0])), m_last(Repeat(pattern[count - 1]))
    {
    }

    __m128i Candidates(size_t at) const noexcept
    {
        return _mm_and_si128(Same(m_first, m_text + at), Same(m_last, m_lasts + at));
    }

private:
    static __m128i Repeat(T character) noexcept
    {
        if constexpr (sizeof(T) == 1)
            return _mm_set1_epi8(static_cast<char>(character));
        else if constexpr (sizeof(T) == 2)
            return _mm_set1_epi16(static_cast<short>(character));
        else
            return _mm_set1_epi32(static_cast<int>(character));
    }

    static __m128i Same(__m128i repeated, const T* text) noexcept
    {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
        if constexpr (sizeof(T) == 1)
            return _mm_cmpeq_epi8(repeated, block);
        else if constexpr (sizeof(T) == 2)
            return _mm_cmpeq_epi16(repeated, block);
        else
            return _mm_cmpeq_epi32(repeated, block);
    }

    const T* m_text;
    const T* m_lasts;
    __m128i m_first;
    __m128i m_last;
};

template <class T>
size_t FindByBothEndsPlainly(const T* text, size_t places, const T* pattern, size_t count) noexcept
{
    constexpr size_t kStep = 16 / sizeof(T);
    constexpr size_t kVectors = 4;
    const BothEnds<T> ends(text, pattern, count);
    size_t at = 0;
    for (; at + kVectors * kStep <= places; at += kVectors * kStep)
    {
        const __m128i candidates[kVectors] = {ends.Candidates(at), ends.Candidates(at + kStep),
                                              ends.Candidates(at + 2 * kStep), ends.Candidates(at + 3 * kStep)};
        const __m128i any =
            _mm_or_si128(_mm_or_si128(candidates[0], candidates[1]), _mm_or_si128(candidates[2], candidates[3]));
        if (_mm_movemask_epi8(any) == 0)
            continue;
        std::uint64_t mask = 0;
        for (size_t i = 0; i < kVectors; ++i)
            mask |= static_cast<std::uint64_t>(_mm_movemask_epi8(candidates[i])) << 16 * i;
        const size_t found = FindCandidate(mask, text + at, pattern, count);
        if (found != kNotFound)
            return at + found;
    }
    const size_t rest = FindByFirst(text + at, places - at, pattern, count);
    return rest == kNotFound ? kNotFound : at + rest;
}
#endif

template <class T>
size_t FindRun(const T* text, size_t places, const T* pattern, size_t count) noexcept
{
#if defined(__x86_64__)
    return tev::HasAvx2() ? FindByBothEnds(text, places, pattern, count)
                          : FindByBothEndsPlainly(text, places, pattern, count);
#else
    return FindByFirst(text, places, pattern, count);
#endif
}

// Lower-casing by the locale costs a call for each character. ASCII letters map as in the C locale in every locale but
// those that have the dotless i, so one check decides it for a whole search.
template <class T>
class CaseFolder
{
public:
    T operator()(T character) const noexcept
    {
        const unsigned value = static_cast<std::make_unsigned_t<T>>(character);
        if (m_asciiIsPlain && value < 0x80)
            return static_cast<T>(value - 'A' < 26u ? value + ('a' - 'A') : value);
        return tev::LowerCase(character);
    }

private:
    const bool m_asciiIsPlain = tev::LowerCase(T('I')) == T('i');
};

#if defined(__x86_64__)
// One bit for each byte that differs.
unsigned DifferencesOfBlock(const wchar_t* left, const wchar_t* right) noexcept
{
    const __m128i same = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(left)),
                                        _mm_loadu_si128(reinterpret_cast<const __m128i*>(right)));
    return static_cast<unsigned>(_mm_movemask_epi8(same)) ^ 0xFFFF;
}

size_t FirstDifference(unsigned differences) noexcept
{
    return static_cast<size_t>(__builtin_ctz(differences)) / sizeof(wchar_t);
}

// How many leading characters of 8 to 16 are equal: four blocks, which may overlap, and one branch.
size_t CommonLengthOfFew(const wchar_t* left, const wchar_t* right, size_t count) noexcept
{
    constexpr size_t kAtOnce = 16 / sizeof(wchar_t);
    const size_t last = count - 2 * kAtOnce;
    const auto block = [=](size_t at) { return std::uint64_t(DifferencesOfBlock(left + at, right + at)); };
    const std::uint64_t differences = block(0) | block(kAtOnce) << 16 | block(last) << 32 | block(last + kAtOnce) << 48;
    if (differences == 0)
        return count;
    const auto bit = static_cast<size_t>(__builtin_ctzll(differences));
    return bit / sizeof(wchar_t) + (bit < 32 ? 0 : last - 2 * kAtOnce);
}
#endif

// How many leading characters are equal. The last block overlaps the one before it.
size_t CommonLengthPlainly(const wchar_t* left, const wchar_t* right, size_t count) noexcept
{
    size_t at = 0;
#if defined(__x86_64__)
    constexpr size_t kAtOnce = 16 / sizeof(wchar_t);
    for (; count - at >= 8 * kAtOnce; at += 2 * kAtOnce)
    {
        const unsigned differences = DifferencesOfBlock(left + at, right + at) |
                                     DifferencesOfBlock(left + at + kAtOnce, right + at + kAtOnce) << 16;
        if (differences != 0)
            return at + FirstDifference(differences);
    }
    if (count >= kAtOnce)
    {
        for (;; at = std::min(at + kAtOnce, count - kAtOnce))
        {
            if (const unsigned differences = DifferencesOfBlock(left + at, right + at))
                return at + FirstDifference(differences);
            if (at + kAtOnce >= count)
                return count;
        }
    }
#endif
    for (; at < count && left[at] == right[at]; ++at)
        continue;
    return std::min(at, count);
}

#if defined(__x86_64__)
// The same of characters of 32 bits, at least as many as a vector has.
__attribute__((target("avx2"))) size_t CommonLengthAvx2(const wchar_t* left, const wchar_t* right,
                                                        size_t count) noexcept
{
    constexpr size_t kAtOnce = 8;
    constexpr size_t kStretch = 4 * kAtOnce;
    const auto same = [=](size_t at) __attribute__((target("avx2")))
    {
        return SameCharacters<wchar_t>(LoadCharacters(left + at), LoadCharacters(right + at));
    };
    size_t at = 0;
    for (; count - at >= kStretch; at += kStretch)
    {
        const __m256i low = _mm256_and_si256(same(at), same(at + kAtOnce));
        const __m256i high = _mm256_and_si256(same(at + 2 * kAtOnce), same(at + 3 * kAtOnce));
        if (_mm256_movemask_epi8(_mm256_and_si256(low, high)) != -1)
            break;
    }
    for (; at < count; at += kAtOnce)
    {
        at = std::min(at, count - kAtOnce);
        const unsigned differences = ~static_cast<unsigned>(_mm256_movemask_epi8(same(at)));
        if (differences != 0)
            return at + static_cast<size_t>(__builtin_ctz(differences)) / sizeof(wchar_t);
    }
    return count;
}
#endif

size_t CommonLength(const wchar_t* left, const wchar_t* right, size_t count) noexcept
{
#if defined(__x86_64__)
    if (sizeof(wchar_t) == 4 && count - 8 <= 8)
        return CommonLengthOfFew(left, right, count);
    if (sizeof(wchar_t) == 4 && count >= 32 && tev::HasAvx2())
        return CommonLengthAvx2(left, right, count);
#endif
    return CommonLengthPlainly(left, right, count);
}

template <class T>
int Order(T left, T right) noexcept
{
    return (left > right) - (left < right);
}

int CompareRuns(const char* left, const char* right, size_t count) noexcept
{
    return count == 0 ? 0 : Sign(std::memcmp(left, right, count));
}

int CompareRuns(const wchar_t* left, const wchar_t* right, size_t count) noexcept
{
    using Unsigned = std::make_unsigned_t<wchar_t>;
    const size_t common = CommonLength(left, right, count);
    return common == count ? 0 : Order<Unsigned>(left[common], right[common]);
}

#if defined(__GNUC__)
// Eight bytes as a number that is ordered as they are.
std::uint64_t OrderedBytes(const char* bytes) noexcept
{
    std::uint64_t number;
    std::memcpy(&number, bytes, sizeof number);
    return tev::kIsBigEndian ? number : __builtin_bswap64(number);
}

// Of narrow text a call of the C library is the larger part of what a short comparison takes. From 8 to 16 bytes are
// two numbers, which may overlap.
bool IsTwoNumbers(size_t count) noexcept
{
    return count - 8 <= 8;
}

int CompareTwoNumbers(const char* left, const char* right, size_t count) noexcept
{
    const int order = Order(OrderedBytes(left), OrderedBytes(right));
    return order != 0 ? order : Order(OrderedBytes(left + count - 8), OrderedBytes(right + count - 8));
}
#endif

template <class T>
[[gnu::noinline]] int CompareAnyText(const T* left, size_t leftLength, const T* right, size_t rightLength) noexcept
{
    const int order = CompareRuns(left, right, std::min(leftLength, rightLength));
    return order != 0 ? order : Order(leftLength, rightLength);
}
} // namespace

template <class T>
size_t tev::FindText(const T* text, size_t length, size_t start, const T* pattern, size_t count) noexcept
{
    if (count == 0 || start >= length || count > length - start)
        return kNotFound;
    const size_t places = length - start - count + 1;
    const size_t found =
        count == 1 ? FindCharacter(text + start, places, *pattern) : FindRun(text + start, places, pattern, count);
    return found == kNotFound ? kNotFound : start + found;
}

template <class T>
size_t tev::FindTextNoCase(const T* text, size_t length, size_t start, const T* pattern, size_t count)
{
    if (count == 0 || start >= length || count > length - start)
        return kNotFound;
    const CaseFolder<T> fold;
    const auto same = [&](T a, T b) { return a == b || fold(a) == fold(b); };
    const T first = fold(pattern[0]);
    const size_t end = length - count + 1;
    for (size_t at = start; at < end; ++at)
    {
        if (fold(text[at]) == first && std::equal(pattern + 1, pattern + count, text + at + 1, same))
            return at;
    }
    return kNotFound;
}

template <class T>
size_t tev::FindTextBackwards(const T* text, size_t length, size_t start, const T* pattern, size_t count) noexcept
{
    if (count == 0 || count > length)
        return kNotFound;
    for (size_t at = std::min(start, length - count) + 1; at-- > 0;)
    {
        if (text[at] == *pattern && SameRun(text + at, pattern, count))
            return at;
    }
    return kNotFound;
}

template <class T>
int tev::CompareText(const T* left, size_t leftLength, const T* right, size_t rightLength) noexcept
{
#if defined(__GNUC__)
    if constexpr (sizeof(T) == 1)
    {
        if (const size_t shorter = std::min(leftLength, rightLength); IsTwoNumbers(shorter))
        {
            const int order = CompareTwoNumbers(left, right, shorter);
            return order != 0 ? order : Order(leftLength, rightLength);
        }
    }
#endif
    return CompareAnyText(left, leftLength, right, rightLength);
}

template <class T>
int tev::CompareTextNoCase(const T* left, const T* right) noexcept
{
    using Unsigned = std::make_unsigned_t<T>;
    const CaseFolder<T> fold;
    for (;; ++left, ++right)
    {
        if (*left != *right)
        {
            const auto a = static_cast<Unsigned>(fold(*left));
            const auto b = static_cast<Unsigned>(fold(*right));
            if (a != b)
                return a < b ? -1 : 1;
        }
        if (*left == T())
            return 0;
    }
}

int tev::CollateText(const char* left, const char* right) noexcept
{
    return Sign(std::strcoll(left, right));
}

int tev::CollateText(const wchar_t* left, const wchar_t* right) noexcept
{
    return Sign(std::wcscoll(left, right));
}

char tev::LowerCase(char character) noexcept
{
    return static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
}

wchar_t tev::LowerCase(wchar_t character) noexcept
{
    return static_cast<wchar_t>(std::towlower(static_cast<wint_t>(character)));
}

char tev::UpperCase(char character) noexcept
{
    return static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
}

wchar_t tev::UpperCase(wchar_t character) noexcept
{
    return static_cast<wchar_t>(std::towupper(static_cast<wint_t>(character)));
}

bool tev::IsSpace(char character) noexcept
{
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

bool tev::IsSpace(wchar_t character) noexcept
{
    return std::iswspace(static_cast<wint_t>(character)) != 0;
}

#define TEV_INSTANTIATE(T)                                                                                             \
    template size_t tev::FindText(const T*, size_t, size_t, const T*, size_t) noexcept;                                \
    template size_t tev::FindTextNoCase(const T*, size_t, size_t, const T*, size_t);                                   \
    template size_t tev::FindTextBackwards(const T*, size_t, size_t, const T*, size_t) noexcept;                       \
    template int tev::CompareText(const T*, size_t, const T*, size_t) noexcept;                                        \
    template int tev::CompareTextNoCase(const T*, const T*) noexcept;
TEV_INSTANTIATE(char)
TEV_INSTANTIATE(wchar_t)
