#include "text/UtfAvx2.h"

#if TEV_UTF_AVX2

#include "text/Avx2.h"

#include <algorithm>
#include <array>
#include <cstring>

// Encoding, eight characters at a time.
//
// The six-bit groups of each character are spread over the bytes of its lane, the last byte lowest, and the markers
// added that follow from its length. The lengths of four characters, two bits each, choose one of 256 shuffles, which
// turns the bytes of each lane round and closes the gaps.
//
// Where all of sixteen characters are below U+0800, their bytes are made in 16 bits each, eight in a shuffle.

namespace tev::avx2
{
namespace
{
constexpr ptrdiff_t kMostBytes = 4 * kLanes;

/// How the bytes of four characters move together, by their lengths: bit i of the number is the lower bit, bit 4 + i the
/// upper bit of the length of character i less one.
struct alignas(16) Packing
{
    unsigned char m_source[16];
};

struct Packings
{
    std::array<Packing, 256> m_shuffles;
    std::array<unsigned char, 256> m_sizes;
};

constexpr Packings MakePackings()
{
    Packings packings{};
    for (size_t lengths = 0; lengths < packings.m_sizes.size(); ++lengths)
    {
        size_t size = 0;
        for (size_t lane = 0; lane < 4; ++lane)
        {
            const size_t last = (lengths >> lane & 1) + 2 * (lengths >> (4 + lane) & 1);
            for (size_t i = 0; i <= last; ++i)
                packings.m_shuffles[lengths].m_source[size++] = static_cast<unsigned char>(lane * 4 + last - i);
        }
        packings.m_sizes[lengths] = static_cast<unsigned char>(size);
    }
    return packings;
}

alignas(64) constexpr Packings kPackings = MakePackings();

/// How the bytes of eight characters below U+0800 move together, each in 16 bits with its first byte lowest: bit i of
/// the number says that character i is ASCII.
constexpr std::array<Packing, 256> MakePairPackings()
{
    std::array<Packing, 256> packings{};
    for (size_t ascii = 0; ascii < packings.size(); ++ascii)
    {
        size_t size = 0;
        for (size_t lane = 0; lane < 8; ++lane)
        {
            packings[ascii].m_source[size++] = static_cast<unsigned char>(2 * lane);
            if ((ascii >> lane & 1) == 0)
                packings[ascii].m_source[size++] = static_cast<unsigned char>(2 * lane + 1);
        }
    }
    return packings;
}

alignas(64) constexpr std::array<Packing, 256> kPairPackings = MakePairPackings();

/// Which of eight characters take more than one, two and three bytes: all ones in their lanes.
struct Longer
{
    __m256i m_thanOne;
    __m256i m_thanTwo;
    __m256i m_thanThree;
};

TEV_TARGET_AVX2 inline Longer Classify(__m256i characters)
{
    return {_mm256_cmpgt_epi32(characters, _mm256_set1_epi32(0x7F)),
            _mm256_cmpgt_epi32(characters, _mm256_set1_epi32(0x7FF)),
            _mm256_cmpgt_epi32(characters, _mm256_set1_epi32(0xFFFF))};
}

/// One bit for each lane.
TEV_TARGET_AVX2 inline unsigned LaneBits(__m256i lanes)
{
    return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(lanes)));
}

/// Not zero in the lanes of surrogates and of what lies above U+10FFFF.
TEV_TARGET_AVX2 inline __m256i NoCharacters(__m256i characters)
{
    const __m256i surrogates = _mm256_cmpeq_epi32(Masked(characters, 0xFFFFF800), _mm256_set1_epi32(0xD800));
    const __m256i beyond = _mm256_cmpgt_epi32(_mm256_srli_epi32(characters, 16), _mm256_set1_epi32(0x10));
    return _mm256_or_si256(surrogates, beyond);
}

/// The bytes of eight characters, the last byte of each lowest in its lane.
TEV_TARGET_AVX2 inline __m256i SpreadBytes(__m256i characters, const Longer& longer)
{
    const __m256i groups =
        _mm256_or_si256(_mm256_or_si256(Masked(characters, 0x3F), Masked(_mm256_slli_epi32(characters, 2), 0x3F00)),
                        _mm256_or_si256(Masked(_mm256_slli_epi32(characters, 4), 0x3F0000),
                                        Masked(_mm256_slli_epi32(characters, 6), 0x07000000)));
    // Each further byte turns the marker C0 80 into E0 80 80, and that into F0 80 80 80.
    const __m256i markers = _mm256_xor_si256(
        _mm256_xor_si256(Masked(longer.m_thanOne, 0xC080), Masked(longer.m_thanTwo, 0xC080 ^ 0xE08080)),
        Masked(longer.m_thanThree, 0xE08080 ^ 0xF0808080));
    return _mm256_blendv_epi8(characters, _mm256_or_si256(groups, markers), longer.m_thanOne);
}

