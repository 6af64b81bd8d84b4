#include "core/Utf.h"

#include "core/UtfAvx2.h"

#include <cstring>

namespace tev
{
namespace
{
#if TEV_UTF_AVX2
/// Shorter texts are not worth the set-up of the vector kernels.
constexpr size_t kVectorWorth = 32;

bool UseVectors(size_t size) noexcept
{
    return sizeof(wchar_t) == sizeof(char32_t) && size >= kVectorWorth && avx2::IsAvailable();
}
#endif

/// Copies the ASCII at the front of one text to the other, eight characters at a time, and returns how much there was.
template <class From, class To>
size_t CopyAsciiFront(const From* from, size_t size, To* to) noexcept
{
    constexpr size_t kStep = 8;
    size_t done = 0;
    for (; size - done >= kStep; done += kStep)
    {
        std::make_unsigned_t<From> bits = 0;
        for (size_t i = 0; i < kStep; ++i)
            bits |= static_cast<std::make_unsigned_t<From>>(from[done + i]);
        if (bits >= 0x80)
            break;
        for (size_t i = 0; i < kStep; ++i)
            to[done + i] = static_cast<To>(from[done + i]);
    }
    return done;
}
} // namespace

Utf8Measure MeasureUtf8(const char* text, size_t size) noexcept
{
#if TEV_UTF_AVX2
    if (UseVectors(size))
    {
        const Utf8Measure measure = avx2::MeasureUtf8(text, size);
        if (measure.m_valid)
            return measure;
    }
#endif
    Utf8Reader reader(text, size);
    size_t length = 0;
    while (!reader.AtEnd())
        length += WideForm<>::Size(reader.Next());
    return {length, !reader.HasFault()};
}

void Utf8ToWide(const char* text, size_t size, Utf8Measure measure, wchar_t* wide) noexcept
{
#if TEV_UTF_AVX2
    if (measure.m_valid && UseVectors(size))
    {
        const wchar_t* wideEnd = wide + measure.m_length;
        const size_t taken = avx2::DecodeFront(text, size, wide, wideEnd);
        text += taken;
        size -= taken;
    }
#endif
    const size_t ascii = CopyAsciiFront(text, size, wide);
    Write<WideForm<>>(Utf8Reader(text + ascii, size - ascii), wide + ascii);
}

size_t MeasureWideAsUtf8(const wchar_t* wide, size_t length) noexcept
{
    return Measure<Utf8Form>(WideReader<>(wide, length));
}

void WideToUtf8(const wchar_t* wide, size_t length, char* text, size_t) noexcept
{
    const size_t ascii = CopyAsciiFront(wide, length, text);
    Write<Utf8Form>(WideReader<>(wide + ascii, length - ascii), text + ascii);
}
} // namespace tev
