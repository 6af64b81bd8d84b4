#include "core/UtfAvx2.h"

#if TEV_UTF_AVX2

#include <array>
#include <cstring>
#include <immintrin.h>

#define TEV_TARGET_AVX2 __attribute__((target("avx2,popcnt")))

// Decoding, eight bytes at a time.
//
// A byte starts a character unless it is a continuation byte (10xxxxxx), so a block of text gives a bit mask of starts.
// Eight of its bits say where the (at most eight) characters stand that begin in a run of eight bytes. They choose one of
// 256 shuffles, which brings the four bytes from each start on into a 32-bit lane of its own, the first one on top. What
// follows is the same for characters of every length, so nothing depends on the text but the number of lanes to keep:
//
//   - the four bytes less their two top bits (the first keeps all eight) are joined by two multiply-adds;
//   - the length, looked up by the top four bits of the first byte, gives two shifts: to the left, which drops the length
//     marker of the first byte, and to the right, which drops the bytes that belong to the next character.
//
// All eight lanes are stored and the output moves by the number of starts; the next store overwrites the rest.
//
// Validation works on pairs of neighbouring bytes. Every fault that a pair can show is one bit. Three tables, looked up by
// the two halves of the first byte and by the upper half of the second, hold the faults that the half-byte allows; what all
// three allow is there. The bit for "two continuation bytes" is no fault where the third or fourth byte of a character must
// stand, which is known from the bytes two and three places before: there the bit must be set, elsewhere it must not.

