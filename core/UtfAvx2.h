#pragma once

#include "core/Utf.h"

// UTF-8 to wide text 32 bytes at a time, for processors that have AVX2. Elsewhere nothing here is available, and the plain
// loops of UtfConversion.cpp do all of the work.

#if defined(__x86_64__) && defined(__GNUC__)
#define TEV_UTF_AVX2 1
#else
#define TEV_UTF_AVX2 0
#endif

#if TEV_UTF_AVX2
namespace tev::avx2
{
inline bool IsAvailable() noexcept
{
    return __builtin_cpu_supports("avx2");
}

/// As MeasureUtf8, but the length means something only when the text is valid.
[[nodiscard]] Utf8Measure MeasureUtf8(const char* text, size_t size) noexcept;

/// Decodes the front of valid UTF-8 into `wide`, which has room for the whole text. Returns the bytes taken, a whole number
/// of characters, and moves `wide` behind what was written.
[[nodiscard]] size_t DecodeFront(const char* text, size_t size, wchar_t*& wide, const wchar_t* wideEnd) noexcept;
} // namespace tev::avx2
#endif
