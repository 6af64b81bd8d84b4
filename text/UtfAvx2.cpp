#include "text/UtfAvx2.h"

#if TEV_UTF_AVX2

#include "text/Avx2.h"

#include <array>
#include <cstdint>
#include <cstring>

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
constexpr size_t kRun = 8; // bytes whose starts choose one shuffle

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

/// All ones, then zeros: read from the middle backwards, a mask of the first bytes.
constexpr std::array<unsigned char, 2 * kStep> kFront = [] {
    std::array<unsigned char, 2 * kStep> front{};
    for (size_t i = 0; i < kStep; ++i)
        front[i] = 0xFF;
    return front;
}();

/// The same sixteen bytes in both halves, for lookups by a half-byte.
TEV_TARGET_AVX2 inline __m256i Table(char v0, char v1, char v2, char v3, char v4, char v5, char v6, char v7, char v8,
                                     char v9, char vA, char vB, char vC, char vD, char vE, char vF)
{
    return _mm256_setr_epi8(v0, v1, v2, v3, v4, v5, v6, v7, v8, v9, vA, vB, vC, vD, vE, vF, v0, v1, v2, v3, v4, v5, v6,
                            v7, v8, v9, vA, vB, vC, vD, vE, vF);
}

/// Sixteen places, and then places that stay empty: from the middle minus n on, a shuffle that moves bytes up by n.
constexpr std::array<unsigned char, 32> kMoves = [] {
    std::array<unsigned char, 32> moves{};
    for (size_t i = 0; i < moves.size(); ++i)
        moves[i] = static_cast<unsigned char>(i < 16 ? i : 0x80);
    return moves;
}();

template <class Number>
inline uint64_t LoadNumber(const char* text)
{
    Number number;
    std::memcpy(&number, text, sizeof number);
    return number;
}

/// At most 15 bytes and NULs behind them. Nothing past the text is read: two parts of it overlap.
TEV_TARGET_AVX2 inline __m128i LoadFewBytes(const char* text, size_t size)
{
    if (size >= 8)
    {
        const uint64_t upper = LoadNumber<uint64_t>(text + size - 8) >> 8 * (15 - size) >> 8;
        return _mm_set_epi64x(static_cast<long long>(upper), static_cast<long long>(LoadNumber<uint64_t>(text)));
    }
    uint64_t bytes = 0;
    if (size >= 4)
        bytes = LoadNumber<uint32_t>(text) | LoadNumber<uint32_t>(text + size - 4) << 8 * (size - 4);
    else if (size != 0)
        bytes = LoadNumber<unsigned char>(text) | LoadNumber<unsigned char>(text + size / 2) << 8 * (size / 2) |
                LoadNumber<unsigned char>(text + size - 1) << 8 * (size - 1);
    return _mm_cvtsi64_si128(static_cast<long long>(bytes));
}

/// The same for at most 31 bytes.
TEV_TARGET_AVX2 inline __m256i LoadShort(const char* text, size_t size)
{
    if (size < 16)
        return _mm256_zextsi128_si256(LoadFewBytes(text, size));
    const __m128i upper = _mm_shuffle_epi8(LoadHalf(text + size - 16), LoadHalf(kMoves.data() + (kStep - size)));
    return _mm256_inserti128_si256(_mm256_castsi128_si256(LoadHalf(text)), upper, 1);
}

/// The first bytes, at most 32, of those that can be read; `rest` in place of the others.
TEV_TARGET_AVX2 inline __m256i LoadFront(const char* bytes, size_t count, __m256i rest)
{
    const __m256i block = Load(bytes);
    return count >= kStep ? block : _mm256_blendv_epi8(rest, block, Load(kFront.data() + kStep - count));
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

/// The same for a block of twice that size.
TEV_TARGET_AVX2 inline unsigned long long BlockStarts(__m256i lower, __m256i upper)
{
    return Starts(lower) | static_cast<unsigned long long>(Starts(upper)) << 32;
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

template <size_t count>
TEV_TARGET_AVX2 inline void WidenAscii(const char* text, wchar_t* wide)
{
    for (size_t i = 0; i < count; i += kLanes)
        Store(wide + i, _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(text + i))));
}

