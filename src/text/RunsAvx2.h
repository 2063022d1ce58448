// What the sources of the AVX2 level share, and what they give to the levels above it.
#pragma once

#include <array>

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

using Shuffle = std::array<std::uint8_t, 16>;

CORVALEN_STEP __m128i Pick(__m128i bytes, Shuffle const& shuffle) {
    return _mm_shuffle_epi8(bytes, _mm_load_si128(reinterpret_cast<__m128i const*>(shuffle.data())));
}

// Sixteen bytes from the n-th on are the shuffle that moves bytes by n to the front.
constexpr std::array<std::uint8_t, 32> MakeSlides() {
    std::array<std::uint8_t, 32> slides{};
    for (unsigned byte = 0; byte < slides.size(); ++byte) {
        slides[byte] = static_cast<std::uint8_t>(byte < 16 ? byte : 0x80);
    }
    return slides;
}

alignas(32) constexpr std::array<std::uint8_t, 32> kSlides = MakeSlides();

CORVALEN_STEP __m128i Slide(__m128i bytes, std::size_t count) {
    auto const* const shuffle = reinterpret_cast<__m128i const*>(kSlides.data() + count);
    return _mm_shuffle_epi8(bytes, _mm_loadu_si128(shuffle));
}

// As many of the first bytes as Number has.
template <typename Number>
CORVALEN_STEP void StoreFirst(std::uint8_t* out, __m128i bytes) {
    auto const first = static_cast<Number>(_mm_cvtsi128_si64(bytes));
    std::memcpy(out, &first, sizeof first);
}

// Writes the first `count` bytes, none, two or at least four, and no other: two moves that overlap. From the
// register, since a copy of what several stores have just left in memory would have to wait for all of them.
CORVALEN_STEP void StoreExactly(std::uint8_t* out, __m128i bytes, std::size_t count) {
    if (count >= 8) {
        StoreFirst<std::uint64_t>(out, bytes);
        StoreFirst<std::uint64_t>(out + count - 8, Slide(bytes, count - 8));
    } else if (count >= 4) {
        StoreFirst<std::uint32_t>(out, bytes);
        StoreFirst<std::uint32_t>(out + count - 4, Slide(bytes, count - 4));
    } else if (count == 2) {
        StoreFirst<std::uint16_t>(out, bytes);
    }
}

// Writes the first `count` bytes, and more of the sixteen unless `isExact`. Gives where the next ones go.
template <bool isExact>
CORVALEN_STEP std::uint8_t* StorePart(std::uint8_t* out, __m128i bytes, std::size_t count) {
    if constexpr (isExact) {
        StoreExactly(out, bytes, count);
    } else {
        Store(out, bytes);
    }
    return out + count;
}

CORVALEN_STEP std::size_t CountOf(std::uint32_t bits) {
    return static_cast<std::size_t>(__builtin_popcount(bits));
}
// The lowest `count` bits, fewer than all.
CORVALEN_STEP std::uint32_t FirstBits(std::size_t count) {
    return (std::uint32_t{1} << count) - 1;
}

}  // namespace

namespace Avx2 {
void UnitsToUtf8(Cursor& c);  // see Runs
}
}  // namespace System::Text
