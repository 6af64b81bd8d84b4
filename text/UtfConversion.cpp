#include "text/Utf.h"

#include "base/LittleEndian.h"
#include "text/UtfAvx2.h"

#include <array>
#include <type_traits>

namespace tev
{
namespace
{
constexpr size_t kStep = 8;

template <class Unit>
bool IsAsciiStep(const Unit* text) noexcept
{
    std::make_unsigned_t<Unit> bits = 0;
    for (size_t i = 0; i < kStep; ++i)
        bits |= static_cast<std::make_unsigned_t<Unit>>(text[i]);
    return bits < 0x80;
}

/// How many characters at the front are ASCII, in whole steps.
template <class Unit>
size_t AsciiFront(const Unit* text, size_t size) noexcept
{
    size_t count = 0;
    while (size - count >= kStep && IsAsciiStep(text + count))
        count += kStep;
    return count;
}

/// Copies as much, and returns how much it was.
template <class From, class To>
size_t CopyAsciiFront(const From* from, size_t size, To* to) noexcept
{
    size_t count = 0;
    for (; size - count >= kStep && IsAsciiStep(from + count); count += kStep)
    {
        for (size_t i = 0; i < kStep; ++i)
            to[count + i] = static_cast<To>(from[count + i]);
    }
    return count;
}

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

// The length of these means something only when the text is valid.

TextMeasure MeasurePlainly(const char* text, size_t size) noexcept
{
    uint64_t state = kWhole;
    for (size_t i = 0; i < size; ++i)
        state = kRows[static_cast<unsigned char>(text[i])] >> (state & 63);
    // A loop of its own, which the compiler does in vectors.
    size_t length = 0;
    for (size_t i = 0; i < size; ++i)
    {
        const auto byte = static_cast<unsigned char>(text[i]);
        length += (byte & 0xC0) != 0x80;
        length += sizeof(wchar_t) == 2 && byte >= 0xF0;
    }
    return {length, (state & 63) == kWhole};
}

TextMeasure MeasurePlainly(const wchar_t* wide, size_t length) noexcept
{
    size_t size = length;
    unsigned faults = 0;
    for (size_t i = 0; i < length; ++i)
    {
        const auto c = static_cast<char32_t>(wide[i]);
        size += unsigned{c >= 0x80} + unsigned{c >= 0x800} + unsigned{c >= 0x10000};
        faults |= unsigned{IsSurrogate(c)} | unsigned{c > kMaxCodePoint};
    }
    return {size, faults == 0};
}

/// Decodes text that is known to be UTF-8.
void DecodeValid(const char* text, size_t size, wchar_t* wide) noexcept
{
    const auto* next = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* const end = next + size;
    const auto following = [&next](int i) { return next[i] & 0x3Fu; };
    while (next != end)
    {
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
        wide = WideForm<>::Write(c, wide);
    }
}

/// Encodes text that is known to be code points.
void EncodeValid(const wchar_t* wide, size_t length, char* text) noexcept
{
    const auto following = [](char32_t c, int shift) { return static_cast<char>(0x80 | (c >> shift & 0x3F)); };
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
            text[1] = following(c, 0);
            text += 2;
        }
        else if (c < 0x10000)
        {
            text[0] = static_cast<char>(0xE0 | c >> 12);
            text[1] = following(c, 6);
            text[2] = following(c, 0);
            text += 3;
        }
        else
        {
            text[0] = static_cast<char>(0xF0 | c >> 18);
            text[1] = following(c, 12);
            text[2] = following(c, 6);
            text[3] = following(c, 0);
            text += 4;
        }
    }
}

uint16_t UnitAt(const char* text, size_t index) noexcept
{
    return LoadLittleEndian<uint16_t>(reinterpret_cast<const unsigned char*>(text) + 2 * index);
}

// Shorter texts are not worth the set-up of the vector kernels.
constexpr size_t kMeasureWorth = 16;
constexpr size_t kConvertWorth = 48;

/// Either of the ways to measure, whichever is faster here; the length means something only when the text is valid.
template <class Unit>
TextMeasure MeasureIfValid(const Unit* text, size_t size) noexcept
{
    if constexpr (avx2::kIsBuilt)
    {
        if (size >= kMeasureWorth && avx2::IsAvailable())
            return avx2::Measure(text, size);
    }
    const size_t ascii = AsciiFront(text, size);
    const TextMeasure rest = MeasurePlainly(text + ascii, size - ascii);
    return {ascii + rest.m_length, rest.m_valid};
}
} // namespace

TextMeasure MeasureUtf8(const char* text, size_t size) noexcept
{
    const size_t ascii = size < kConvertWorth ? AsciiFront(text, size) : 0;
    const TextMeasure rest = MeasureIfValid(text + ascii, size - ascii);
    if (rest.m_valid)
        return {ascii + rest.m_length, true};
    return {ascii + Measure<WideForm<>>(Utf8Reader(text + ascii, size - ascii)), false};
}

void Utf8ToWide(const char* text, size_t size, TextMeasure measure, wchar_t* wide) noexcept
{
    if (!measure.m_valid)
    {
        Write<WideForm<>>(Utf8Reader(text, size), wide);
        return;
    }
    if constexpr (avx2::kIsBuilt)
    {
        if (size >= kConvertWorth && avx2::IsAvailable())
        {
            avx2::DecodeUtf8(text, size, wide, wide + measure.m_length);
            return;
        }
    }
    const size_t ascii = CopyAsciiFront(text, size, wide);
    DecodeValid(text + ascii, size - ascii, wide + ascii);
}

TextMeasure MeasureWide(const wchar_t* wide, size_t length) noexcept
{
    const TextMeasure measure = MeasureIfValid(wide, length);
    return measure.m_valid ? measure : TextMeasure{Measure<Utf8Form>(WideReader<>(wide, length)), false};
}

void WideToUtf8(const wchar_t* wide, size_t length, TextMeasure measure, char* text) noexcept
{
    if constexpr (avx2::kIsBuilt)
    {
        if (measure.m_valid && length >= kMeasureWorth && avx2::IsAvailable())
        {
            avx2::EncodeUtf8(wide, length, text, text + measure.m_length);
            return;
        }
    }
    if (!measure.m_valid)
    {
        Write<Utf8Form>(WideReader<>(wide, length), text);
        return;
    }
    const size_t ascii = CopyAsciiFront(wide, length, text);
    EncodeValid(wide + ascii, length - ascii, text + ascii);
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
