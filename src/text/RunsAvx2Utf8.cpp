#if defined(__x86_64__)

#include <array>

#include "text/RunsAvx2.h"

// The AVX2 run from units to UTF-8.

namespace System::Text {
namespace {

// For four units in 32-bit lanes of lead, middle and last byte: the shuffle that drops the bytes they do not
// have. Bit n of the index: unit n has a middle byte; bit 4 + n: it has a lead as well.
constexpr std::array<Shuffle, 256> MakeBytePicks() {
    std::array<Shuffle, 256> picks{};
    for (unsigned index = 0; index < picks.size(); ++index) {
        picks[index].fill(0x80);
        unsigned to = 0;
        for (unsigned unit = 0; unit < 4; ++unit) {
            if ((index >> (4 + unit) & 1) != 0) {
                picks[index][to++] = static_cast<std::uint8_t>(4 * unit);
            }
            if ((index >> unit & 1) != 0) {
                picks[index][to++] = static_cast<std::uint8_t>(4 * unit + 1);
            }
            picks[index][to++] = static_cast<std::uint8_t>(4 * unit + 2);
        }
    }
    return picks;
}

alignas(64) constexpr std::array<Shuffle, 256> kBytePicks = MakeBytePicks();

template <bool isExact>
CORVALEN_STEP std::uint8_t* StoreBytes(std::uint8_t* out, __m128i bytes, unsigned index) {
    return StorePart<isExact>(out, Pick(bytes, kBytePicks[index]), 4 + CountOf(index));
}

// For eight units of at most two bytes in 16-bit lanes: the shuffle that drops the second byte where the
// unit's bit is not set.
constexpr std::array<Shuffle, 256> MakePairPicks() {
    std::array<Shuffle, 256> picks{};
    for (unsigned index = 0; index < picks.size(); ++index) {
        picks[index].fill(0x80);
        unsigned to = 0;
        for (unsigned unit = 0; unit < 8; ++unit) {
            picks[index][to++] = static_cast<std::uint8_t>(2 * unit);
            if ((index >> unit & 1) != 0) {
                picks[index][to++] = static_cast<std::uint8_t>(2 * unit + 1);
            }
        }
    }
    return picks;
}

alignas(64) constexpr std::array<Shuffle, 256> kPairPicks = MakePairPicks();

template <bool isExact>
CORVALEN_STEP std::uint8_t* StorePairs(std::uint8_t* out, __m128i pairs, unsigned index) {
    return StorePart<isExact>(out, Pick(pairs, kPairPicks[index]), 8 + CountOf(index));
}

constexpr std::size_t kUnits = 16;                  // of a step
constexpr std::size_t kStepRoom = 3 * kUnits + 16;  // what a step may touch
constexpr std::size_t kCover = 12;                  // bytes at most that a step writes and does not count

// One bit for each unit.
CORVALEN_STEP std::uint32_t UnitMask(__m256i units) {
    __m256i const packed = _mm256_packs_epi16(units, _mm256_setzero_si256());
    return Mask(_mm256_permute4x64_epi64(packed, 0b1000)) & 0xFFFF;
}
// Whether each unit has none of the bits.
CORVALEN_STEP __m256i HasNone(__m256i units, int bits) {
    return _mm256_cmpeq_epi16(_mm256_and_si256(units, Splat16(bits)), _mm256_setzero_si256());
}

// The bits of a unit that ASCII does not have, and those that two bytes of UTF-8 do not hold.
constexpr int kLongBits = 0xFF80;
constexpr int kThreeBits = 0xF800;

// Writes sixteen units as UTF-8, and up to kCover bytes more unless `isExact`. Gives the end of what counts.
template <bool isExact>
CORVALEN_STEP std::uint8_t* StoreUtf8(std::uint8_t* out, __m256i units) {
    if (_mm256_testz_si256(units, Splat16(kLongBits))) {
        Store(out, Narrow(units));
        return out + kUnits;
    }
    __m256i const isAscii = HasNone(units, kLongBits);
    __m256i const tail = _mm256_or_si256(_mm256_and_si256(units, Splat16(0x3F)), Splat16(0x80));
    std::uint32_t const middles = ~UnitMask(isAscii);
    if (_mm256_testz_si256(units, Splat16(kThreeBits))) {
        __m256i const lead2 = _mm256_or_si256(_mm256_srli_epi16(units, 6), Splat16(0xC0));
        __m256i const pairs =
            _mm256_or_si256(_mm256_blendv_epi8(lead2, units, isAscii), _mm256_slli_epi16(tail, 8));
        // What the first half writes too much, at most eight bytes, the second one writes over.
        out = StorePairs<false>(out, _mm256_castsi256_si128(pairs), middles & 0xFF);
        return StorePairs<isExact>(out, _mm256_extracti128_si256(pairs, 1), middles >> 8 & 0xFF);
    }
    __m256i const isShort = HasNone(units, kThreeBits);
    __m256i const last = _mm256_blendv_epi8(tail, units, isAscii);
    // The middle byte is 0x80 with six bits, or 0xC0 with five where it leads.
    __m256i const middle = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(units, 6), Splat16(0x3F)),
                                           _mm256_blendv_epi8(Splat16(0x80), Splat16(0xC0), isShort));
    __m256i const lead = _mm256_or_si256(_mm256_srli_epi16(units, 12), Splat16(0xE0));
    __m256i const front = _mm256_or_si256(lead, _mm256_slli_epi16(middle, 8));
    __m256i const evens = _mm256_unpacklo_epi16(front, last);
    __m256i const odds = _mm256_unpackhi_epi16(front, last);
    std::uint32_t const leads = ~UnitMask(isShort);
    // Likewise the first quarter: at most twelve bytes, which the other three have at least.
    out = StoreBytes<false>(out, _mm256_castsi256_si128(evens), (middles & 15) | (leads & 15) << 4);
    out = StoreBytes<isExact>(out, _mm256_castsi256_si128(odds), (middles >> 4 & 15) | (leads & 0xF0));
    out = StoreBytes<isExact>(out, _mm256_extracti128_si256(evens, 1),
                              (middles >> 8 & 15) | (leads >> 4 & 0xF0));
    return StoreBytes<isExact>(out, _mm256_extracti128_si256(odds, 1),
                               (middles >> 12 & 15) | (leads >> 8 & 0xF0));
}

