#include "text/Utf.h"

#include "base/BitScan.h"
#include "base/LittleEndian.h"
#include "text/UtfAvx2.h"

#include <algorithm>
#include <array>
#include <type_traits>

#if defined(__x86_64__) && defined(__GNUC__)
#include <emmintrin.h>
#endif

namespace tev
{
namespace
{
constexpr size_t kStep = 8;

/// The bits that any of the characters has.
template <size_t count = kStep, class Unit>
std::make_unsigned_t<Unit> BitsOf(const Unit* text) noexcept
{
    std::make_unsigned_t<Unit> bits = 0;
    for (size_t i = 0; i < count; ++i)
        bits |= static_cast<std::make_unsigned_t<Unit>>(text[i]);
    return bits;
}

// A step of ASCII.

#if defined(__x86_64__) && defined(__GNUC__) && __SIZEOF_WCHAR_T__ == 4
void WidenStep(const unsigned char* bytes, wchar_t* wide) noexcept
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i words = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(bytes)), zero);
    auto* const out = reinterpret_cast<__m128i*>(wide);
    _mm_storeu_si128(out, _mm_unpacklo_epi16(words, zero));
    _mm_storeu_si128(out + 1, _mm_unpackhi_epi16(words, zero));
}

void NarrowStep(const wchar_t* wide, char* text) noexcept
{
    const auto* const in = reinterpret_cast<const __m128i*>(wide);
    const __m128i words = _mm_packs_epi32(_mm_loadu_si128(in), _mm_loadu_si128(in + 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(text), _mm_packus_epi16(words, words));
}
#else
void WidenStep(const unsigned char* bytes, wchar_t* wide) noexcept
{
    for (size_t i = 0; i < kStep; ++i)
        wide[i] = static_cast<wchar_t>(bytes[i]);
}

void NarrowStep(const wchar_t* wide, char* text) noexcept
{
    for (size_t i = 0; i < kStep; ++i)
        text[i] = static_cast<char>(wide[i]);
}
#endif

// UTF-8 is checked by a machine whose states are shifts: the row of a byte holds, for each state, the state that
// follows, in the six bits that the state shifts down. That leaves one shift a byte to wait for, and no branch.
enum State : unsigned char
{
    kWrong = 0, // never left again
    kWhole = 6,
    kOneMore = 12,
    kTwoMore = 18,
    kThreeMore = 24,
    kAfterE0 = 30,
    kAfterED = 36,
    kAfterF0 = 42,
    kAfterF4 = 48
};

struct Transition
{
    State m_from;
    unsigned char m_lowest;
    unsigned char m_highest;
    State m_to;
};

// What is not listed is wrong. After four of the leads there are narrower bounds: no overlong forms, no surrogates, no
// more than U+10FFFF.
constexpr Transition kTransitions[] = {
    {kWhole, 0x00, 0x7F, kWhole},     {kWhole, 0xC2, 0xDF, kOneMore},   {kWhole, 0xE0, 0xE0, kAfterE0},
    {kWhole, 0xE1, 0xEC, kTwoMore},   {kWhole, 0xED, 0xED, kAfterED},   {kWhole, 0xEE, 0xEF, kTwoMore},
    {kWhole, 0xF0, 0xF0, kAfterF0},   {kWhole, 0xF1, 0xF3, kThreeMore}, {kWhole, 0xF4, 0xF4, kAfterF4},
    {kOneMore, 0x80, 0xBF, kWhole},   {kTwoMore, 0x80, 0xBF, kOneMore}, {kThreeMore, 0x80, 0xBF, kTwoMore},
    {kAfterE0, 0xA0, 0xBF, kOneMore}, {kAfterED, 0x80, 0x9F, kOneMore}, {kAfterF0, 0x90, 0xBF, kTwoMore},
    {kAfterF4, 0x80, 0x8F, kTwoMore},
};

constexpr std::array<uint64_t, 256> MakeRows() noexcept
{
    std::array<uint64_t, 256> rows{};
    for (const Transition& each : kTransitions)
    {
        for (unsigned byte = each.m_lowest; byte <= each.m_highest; ++byte)
            rows[byte] |= uint64_t{each.m_to} << each.m_from;
    }
    return rows;
}

constexpr std::array<uint64_t, 256> kRows = MakeRows();

/// Bytes at the front of UTF-8, and the wide characters that they become.
struct FrontMeasure
{
    size_t m_size;
    size_t m_length;
};

#if defined(__x86_64__) && defined(__GNUC__)
// One bit for each of 64 bytes: of what kind they are, each kind found by one comparison of signed numbers.
class ByteKinds
{
public:
    explicit ByteKinds(const char* text) noexcept
    {
        for (size_t i = 0; i < 4; ++i)
            m_bytes[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text) + i);
    }
    uint64_t NotAscii() const noexcept
    {
        return Bits([](__m128i bytes) { return bytes; });
    }
    uint64_t Below(int value) const noexcept
    {
        return Bits(
            [each = _mm_set1_epi8(static_cast<char>(value))](__m128i bytes) { return _mm_cmpgt_epi8(each, bytes); });
    }
    uint64_t AreOne(int value, int mask = 0xFF) const noexcept
    {
        return Bits([each = _mm_set1_epi8(static_cast<char>(value)), bits = _mm_set1_epi8(static_cast<char>(mask))](
                        __m128i bytes) { return _mm_cmpeq_epi8(_mm_and_si128(bytes, bits), each); });
    }

private:
    template <class Compare>
    uint64_t Bits(Compare compare) const noexcept
    {
        uint64_t bits = 0;
        for (size_t i = 0; i < 4; ++i)
            bits |= uint64_t{static_cast<uint32_t>(_mm_movemask_epi8(compare(m_bytes[i])))} << 16 * i;
        return bits;
    }

    __m128i m_bytes[4];
};

