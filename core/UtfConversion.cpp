#include "core/Utf.h"

#include "core/UtfAvx2.h"

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

// Shorter texts are not worth the set-up of the vector kernels.
constexpr size_t kMeasureWorth = 16;
constexpr size_t kConvertWorth = 48;
} // namespace

TextMeasure MeasureUtf8(const char* text, size_t size) noexcept
{
    size_t length = 0;
    if constexpr (avx2::kIsBuilt)
    {
        if (size < kConvertWorth)
            length = AsciiFront(text, size);
        if (size - length >= kMeasureWorth && avx2::IsAvailable())
        {
            const TextMeasure rest = avx2::MeasureUtf8(text + length, size - length);
            if (rest.m_valid)
                return {length + rest.m_length, true};
        }
    }
    length += AsciiFront(text + length, size - length);
    Utf8Reader reader(text + length, size - length);
    while (!reader.AtEnd())
        length += WideForm<>::Size(reader.Next());
    return {length, !reader.HasFault()};
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
    if constexpr (avx2::kIsBuilt)
    {
        if (length >= kMeasureWorth && avx2::IsAvailable())
        {
            const TextMeasure measure = avx2::MeasureWide(wide, length);
            if (measure.m_valid)
                return measure;
        }
    }
    const size_t ascii = AsciiFront(wide, length);
    return {ascii + Measure<Utf8Form>(WideReader<>(wide + ascii, length - ascii)), false};
}

void WideToUtf8(const wchar_t* wide, size_t length, TextMeasure measure, char* text) noexcept
{
    if constexpr (avx2::kIsBuilt)
    {
        if (measure.m_valid && avx2::IsAvailable())
        {
            avx2::EncodeUtf8(wide, length, text, text + measure.m_length);
            return;
        }
    }
    const size_t ascii = CopyAsciiFront(wide, length, text);
    Write<Utf8Form>(WideReader<>(wide + ascii, length - ascii), text + ascii);
}
} // namespace tev