namespace tev::avx2
{
namespace
{
constexpr size_t kBlock = 64;
constexpr size_t kRun = 8;   // bytes whose starts choose one shuffle
constexpr size_t kLanes = 8; // characters stored at a time

struct alignas(32) Shuffle
{
    unsigned char m_source[32];
};

constexpr std::array<Shuffle, 256> MakeShuffles()
{
    std::array<Shuffle, 256> shuffles{};
    for (size_t starts = 0; starts < shuffles.size(); ++starts)
    {
        size_t lane = 0;
        for (size_t start = 0; start < kRun; ++start)
        {
            if ((starts >> start & 1) == 0)
                continue;
            for (size_t i = 0; i < 4; ++i)
                shuffles[starts].m_source[lane * 4 + 3 - i] = static_cast<unsigned char>(start + i);
            ++lane;
        }
    }
    return shuffles;
}

alignas(64) constexpr std::array<Shuffle, 256> kShuffles = MakeShuffles();

/// The same sixteen bytes in both halves, for lookups by a half-byte.
TEV_TARGET_AVX2 inline __m256i Table(char v0, char v1, char v2, char v3, char v4, char v5, char v6, char v7, char v8,
                                     char v9, char vA, char vB, char vC, char vD, char vE, char vF)
{
    return _mm256_setr_epi8(v0, v1, v2, v3, v4, v5, v6, v7, v8, v9, vA, vB, vC, vD, vE, vF, v0, v1, v2, v3, v4, v5, v6,
                            v7, v8, v9, vA, vB, vC, vD, vE, vF);
}

TEV_TARGET_AVX2 inline __m256i Load(const char* bytes)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
}

TEV_TARGET_AVX2 inline bool IsAscii(__m256i bytes)
{
    return _mm256_movemask_epi8(bytes) == 0;
}

/// One bit for each byte that starts a character.
TEV_TARGET_AVX2 inline unsigned Starts(__m256i bytes)
{
    return static_cast<unsigned>(_mm256_movemask_epi8(_mm256_cmpgt_epi8(bytes, _mm256_set1_epi8(-65))));
}

/// The bytes of the block moved up by `distance` places, with the last ones of the block before in front.
template <int distance>
TEV_TARGET_AVX2 inline __m256i Before(__m256i block, __m256i previous)
{
    return _mm256_alignr_epi8(block, _mm256_permute2x128_si256(previous, block, 0x21), 16 - distance);
}

TEV_TARGET_AVX2 inline __m256i UpperHalves(__m256i bytes)
{
    return _mm256_and_si256(_mm256_srli_epi16(bytes, 4), _mm256_set1_epi8(0x0F));
}

/// Not zero where a pair of bytes that ends in the block cannot stand in UTF-8.
TEV_TARGET_AVX2 inline __m256i Faults(__m256i block, __m256i previous)
{
    constexpr char kShort = 0x01;                  // a lead, then no continuation
    constexpr char kLong = 0x02;                   // ASCII, then a continuation
    constexpr char kOverlong3 = 0x04;              // E0, then less than A0
    constexpr char kLarge = 0x08;                  // F4, then 90 or more; F5 and above
    constexpr char kSurrogate = 0x10;              // ED, then A0 or more
    constexpr char kOverlong2 = 0x20;              // C0 or C1
    constexpr char kOverlong4 = 0x40;              // F0, then less than 90; with F5 and above, what kLarge leaves out
    constexpr char kTwo = static_cast<char>(0x80); // two continuations
    constexpr char kAny = kShort | kLong | kTwo;   // those that the lower half of the first byte does not decide

    const __m256i firstUpper =
        Table(kLong, kLong, kLong, kLong, kLong, kLong, kLong, kLong, kTwo, kTwo, kTwo, kTwo, kShort | kOverlong2,
              kShort, kShort | kOverlong3 | kSurrogate, kShort | kLarge | kOverlong4);
    constexpr char kAbove4 = kAny | kLarge | kOverlong4;
    const __m256i firstLower =
        Table(kAny | kOverlong2 | kOverlong3 | kOverlong4, kAny | kOverlong2, kAny, kAny, kAny | kLarge, kAbove4,
              kAbove4, kAbove4, kAbove4, kAbove4, kAbove4, kAbove4, kAbove4, kAbove4 | kSurrogate, kAbove4, kAbove4);
    constexpr char kContinuation = kLong | kTwo | kOverlong2;
    const __m256i secondUpper =
        Table(kShort, kShort, kShort, kShort, kShort, kShort, kShort, kShort, kContinuation | kOverlong3 | kOverlong4,
              kContinuation | kOverlong3 | kLarge, kContinuation | kSurrogate | kLarge,
              kContinuation | kSurrogate | kLarge, kShort, kShort, kShort, kShort);

    const __m256i first = Before<1>(block, previous);
    const __m256i pair = _mm256_and_si256(
        _mm256_and_si256(_mm256_shuffle_epi8(firstUpper, UpperHalves(first)),
                         _mm256_shuffle_epi8(firstLower, _mm256_and_si256(first, _mm256_set1_epi8(0x0F)))),
        _mm256_shuffle_epi8(secondUpper, UpperHalves(block)));
    // The top bit stays where the byte two places before is E0 or above, or the one three places before F0 or above.
    const __m256i third = _mm256_subs_epu8(Before<2>(block, previous), _mm256_set1_epi8(0xE0 - 0x80));
    const __m256i fourth = _mm256_subs_epu8(Before<3>(block, previous), _mm256_set1_epi8(0xF0 - 0x80));
    const __m256i mustBeTwo = _mm256_and_si256(_mm256_or_si256(third, fourth), _mm256_set1_epi8(kTwo));
    return _mm256_xor_si256(mustBeTwo, pair);
}

TEV_TARGET_AVX2 inline void WidenAscii(const char* text, wchar_t* wide)
{
    for (size_t i = 0; i < kBlock; i += kLanes)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(wide + i),
                            _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(text + i))));
}