TEV_TARGET_AVX2 inline char* WritePacked(__m128i bytes, unsigned lengths, char* out)
{
    const __m128i shuffle = _mm_load_si128(reinterpret_cast<const __m128i*>(kPackings.m_shuffles[lengths].m_source));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_shuffle_epi8(bytes, shuffle));
    return out + kPackings.m_sizes[lengths];
}

/// Writes at most 32 bytes, of which the returned end may leave some to be overwritten.
TEV_TARGET_AVX2 inline char* EncodeEight(__m256i characters, const Longer& longer, char* out)
{
    const __m256i bytes = SpreadBytes(characters, longer);
    const unsigned upper = LaneBits(longer.m_thanTwo);
    const unsigned lower = LaneBits(longer.m_thanOne) ^ upper ^ LaneBits(longer.m_thanThree);
    out = WritePacked(_mm256_castsi256_si128(bytes), (lower & 0x0F) | (upper & 0x0F) << 4, out);
    return WritePacked(_mm256_extracti128_si256(bytes, 1), lower >> 4 | (upper & 0xF0), out);
}

/// Sixteen characters that have at most 16 bits each, in order.
TEV_TARGET_AVX2 inline __m256i JoinWords(__m256i first, __m256i second)
{
    return _mm256_permute4x64_epi64(_mm256_packus_epi32(first, second), 0xD8);
}

TEV_TARGET_AVX2 inline void StoreHalf(char* text, __m128i bytes)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(text), bytes);
}

TEV_TARGET_AVX2 inline void NarrowAscii(__m256i words, char* text)
{
    StoreHalf(text, _mm_packus_epi16(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1)));
}

TEV_TARGET_AVX2 inline char* WritePairs(__m128i pairs, unsigned ascii, char* out)
{
    const __m128i shuffle = _mm_load_si128(reinterpret_cast<const __m128i*>(kPairPackings[ascii].m_source));
    StoreHalf(out, _mm_shuffle_epi8(pairs, shuffle));
    return out + 2 * kLanes - __builtin_popcount(ascii);
}

/// Writes sixteen characters below U+0800: at most 32 bytes, of which the returned end may leave some to be
/// overwritten.
TEV_TARGET_AVX2 inline char* EncodePairs(__m256i words, char* out)
{
    const __m256i ascii = _mm256_cmpgt_epi16(_mm256_set1_epi16(0x80), words);
    const __m256i groups = _mm256_or_si256(_mm256_srli_epi16(words, 6),
                                           _mm256_and_si256(_mm256_slli_epi16(words, 8), _mm256_set1_epi16(0x3F00)));
    const __m256i pairs = _mm256_or_si256(groups, _mm256_set1_epi16(static_cast<short>(0x80C0)));
    const __m256i bytes = _mm256_blendv_epi8(pairs, words, ascii);
    const auto bits = static_cast<unsigned>(
        _mm_movemask_epi8(_mm_packs_epi16(_mm256_castsi256_si128(ascii), _mm256_extracti128_si256(ascii, 1))));
    out = WritePairs(_mm256_castsi256_si128(bytes), bits & 0xFF, out);
    return WritePairs(_mm256_extracti128_si256(bytes, 1), bits >> 8, out);
}

TEV_TARGET_AVX2 inline bool IsBelow(__m256i characters, unsigned powerOfTwo)
{
    return _mm256_testz_si256(characters, _mm256_set1_epi32(static_cast<int>(0 - powerOfTwo))) != 0;
}

/// At most eight characters, and NULs in the other lanes.
TEV_TARGET_AVX2 inline __m256i LoadFront(const wchar_t* wide, size_t count)
{
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const auto most = static_cast<int>(count < kLanes ? count : kLanes);
    return _mm256_maskload_epi32(reinterpret_cast<const int*>(wide),
                                 _mm256_cmpgt_epi32(_mm256_set1_epi32(most), lanes));
}

/// What is known of characters so far.
struct EncodingCount
{
    __m256i m_more;   ///< for each lane, the bytes after the first ones
    __m256i m_faults; ///< not zero where something is no character
};