// Of the front that is valid for certain and ends with a whole character.
FrontMeasure MeasureFront(const char* text, size_t size) noexcept
{
    constexpr size_t kBlock = 64;
    size_t valid = 0;
    size_t length = 0;
    while (size - valid >= kBlock)
    {
        const ByteKinds kinds(text + valid);
        const uint64_t notAscii = kinds.NotAscii();
        if (notAscii == 0)
        {
            valid += kBlock;
            length += kBlock;
            continue;
        }
        const uint64_t continuations = kinds.Below(0xC0);
        const uint64_t leads = notAscii & ~continuations;
        const uint64_t leads3 = leads & ~kinds.Below(0xE0); // and more
        const uint64_t leads4 = leads & ~kinds.Below(0xF0);
        uint64_t faults = continuations ^ (leads << 1 | leads3 << 2 | leads4 << 3);
        faults |= kinds.AreOne(0xC0, 0xFE); // overlong forms of ASCII
        if (leads3 != 0)
        {
            faults |= kinds.AreOne(0xE0) << 1 & kinds.Below(0xA0);
            faults |= kinds.AreOne(0xED) << 1 & ~kinds.Below(0xA0);
        }
        if (leads4 != 0)
        {
            faults |= kinds.AreOne(0xF0) << 1 & kinds.Below(0x90);
            faults |= kinds.AreOne(0xF4) << 1 & ~kinds.Below(0x90);
            faults |= leads & ~kinds.Below(0xF5);
        }
        if (faults != 0)
            break;
        // A character that goes on behind the block is left for the next one.
        const size_t cut = (leads >> 63) + 2 * (leads3 >> 62 & 1) + 3 * (leads4 >> 61 & 1);
        valid += kBlock - cut;
        length += static_cast<size_t>(__builtin_popcountll(~continuations)) - (cut != 0 ? 1 : 0);
        if constexpr (sizeof(wchar_t) == 2)
            length += static_cast<size_t>(__builtin_popcountll(cut == 3 ? leads4 & ~(uint64_t{1} << 61) : leads4));
    }
    return {valid, length};
}
#else
FrontMeasure MeasureFront(const char* text, size_t size) noexcept
{
    size_t ascii = 0;
    while (size - ascii >= kStep && BitsOf(text + ascii) < 0x80)
        ascii += kStep;
    return {ascii, ascii};
}
#endif