/// Eight lanes of code points: those that start in the eight bytes at `text`, and then nothing of meaning.
TEV_TARGET_AVX2 inline __m256i DecodeRun(const char* text, unsigned starts)
{
    // With the top bit turned over, the first byte of a character has in its upper half 8 to 15 for ASCII, 4 and 5 for two
    // bytes, 6 for three and 7 for four. Nothing has 0, which the three upper bytes of each lookup below leave at 0.
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
    const __m256i turned =
        _mm256_xor_si256(_mm256_broadcastsi128_si256(bytes), _mm256_set1_epi8(static_cast<char>(0x80)));
    const __m256i shuffle = _mm256_load_si256(reinterpret_cast<const __m256i*>(kShuffles[starts].m_source));
    const __m256i lanes = _mm256_shuffle_epi8(turned, shuffle);

    const __m256i payload = _mm256_and_si256(lanes, _mm256_set1_epi32(static_cast<int>(0xFF3F3F3F)));
    const __m256i halves = _mm256_maddubs_epi16(payload, _mm256_set1_epi16(0x4001));
    const __m256i joined = _mm256_madd_epi16(halves, _mm256_set1_epi32(0x10000001));

    const __m256i kind = _mm256_srli_epi32(lanes, 28);
    const __m256i up = _mm256_shuffle_epi8(Table(0, 0, 0, 0, 9, 9, 10, 11, 7, 7, 7, 7, 7, 7, 7, 7), kind);
    const __m256i down = _mm256_shuffle_epi8(Table(0, 0, 0, 0, 21, 21, 16, 11, 25, 25, 25, 25, 25, 25, 25, 25), kind);
    return _mm256_srlv_epi32(_mm256_sllv_epi32(joined, up), down);
}
} // namespace

TEV_TARGET_AVX2 Utf8Measure MeasureUtf8(const char* text, size_t size) noexcept
{
    constexpr size_t kStep = sizeof(__m256i);
    __m256i previous = _mm256_setzero_si256();
    __m256i faults = _mm256_setzero_si256();
    size_t length = 0;
    size_t i = 0;
    bool ascii = true; // the block before is: a character that begins in it cannot go on in the next one
    for (; size - i >= kStep; i += kStep)
    {
        const __m256i block = Load(text + i);
        if (ascii && IsAscii(block))
        {
            previous = block;
            length += kStep;
            continue;
        }
        ascii = IsAscii(block);
        faults = _mm256_or_si256(faults, Faults(block, previous));
        length += static_cast<size_t>(__builtin_popcount(Starts(block)));
        previous = block;
    }
    // The rest is filled up with NULs, at least one, which also shows a character that was cut off.
    char rest[kStep] = {};
    std::memcpy(rest, text + i, size - i);
    const __m256i block = Load(rest);
    faults = _mm256_or_si256(faults, Faults(block, previous));
    length += static_cast<size_t>(__builtin_popcount(Starts(block))) - (kStep - (size - i));
    return {length, _mm256_testz_si256(faults, faults) != 0};
}

TEV_TARGET_AVX2 size_t DecodeFront(const char* text, size_t size, wchar_t*& wide, const wchar_t* wideEnd) noexcept
{
    wchar_t* out = wide;
    size_t taken = 0;
    // The last run of a block reads eight bytes past the block.
    for (; size - taken >= kBlock + kRun; taken += kBlock)
    {
        const char* block = text + taken;
        const __m256i lower = Load(block);
        const __m256i upper = Load(block + kBlock / 2);
        if (IsAscii(_mm256_or_si256(lower, upper)))
        {
            WidenAscii(block, out);
            out += kBlock;
            continue;
        }
        unsigned long long starts = Starts(lower) | static_cast<unsigned long long>(Starts(upper)) << 32;
        if (static_cast<size_t>(wideEnd - out) < static_cast<size_t>(__builtin_popcountll(starts)) + kLanes)
            break;
        for (size_t run = 0; run < kBlock; run += kRun, starts >>= kRun)
        {
            const unsigned runStarts = starts & 0xFF;
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), DecodeRun(block + run, runStarts));
            out += __builtin_popcount(runStarts);
        }
    }
    // The end of a character that began in the last block is decoded already.
    while (taken < size && (text[taken] & 0xC0) == 0x80)
        ++taken;
    wide = out;
    return taken;
}
} // namespace tev::avx2

#endif