TEV_TARGET_AVX2 inline void CountPairs(__m256i characters, EncodingCount& count)
{
    count.m_more = _mm256_sub_epi32(count.m_more, _mm256_cmpgt_epi32(characters, _mm256_set1_epi32(0x7F)));
}

TEV_TARGET_AVX2 inline void CountAny(__m256i characters, EncodingCount& count)
{
    const Longer longer = Classify(characters);
    const __m256i more = _mm256_add_epi32(_mm256_add_epi32(longer.m_thanOne, longer.m_thanTwo), longer.m_thanThree);
    count.m_more = _mm256_sub_epi32(count.m_more, more);
    count.m_faults = _mm256_or_si256(count.m_faults, NoCharacters(characters));
}

TEV_TARGET_AVX2 inline unsigned SumOfLanes(__m256i lanes)
{
    const __m128i four = _mm_add_epi32(_mm256_castsi256_si128(lanes), _mm256_extracti128_si256(lanes, 1));
    const __m128i two = _mm_add_epi32(four, _mm_shuffle_epi32(four, 0x4E));
    return static_cast<unsigned>(_mm_cvtsi128_si32(_mm_add_epi32(two, _mm_shuffle_epi32(two, 0xB1))));
}

/// Of so few characters that 32 bits hold the numbers.
TEV_TARGET_AVX2 TextMeasure MeasurePiece(const wchar_t* wide, size_t length)
{
    constexpr size_t kStretch = 4 * kLanes;
    EncodingCount count{_mm256_setzero_si256(), _mm256_setzero_si256()};
    size_t i = 0;
    for (; length - i >= kStretch; i += kStretch)
    {
        const __m256i characters[] = {Load(wide + i), Load(wide + i + kLanes), Load(wide + i + 2 * kLanes),
                                      Load(wide + i + 3 * kLanes)};
        const __m256i all = _mm256_or_si256(_mm256_or_si256(characters[0], characters[1]),
                                            _mm256_or_si256(characters[2], characters[3]));
        if (IsBelow(all, 0x80))
            continue;
        if (IsBelow(all, 0x800))
        {
            for (const __m256i& each : characters)
                CountPairs(each, count);
            continue;
        }
        for (const __m256i& each : characters)
            CountAny(each, count);
    }
    for (; i < length; i += kLanes)
        CountAny(LoadFront(wide + i, length - i), count);
    return {length + SumOfLanes(count.m_more), _mm256_testz_si256(count.m_faults, count.m_faults) != 0};
}
} // namespace

TEV_TARGET_AVX2 TextMeasure Measure(const wchar_t* wide, size_t length) noexcept
{
    constexpr size_t kPiece = size_t{1} << 30;
    TextMeasure measure{0, true};
    for (size_t i = 0; i < length; i += kPiece)
    {
        const TextMeasure piece = MeasurePiece(wide + i, std::min(length - i, kPiece));
        measure = {measure.m_length + piece.m_length, measure.m_valid && piece.m_valid};
    }
    return measure;
}

TEV_TARGET_AVX2 void EncodeUtf8(const wchar_t* wide, size_t length, char* text, const char* textEnd) noexcept
{
    constexpr size_t kPair = 2 * kLanes;
    size_t taken = 0;
    for (; length - taken >= kPair; taken += kPair)
    {
        const __m256i first = Load(wide + taken);
        const __m256i second = Load(wide + taken + kLanes);
        const __m256i both = _mm256_or_si256(first, second);
        if (IsBelow(both, 0x80))
        {
            NarrowAscii(JoinWords(first, second), text);
            text += kPair;
            continue;
        }
        if (textEnd - text < 2 * kMostBytes)
            break;
        if (IsBelow(both, 0x800))
            text = EncodePairs(JoinWords(first, second), text);
        else
            text = EncodeEight(second, Classify(second), EncodeEight(first, Classify(first), text));
    }
    for (; taken < length; taken += kLanes)
    {
        const __m256i characters = LoadFront(wide + taken, length - taken);
        char bytes[kMostBytes];
        const bool isRoom = textEnd - text >= kMostBytes;
        char* const out = isRoom ? text : bytes;
        char* end = out + kLanes;
        if (IsBelow(characters, 0x80))
            NarrowAscii(JoinWords(characters, characters), out);
        else
            end = EncodeEight(characters, Classify(characters), out);
        const auto written = static_cast<size_t>(end - out) - (kLanes - std::min(kLanes, length - taken));
        if (!isRoom)
            std::memcpy(text, bytes, written);
        text += written;
    }
}
} // namespace tev::avx2

#endif