// The length of these means something only when the text is valid.

TextMeasure MeasurePlainly(const char* text, size_t size) noexcept
{
    const FrontMeasure front = MeasureFront(text, size);
    uint64_t state = kWhole;
    for (size_t i = front.m_size; i < size; ++i)
        state = kRows[static_cast<unsigned char>(text[i])] >> (state & 63);
    // A loop of its own, which the compiler does in vectors.
    size_t length = front.m_length;
    for (size_t i = front.m_size; i < size; ++i)
    {
        const auto byte = static_cast<unsigned char>(text[i]);
        length += (byte & 0xC0) != 0x80;
        length += sizeof(wchar_t) == 2 && byte >= 0xF0;
    }
    return {length, (state & 63) == kWhole};
}

/// What characters take beyond one unit each, and whether one is none. With a fixed count it is done in vectors.
struct WideCounts
{
    unsigned m_more = 0;
    unsigned m_faults = 0;

    void Take(const wchar_t* wide, size_t count) noexcept
    {
        unsigned more = 0;
        unsigned faults = 0;
        for (size_t i = 0; i < count; ++i)
        {
            const auto c = static_cast<char32_t>(wide[i]);
            more += unsigned{c >= 0x80} + unsigned{c >= 0x800} + unsigned{c >= 0x10000};
            faults |= unsigned{c - 0xD800u < 0x800u} | unsigned{c > kMaxCodePoint};
        }
        m_more += more;
        m_faults |= faults;
    }
};

TextMeasure MeasurePlainly(const wchar_t* wide, size_t length) noexcept
{
    constexpr size_t kStretch = 32;
    size_t size = length;
    unsigned faults = 0;
    size_t i = 0;
    for (; length - i >= kStretch; i += kStretch)
    {
        const auto bits = BitsOf<kStretch>(wide + i);
        if (bits < 0x80)
            continue;
        WideCounts counts;
        if (bits < 0x800)
        {
            for (size_t j = 0; j < kStretch; ++j)
                counts.m_more += unsigned{wide[i + j] >= 0x80};
        }
        else
        {
            counts.Take(wide + i, kStretch);
        }
        size += counts.m_more;
        faults |= counts.m_faults;
    }
    WideCounts rest;
    rest.Take(wide + i, length - i);
    return {size + rest.m_more, (faults | rest.m_faults) == 0};
}

/// Decodes one character of text that is known to be UTF-8, and moves past it.
wchar_t* DecodeOne(const unsigned char*& next, wchar_t* wide) noexcept
{
    const auto following = [next](int i) { return next[i] & 0x3Fu; };
    char32_t c = *next;
    if (c < 0x80)
    {
        next += 1;
    }
    else if (c < 0xE0)
    {
        c = (c & 0x1F) << 6 | following(1);
        next += 2;
    }
    else if (c < 0xF0)
    {
        c = (c & 0x0F) << 12 | following(1) << 6 | following(2);
        next += 3;
    }
    else
    {
        c = (c & 0x07) << 18 | following(1) << 12 | following(2) << 6 | following(3);
        next += 4;
    }
    return WideForm<>::Write(c, wide);
}

/// Decodes text that is known to be UTF-8.
void DecodeValid(const char* text, size_t size, wchar_t* wide) noexcept
{
    const auto* next = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* const end = next + size;
    // As if eight bytes were ASCII, and from the first that is not, one by one. So many bytes are at least eight
    // characters, so that eight may be written.
    while (end - next >= 32)
    {
        WidenStep(next, wide);
        const uint64_t others = LoadLittleEndian<uint64_t>(next) & 0x8080808080808080u;
        if (others == 0)
        {
            next += kStep;
            wide += kStep;
            continue;
        }
        const size_t ascii = TrailingZeros(others) / 8;
        next += ascii;
        wide += ascii;
        do
            wide = DecodeOne(next, wide);
        while (next != end && *next >= 0x80);
    }
    while (next != end)
        wide = DecodeOne(next, wide);
}

