// What the two sources of the AVX2 level share, and what they give to the levels above it.
#pragma once

#define CORVALEN_RUN_TARGET [[gnu::target("avx2,popcnt")]]
#include "text/RunsVector.h"

namespace System::Text {
namespace {

#define CORVALEN_STEP [[gnu::target("avx2,popcnt"), gnu::always_inline]] static inline

CORVALEN_STEP __m256i Load(void const* in) {
    return _mm256_loadu_si256(static_cast<__m256i const*>(in));
}
CORVALEN_STEP void Store(void* out, __m256i bytes) {
    _mm256_storeu_si256(static_cast<__m256i*>(out), bytes);
}
CORVALEN_STEP void Store(void* out, __m128i bytes) {
    _mm_storeu_si128(static_cast<__m128i*>(out), bytes);
}
CORVALEN_STEP __m256i Splat8(int value) {
    return _mm256_set1_epi8(static_cast<char>(value));
}
CORVALEN_STEP __m256i Splat16(int value) {
    return _mm256_set1_epi16(static_cast<short>(value));
}
CORVALEN_STEP std::uint32_t Mask(__m256i bytes) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(bytes));
}
// Whether each unsigned byte lies in [first, last].
CORVALEN_STEP __m256i InRange(__m256i bytes, int first, int last) {
    __m256i const offset = _mm256_sub_epi8(bytes, Splat8(first));
    return _mm256_cmpeq_epi8(_mm256_min_epu8(offset, Splat8(last - first)), offset);
}

CORVALEN_STEP __m256i Widen(__m128i bytes) {
    return _mm256_cvtepu8_epi16(bytes);
}
// The low bytes of sixteen units that have no high byte.
CORVALEN_STEP __m128i Narrow(__m256i units) {
    __m256i const packed = _mm256_packus_epi16(units, units);
    return _mm256_castsi256_si128(_mm256_permute4x64_epi64(packed, 0b1000));
}

}  // namespace
}  // namespace System::Text