/// Eight lanes of code points: those that start in the first eight bytes, and then nothing of meaning.
TEV_TARGET_AVX2 inline __m256i DecodeRun(__m128i bytes, unsigned starts)
{
    // With the top bit turned over, the first byte of a character has in its upper half 8 to 15 for ASCII, 4 and 5 for two
    // bytes, 6 for three and 7 for four. Nothing has 0, which the three upper bytes of each lookup below leave at 0.
    const __m256i turned =
        _mm256_xor_si256(_mm256_broadcastsi128_si256(bytes), _mm256_set1_epi8(static_cast<char>(0x80)));
    const __m256i shuffle = _mm256_load_si256(reinterpret_cast<const __m256i*>(kShuffles[starts].m_source));
    const __m256i lanes = _mm256_shuffle_epi8(turned, shuffle);

    const __m256i payload = Masked(lanes, 0xFF3F3F3F);
    const __m256i halves = _mm256_maddubs_epi16(payload, _mm256_set1_epi16(0x4001));
    const __m256i joined = _mm256_madd_epi16(halves, _mm256_set1_epi32(0x10000001));

    const __m256i kind = _mm256_srli_epi32(lanes, 28);
    const __m256i up = _mm256_shuffle_epi8(Table(0, 0, 0, 0, 9, 9, 10, 11, 7, 7, 7, 7, 7, 7, 7, 7), kind);
    const __m256i down = _mm256_shuffle_epi8(Table(0, 0, 0, 0, 21, 21, 16, 11, 25, 25, 25, 25, 25, 25, 25, 25), kind);
    return _mm256_srlv_epi32(_mm256_sllv_epi32(joined, up), down);
}

/// Decodes the characters that start in the block at the given bits. Reads eight bytes past the block. The returned end
/// leaves up to eight characters to be overwritten.
TEV_TARGET_AVX2 inline wchar_t* DecodeBlock(const char* block, unsigned long long starts, wchar_t* out)
{
    for (; starts != 0; starts >>= kRun, block += kRun)
    {
        const unsigned runStarts = starts & 0xFF;
        Store(out, DecodeRun(LoadHalf(block), runStarts));
        out += __builtin_popcount(runStarts);
    }
    return out;
}

} // namespace

TEV_TARGET_AVX2 TextMeasure Measure(const char* text, size_t size) noexcept
{
    __m256i previous = _mm256_setzero_si256();
    __m256i faults = _mm256_setzero_si256();
    size_t length = 0;
    size_t i = 0;
    bool ascii = true; // the block before is: a character that begins in it
                       // cannot go on in the next one
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
    const __m256i block = LoadShort(text + i, size - i);
    faults = _mm256_or_si256(faults, Faults(block, previous));
    length += static_cast<size_t>(__builtin_popcount(Starts(block))) - (kStep - (size - i));
    return {length, _mm256_testz_si256(faults, faults) != 0};
}

TEV_TARGET_AVX2 void DecodeUtf8(const char* text, size_t size, wchar_t* wide, const wchar_t* wideEnd) noexcept
{
    constexpr size_t kReach = kBlock + kRun;
    size_t taken = 0;
    for (; size - taken >= kReach; taken += kBlock)
    {
        const char* block = text + taken;
        const __m256i lower = Load(block);
        const __m256i upper = Load(block + kBlock / 2);
        if (IsAscii(_mm256_or_si256(lower, upper)))
        {
            WidenAscii<kBlock>(block, wide);
            wide += kBlock;
            continue;
        }
        const unsigned long long starts = BlockStarts(lower, upper);
        if (static_cast<size_t>(wideEnd - wide) < static_cast<size_t>(__builtin_popcountll(starts)) + kLanes)
            break;
        wide = DecodeBlock(block, starts, wide);
    }
    // The end goes through buffers that may be read and written past it.
    for (; taken < size; taken += kBlock)
    {
        char bytes[kReach] = {};
        wchar_t characters[kBlock + kLanes];
        const size_t left = size - taken;
        std::memcpy(bytes, text + taken, left < kReach ? left : kReach);
        unsigned long long starts = BlockStarts(Load(bytes), Load(bytes + kBlock / 2));
        if (left < kBlock)
            starts &= (1ull << left) - 1;
        const wchar_t* const end = DecodeBlock(bytes, starts, characters);
        const size_t count = static_cast<size_t>(end - characters);
        std::memcpy(wide, characters, count * sizeof(wchar_t));
        wide += count;
    }
}

TEV_TARGET_AVX2 void DecodeShortUtf8(const char* text, size_t size, wchar_t* wide, size_t length, size_t room) noexcept
{
    wchar_t characters[kStep + kLanes];
    const bool isRoom = room >= length + kLanes;
    wchar_t* out = isRoom ? wide : characters;
    const __m256i block = LoadShort(text, size);
    __m128i lower = _mm256_castsi256_si128(block);
    __m128i upper = _mm256_extracti128_si256(block, 1);
    unsigned starts = Starts(block) & ((1u << size) - 1);
    if (IsAscii(block))
    {
        for (; starts != 0; starts >>= kRun, out += kLanes)
        {
            Store(out, _mm256_cvtepu8_epi32(lower));
            lower = _mm_alignr_epi8(upper, lower, kRun);
            upper = _mm_srli_si128(upper, kRun);
        }
    }
    for (; starts != 0; starts >>= kRun)
    {
        Store(out, DecodeRun(lower, starts & 0xFF));
        out += __builtin_popcount(starts & 0xFF);
        lower = _mm_alignr_epi8(upper, lower, kRun);
        upper = _mm_srli_si128(upper, kRun);
    }
    if (!isRoom)
        std::memcpy(wide, characters, length * sizeof(wchar_t));
}