char Following(char32_t c, int shift) noexcept
{
    return static_cast<char>(0x80 | (c >> shift & 0x3F));
}

/// Encodes text that is known to be code points, one at a time.
char* EncodeEach(const wchar_t* wide, size_t length, char* text) noexcept
{
    for (const wchar_t* const end = wide + length; wide != end; ++wide)
    {
        const auto c = static_cast<char32_t>(*wide);
        if (c < 0x80)
        {
            *text++ = static_cast<char>(c);
        }
        else if (c < 0x800)
        {
            text[0] = static_cast<char>(0xC0 | c >> 6);
            text[1] = Following(c, 0);
            text += 2;
        }
        else if (c < 0x10000)
        {
            text[0] = static_cast<char>(0xE0 | c >> 12);
            text[1] = Following(c, 6);
            text[2] = Following(c, 0);
            text += 3;
        }
        else
        {
            text[0] = static_cast<char>(0xF0 | c >> 18);
            text[1] = Following(c, 12);
            text[2] = Following(c, 6);
            text[3] = Following(c, 0);
            text += 4;
        }
    }
    return text;
}

/// The same of characters below U+0800 without a branch: two bytes are written for each, and the second byte of an
/// ASCII character is overwritten by what follows.
char* EncodePairsOfStep(const wchar_t* wide, char* text) noexcept
{
    for (size_t i = 0; i < kStep; ++i)
    {
        const auto c = static_cast<char32_t>(wide[i]);
        const bool isAscii = c < 0x80;
        text[0] = static_cast<char>(isAscii ? c : 0xC0 | c >> 6);
        text[1] = Following(c, 0);
        text += isAscii ? 1 : 2;
    }
    return text;
}

bool AreTriples(const wchar_t* wide) noexcept
{
    unsigned others = 0;
    for (size_t i = 0; i < kStep; ++i)
        others |= unsigned{static_cast<char32_t>(wide[i]) - 0x800u >= 0xF800u};
    return others == 0;
}

/// The same of characters that take three bytes: a fourth one is written, too.
char* EncodeTriplesOfStep(const wchar_t* wide, char* text) noexcept
{
    for (size_t i = 0; i < kStep; ++i, text += 3)
    {
        const auto c = static_cast<char32_t>(wide[i]);
        const uint32_t bytes = 0x8080E0u | c >> 12 | (c & 0xFC0) << 2 | (c & 0x3F) << 16;
        StoreLittleEndian(reinterpret_cast<unsigned char*>(text), bytes);
    }
    return text;
}

/// Encodes text that is known to be code points.
void EncodeValid(const wchar_t* wide, size_t length, char* text) noexcept
{
    // More than a step is left, so that there is room for what is overwritten.
    for (; length > kStep; wide += kStep, length -= kStep)
    {
        const auto bits = BitsOf(wide);
        if (bits < 0x80)
        {
            NarrowStep(wide, text);
            text += kStep;
            continue;
        }
        text = bits < 0x800       ? EncodePairsOfStep(wide, text)
               : AreTriples(wide) ? EncodeTriplesOfStep(wide, text)
                                  : EncodeEach(wide, kStep, text);
    }
    EncodeEach(wide, length, text);
}

uint16_t UnitAt(const char* text, size_t index) noexcept
{
    return LoadLittleEndian<uint16_t>(reinterpret_cast<const unsigned char*>(text) + 2 * index);
}

// Fewer characters than a vector has are not worth its set-up.
constexpr size_t kEncodingWorth = 8;

