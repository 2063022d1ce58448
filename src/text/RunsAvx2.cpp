#if defined(__x86_64__)

#include "text/RunsAvx2.h"

#include <array>

#include "text/RunsAvx2Maps.h"

// The AVX2 run from UTF-8 to units, and the table of them all.

namespace System::Text {
namespace {

// For each set of eight 16-bit lanes the shuffle that moves them to the front.
constexpr std::array<Shuffle, 256> MakeLanePicks() {
    std::array<Shuffle, 256> picks{};
    for (unsigned lanes = 0; lanes < picks.size(); ++lanes) {
        picks[lanes].fill(0x80);
        unsigned to = 0;
        for (unsigned lane = 0; lane < 8; ++lane) {
            if ((lanes >> lane & 1) != 0) {
                picks[lanes][to++] = static_cast<std::uint8_t>(2 * lane);
                picks[lanes][to++] = static_cast<std::uint8_t>(2 * lane + 1);
            }
        }
    }
    return picks;
}

alignas(64) constexpr std::array<Shuffle, 256> kLanePicks = MakeLanePicks();

// 32 bytes of UTF-8, seen as characters that begin there. `starts` has a bit for each byte that begins one;
// `carry` has the first bits of the next block set where the last characters go on.
struct Utf8Block {
    std::uint32_t starts;
    std::uint32_t carry;
    bool isAscii;
};

constexpr std::size_t kBlock = 32;
constexpr std::size_t kLookahead = 2;  // bytes behind a block that its last characters can reach

// As signed numbers, 0x80 to 0xBF lie below -64, leads of two bytes below -32, of three below -16.
CORVALEN_STEP std::uint32_t Continuations(__m256i bytes) {
    return Mask(_mm256_cmpgt_epi8(Splat8(-64), bytes));
}

// False if the block holds a byte that is not in its place.
CORVALEN_STEP bool Classify(__m256i bytes, std::uint32_t carry, Utf8Block& block) {
    std::uint32_t const high = Mask(bytes);
    std::uint32_t const next = Continuations(bytes);
    std::uint32_t const notThree = Mask(_mm256_cmpgt_epi8(Splat8(-32), bytes));
    std::uint32_t const notFour = Mask(_mm256_cmpgt_epi8(Splat8(-16), bytes));
    std::uint64_t const leads = high & ~next;
    std::uint64_t const threes = high & ~notThree;
    std::uint64_t const expected = carry | leads << 1 | threes << 2;
    block = {~next, static_cast<std::uint32_t>(expected >> 32), high == 0};
    return static_cast<std::uint32_t>(expected) == next && (high & ~notFour) == 0;
}

// The units of characters whose first, second and third bytes are given: eight of the even and of the odd
// quarter in each half.
struct UnitLanes {
    __m256i evens;
    __m256i odds;
};

CORVALEN_STEP UnitLanes UnitsOf(__m256i b0, __m256i b1, __m256i b2) {
    __m256i const isThree = _mm256_cmpeq_epi8(_mm256_max_epu8(b0, Splat8(0xE0)), b0);
    // Of a character of two bytes the last two are b0 b1, of three b1 b2.
    __m256i const last = _mm256_blendv_epi8(b1, b2, isThree);
    __m256i const middle = _mm256_blendv_epi8(b0, b1, isThree);
    __m256i const lowBits = _mm256_or_si256(_mm256_and_si256(_mm256_slli_epi16(middle, 6), Splat8(0xC0)),
                                            _mm256_and_si256(last, Splat8(0x3F)));
    __m256i const highBits =
        _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(middle, 2), Splat8(0x0F)),
                        _mm256_and_si256(_mm256_and_si256(_mm256_slli_epi16(b0, 4), Splat8(0xF0)), isThree));
    // blendv looks at the top bit only, and that of b0 is set in all but ASCII.
    __m256i const low = _mm256_blendv_epi8(b0, lowBits, b0);
    __m256i const high = _mm256_blendv_epi8(_mm256_setzero_si256(), highBits, b0);
    return {_mm256_unpacklo_epi8(low, high), _mm256_unpackhi_epi8(low, high)};
}

template <bool isExact>
CORVALEN_STEP std::uint8_t* StoreQuarter(std::uint8_t* out, __m128i units, std::uint32_t starts) {
    std::uint32_t const lanes = starts & 0xFF;
    return StorePart<isExact>(out, Pick(units, kLanePicks[lanes]), 2 * CountOf(lanes));
}

template <bool isExact>
CORVALEN_STEP std::uint8_t* StoreUnits(std::uint8_t* out, UnitLanes const& units, std::uint32_t starts) {
    out = StoreQuarter<isExact>(out, _mm256_castsi256_si128(units.evens), starts);
    out = StoreQuarter<isExact>(out, _mm256_castsi256_si128(units.odds), starts >> 8);
    out = StoreQuarter<isExact>(out, _mm256_extracti128_si256(units.evens, 1), starts >> 16);
    return StoreQuarter<isExact>(out, _mm256_extracti128_si256(units.odds, 1), starts >> 24);
}

CORVALEN_STEP std::uint8_t* StoreAscii(std::uint8_t* out, __m256i bytes) {
    Store(out, Widen(_mm256_castsi256_si128(bytes)));
    Store(out + kBlock, Widen(_mm256_extracti128_si256(bytes, 1)));
    return out + 2 * kBlock;
}

