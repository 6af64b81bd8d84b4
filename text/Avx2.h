#pragma once

// What the AVX2 kernels of text have in common; for sources that are compiled under TEV_UTF_AVX2.

#include <cstddef>
#include <immintrin.h>

#define TEV_TARGET_AVX2 __attribute__((target("avx2,popcnt")))

namespace tev::avx2
{
constexpr size_t kLanes = 8; // characters of a vector
constexpr size_t kStep = sizeof(__m256i);

TEV_TARGET_AVX2 inline __m256i Load(const void* source)
{
    return _mm256_loadu_si256(static_cast<const __m256i*>(source));
}

TEV_TARGET_AVX2 inline __m128i LoadHalf(const void* source)
{
    return _mm_loadu_si128(static_cast<const __m128i*>(source));
}

TEV_TARGET_AVX2 inline void Store(void* target, __m256i value)
{
    _mm256_storeu_si256(static_cast<__m256i*>(target), value);
}

TEV_TARGET_AVX2 inline __m256i Masked(__m256i lanes, unsigned mask)
{
    return _mm256_and_si256(lanes, _mm256_set1_epi32(static_cast<int>(mask)));
}
} // namespace tev::avx2