/// Either of the ways to measure, whichever is faster here; the length means something only when the text is valid.
template <class Unit>
TextMeasure MeasureIfValid(const Unit* text, size_t size) noexcept
{
    if constexpr (avx2::kIsBuilt)
    {
        if ((sizeof(Unit) == 1 || size >= kEncodingWorth) && avx2::IsAvailable())
            return avx2::Measure(text, size);
    }
    return MeasurePlainly(text, size);
}
} // namespace

TextMeasure MeasureUtf8(const char* text, size_t size) noexcept
{
    const TextMeasure measure = MeasureIfValid(text, size);
    return measure.m_valid ? measure : TextMeasure{Measure<WideForm<>>(Utf8Reader(text, size)), false};
}

void Utf8ToWide(const char* text, size_t size, TextMeasure measure, wchar_t* wide, size_t room) noexcept
{
    if (!measure.m_valid)
    {
        Write<WideForm<>>(Utf8Reader(text, size), wide);
        return;
    }
    if constexpr (avx2::kIsBuilt)
    {
        if (avx2::IsAvailable())
        {
            if (size < avx2::kShort)
                avx2::DecodeShortUtf8(text, size, wide, measure.m_length, room);
            else
                avx2::DecodeUtf8(text, size, wide, wide + measure.m_length);
            return;
        }
    }
    DecodeValid(text, size, wide);
}

TextMeasure MeasureWide(const wchar_t* wide, size_t length) noexcept
{
    const TextMeasure measure = MeasureIfValid(wide, length);
    return measure.m_valid ? measure : TextMeasure{Measure<Utf8Form>(WideReader<>(wide, length)), false};
}

void WideToUtf8(const wchar_t* wide, size_t length, TextMeasure measure, char* text, size_t room) noexcept
{
    if (!measure.m_valid)
    {
        Write<Utf8Form>(WideReader<>(wide, length), text);
        return;
    }
    if constexpr (avx2::kIsBuilt)
    {
        if (length >= kEncodingWorth && avx2::IsAvailable())
        {
            avx2::EncodeUtf8(wide, length, text, text + std::max(measure.m_length, room));
            return;
        }
    }
    EncodeValid(wide, length, text);
}

// Most UTF-16 has neither pairs nor what must be replaced, and its units are the characters. The loops for it go
// without branches, so that the compiler does them in vectors.

size_t MeasureUtf16(const char* text, size_t size) noexcept
{
    uint16_t surrogates = 0;
    for (size_t i = 0; i < size / 2; ++i)
        surrogates |= static_cast<uint16_t>((UnitAt(text, i) & 0xF800) == 0xD800);
    return surrogates == 0 ? size / 2 + size % 2 : Measure<WideForm<>>(Utf16Reader<ByteOrder::little>(text, size));
}

void Utf16ToWide(const char* text, size_t size, size_t length, wchar_t* wide) noexcept
{
    if (2 * length != size)
    {
        Write<WideForm<>>(Utf16Reader<ByteOrder::little>(text, size), wide);
        return;
    }
    for (size_t i = 0; i < length; ++i)
        wide[i] = static_cast<wchar_t>(UnitAt(text, i));
}

size_t MeasureWideInUtf16(const wchar_t* wide, size_t length) noexcept
{
    char32_t bits = 0;
    for (size_t i = 0; i < length; ++i)
        bits |= static_cast<char32_t>(wide[i]);
    return bits <= 0xFFFF ? 2 * length : Measure<Utf16Form<ByteOrder::little>>(WideReader<>(wide, length));
}

void WideToUtf16(const wchar_t* wide, size_t length, size_t size, char* text) noexcept
{
    if (2 * length != size)
    {
        Write<Utf16Form<ByteOrder::little>>(WideReader<>(wide, length), text);
        return;
    }
    for (size_t i = 0; i < length; ++i)
    {
        const auto c = static_cast<char32_t>(wide[i]);
        StoreLittleEndian(reinterpret_cast<unsigned char*>(text) + 2 * i,
                          static_cast<uint16_t>(c <= 0xFFFF ? c : kSubstitute));
    }
}
} // namespace tev