// Stores good blocks as long as the one behind is good too, which then writes over what they store and do not
// count. `block` is the one at the cursor, and in the end the one that is left.
CORVALEN_STEP void StoreGoodBlocks(Cursor& c, Utf8Block& block) {
    Cursor at = c;  // stays in registers, while a store of bytes might change `c`
    Utf8Block next;
    while (at.Left() >= 2 * kBlock + kLookahead && at.Room() >= 2 * kBlock &&
           Classify(Load(at.in + kBlock), block.carry, next)) {
        __m256i const bytes = Load(at.in);
        at.out = block.isAscii ? StoreAscii(at.out, bytes)
                               : StoreUnits<false>(at.out, UnitsOf(bytes, Load(at.in + 1), Load(at.in + 2)),
                                                   block.starts);
        at.in += kBlock;
        block = next;
    }
    c = at;
}

// The bytes from the `count`-th on; zeros follow.
template <int count>
CORVALEN_STEP __m256i From(__m256i bytes) {
    constexpr int kUpperThenZero = 0x81;
    return _mm256_alignr_epi8(_mm256_permute2x128_si256(bytes, bytes, kUpperThenZero), bytes, count);
}

// Stores exactly the units of a block's whole characters, and moves the cursor, which stands in the block,
// behind them. Those before the cursor are stored once more. False if there is no room.
CORVALEN_STEP bool StoreLastUnits(std::uint8_t const* in, __m256i bytes, Utf8Block const& block, Cursor& c) {
    std::size_t length = kBlock;
    std::uint32_t starts = block.starts;
    if (block.carry != 0) {
        // The character that goes on behind the block stays.
        length = kBlock - 1 - static_cast<std::size_t>(__builtin_clz(starts));
        starts &= FirstBits(length);
    }
    std::size_t const before = CountOf(starts & FirstBits(static_cast<std::size_t>(c.in - in)));
    if (2 * (CountOf(starts) - before) > c.Room()) {
        return false;
    }
    std::uint8_t* const out = c.out - 2 * before;
    c.out = block.isAscii ? StoreAscii(out, bytes)
                          : StoreUnits<true>(out, UnitsOf(bytes, From<1>(bytes), From<2>(bytes)), starts);
    c.in = in + length;
    return true;
}

// The end of a run, less than a block, together with bytes before it that are done.
CORVALEN_STEP void TakeRest(Cursor& c) {
    std::uint8_t const* const in = c.inEnd - kBlock;
    __m256i const bytes = Load(in);
    std::uint32_t const done = FirstBits(static_cast<std::size_t>(c.in - in));
    Utf8Block block;
    if (Classify(bytes, Continuations(bytes) & done, block)) {
        StoreLastUnits(in, bytes, block, c);
    }
}

// A text of less than a block, padded with NULs.
CORVALEN_STEP void TakeShort(Cursor& c) {
    constexpr std::size_t kWorthIt = 6;
    std::size_t const length = c.Left();
    if (length < kWorthIt) {
        return;
    }
    std::uint8_t padded[kBlock] = {};
    CopyExactly(padded, c.in, length);
    __m256i const bytes = Load(padded);
    Utf8Block block;
    if (Classify(bytes, 0, block)) {
        std::uint32_t const starts = block.starts & FirstBits(length);
        if (2 * CountOf(starts) <= c.Room()) {
            c.out = StoreUnits<true>(c.out, UnitsOf(bytes, From<1>(bytes), From<2>(bytes)), starts);
            c.in = c.inEnd;
        }
    }
}

CORVALEN_RUN_TARGET void Utf8ToUnits(Cursor& c) {
    std::uint8_t const* const begin = c.in;
    while (c.Left() >= kBlock) {
        Utf8Block block;
        if (!Classify(Load(c.in), 0, block)) {
            Portable::Utf8ToUnits(c);
            return;
        }
        StoreGoodBlocks(c, block);
        std::uint8_t const* const last = c.in;
        c.in += __builtin_ctz(block.starts);  // the rest of a character that the block before has stored
        if (!StoreLastUnits(last, Load(last), block, c)) {
            Portable::Utf8ToUnits(c);
            return;
        }
    }
    if (c.in == begin) {
        TakeShort(c);
    } else if (c.in != c.inEnd) {
        TakeRest(c);
    }
    Portable::Utf8ToUnits(c);
}

}  // namespace

constinit Runs const kAvx2Runs = {
    .utf8ToUnits = Utf8ToUnits,
    .unitsToUtf8 = Avx2::UnitsToUtf8,
    .utf8ToLatin1 = Avx2::CopyAscii,
    .latin1ToUtf8 = Avx2::CopyAsciiNoNul,
    .unitsToHex = Avx2::UnitsToHex,
    .hexToUnits = Avx2::HexToUnits,
    .copyAscii = Avx2::CopyAscii,
    .copyGsmPlain = Avx2::CopyGsmPlain,
    .latin1ToUnits = Avx2::Latin1ToUnits,
    .unitsToLatin1 = Avx2::UnitsToLatin1,
    .unitsToGsm = nullptr,
    .isHex = Avx2::IsHex,
};

}  // namespace System::Text

#endif