TEV_TARGET_AVX2 PaddedDecoding DecodePaddedUtf8(const char* text, size_t size, wchar_t* wide) noexcept
{
    // Whether text is ASCII is checked for this much of it at once: mostly all of a line. Checked for each block, the result
    // would change within lines, which costs more than processing some ASCII like the rest.
    constexpr size_t kStretch = 4 * kStep;
    const wchar_t* const front = wide;
    const __m256i spaces = _mm256_set1_epi8(' ');
    __m256i previous = spaces;
    __m256i faults = _mm256_setzero_si256();
    __m256i least = spaces;
    size_t i = 0;
    while (i < size)
    {
        const size_t stretchEnd = size - i > kStretch ? i + kStretch : size;
        __m256i all = previous;
        for (size_t j = i; j < stretchEnd; j += kStep)
        {
            const __m256i block = LoadFront(text + j, size - j, spaces);
            all = _mm256_or_si256(all, block);
            least = _mm256_min_epu8(least, block);
        }
        if (IsAscii(all))
        {
            for (; i < stretchEnd; i += kStep, wide += kStep)
                WidenAscii<kStep>(text + i, wide);
            continue;
        }
        for (; i < stretchEnd; i += kStep)
        {
            const __m256i block = LoadFront(text + i, size - i, spaces);
            faults = _mm256_or_si256(faults, Faults(block, previous));
            wide = DecodeBlock(text + i, Starts(block), wide);
            previous = block;
        }
    }
    faults = _mm256_or_si256(faults, Faults(spaces, previous));
    return {static_cast<size_t>(wide - front) - (i - size), _mm256_testz_si256(faults, faults) != 0,
            _mm256_movemask_epi8(_mm256_cmpeq_epi8(least, _mm256_setzero_si256())) != 0};
}

TEV_TARGET_AVX2 size_t DecodeShortLineUtf8(const char* text, size_t available, bool ascii, wchar_t* wide, size_t room,
                                           PaddedDecoding& result) noexcept
{
    const __m256i lineFeeds = _mm256_set1_epi8('\n');
    const __m256i zero = _mm256_setzero_si256();
    for (size_t i = 0; i < kShortLine && available - i >= kStep; i += kStep)
    {
        const __m256i block = Load(text + i);
        const __m256i lines = _mm256_cmpeq_epi8(block, lineFeeds);
        if (ascii)
        {
            if (room - i < kStep)
                return 0;
            WidenAscii<kStep>(text + i, wide + i);
            const __m256i ends = _mm256_or_si256(lines, _mm256_cmpeq_epi8(block, zero));
            const auto special = static_cast<unsigned>(_mm256_movemask_epi8(_mm256_or_si256(block, ends)));
            if (special == 0)
                continue;
            const size_t at = i + static_cast<size_t>(__builtin_ctz(special));
            if (text[at] == '\n')
            {
                result = {at, true, false};
                return at + 1;
            }
            ascii = false;
        }
        if (const auto places = static_cast<unsigned>(_mm256_movemask_epi8(lines)))
        {
            const size_t at = i + static_cast<size_t>(__builtin_ctz(places));
            if (room < at + kPadding)
                return 0;
            result = DecodePaddedUtf8(text, at, wide);
            return at + 1;
        }
    }
    return 0;
}

TEV_TARGET_AVX2 PaddedDecoding DecodePaddedUtf16(const char* text, size_t size, ByteOrder order, wchar_t* wide) noexcept
{
    const __m256i spaces = _mm256_set1_epi16(order == ByteOrder::little ? 0x0020 : 0x2000);
    __m256i surrogates = _mm256_setzero_si256();
    __m256i least = spaces;
    for (size_t i = 0; i < size; i += kStep)
    {
        __m256i block = LoadFront(text + i, size - i, spaces);
        if (order == ByteOrder::big)
            block = _mm256_or_si256(_mm256_slli_epi16(block, 8), _mm256_srli_epi16(block, 8));
        const __m256i planes = _mm256_and_si256(block, _mm256_set1_epi16(static_cast<short>(0xF800)));
        surrogates =
            _mm256_or_si256(surrogates, _mm256_cmpeq_epi16(planes, _mm256_set1_epi16(static_cast<short>(0xD800))));
        least = _mm256_min_epu16(least, block);
        Store(wide, _mm256_cvtepu16_epi32(_mm256_castsi256_si128(block)));
        Store(wide + kLanes, _mm256_cvtepu16_epi32(_mm256_extracti128_si256(block, 1)));
        wide += 2 * kLanes;
    }
    return {size / 2, _mm256_testz_si256(surrogates, surrogates) != 0,
            _mm256_movemask_epi8(_mm256_cmpeq_epi16(least, _mm256_setzero_si256())) != 0};
}

} // namespace tev::avx2

#endif