// The bytes of the first `units` of a step.
CORVALEN_STEP std::size_t BytesOf(std::size_t units, std::uint32_t middles, std::uint32_t leads) {
    return units + CountOf(middles & FirstBits(units)) + CountOf(leads & FirstBits(units));
}

// Stores exactly the bytes of the sixteen units at `in`, and moves the cursor, which stands at one of them,
// behind them. Those before the cursor are stored once more. False if there is no room.
CORVALEN_STEP bool StoreLastUtf8(std::uint8_t const* in, Cursor& c) {
    __m256i const units = Load(in);
    std::uint32_t const middles = ~UnitMask(HasNone(units, kLongBits));
    std::uint32_t const leads = ~UnitMask(HasNone(units, kThreeBits));
    std::size_t const before = BytesOf(static_cast<std::size_t>(c.in - in) / 2, middles, leads);
    if (BytesOf(kUnits, middles, leads) - before > c.Room()) {
        return false;
    }
    c.out = StoreUtf8<true>(c.out - before, units);
    c.in = in + 2 * kUnits;
    return true;
}

// A text of fewer units than a step, padded with NULs. False if there is no room.
CORVALEN_STEP bool StoreShortUtf8(Cursor& c) {
    std::size_t const units = c.Left() / 2;
    std::uint8_t padded[2 * kUnits] = {};
    CopyExactly(padded, c.in, 2 * units);
    std::uint8_t bytes[kStepRoom];
    std::uint8_t const* const end = StoreUtf8<false>(bytes, Load(padded)) - (kUnits - units);
    auto const count = static_cast<std::size_t>(end - bytes);
    if (count > c.Room()) {
        return false;
    }
    CopyExactly(c.out, bytes, count);
    c.in = c.inEnd;
    c.out += count;
    return true;
}

// Stores steps but the last. What a step writes and does not count, the units behind it write over: there is
// room for all of them.
CORVALEN_STEP void StoreSteps(Cursor& c) {
    constexpr std::size_t kMinLeft = 2 * (kUnits + kCover);
    constexpr std::size_t kMinRoom = 3 * (kUnits + kCover);
    Cursor at = c;  // stays in registers, while a store of bytes might change `c`
    while (at.Left() >= kMinLeft && at.Room() >= kMinRoom) {
        at.out = StoreUtf8<false>(at.out, Load(at.in));
        at.in += 2 * kUnits;
    }
    c = at;
}

}  // namespace

CORVALEN_RUN_TARGET void Avx2::UnitsToUtf8(Cursor& c) {
    bool const isShort = c.Left() < 2 * kUnits;
    bool fits = true;
    while (fits && c.Left() >= 2 * kUnits) {
        StoreSteps(c);
        fits = c.Left() < 2 * kUnits || StoreLastUtf8(c.in, c);
    }
    if (fits && c.in != c.inEnd) {
        fits = isShort ? StoreShortUtf8(c) : StoreLastUtf8(c.inEnd - 2 * kUnits, c);
    }
    if (!fits) {
        Portable::UnitsToUtf8(c);
    }
}

}  // namespace System::Text

#endif
