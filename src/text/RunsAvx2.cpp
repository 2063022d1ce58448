#if defined(__x86_64__)

#include "text/RunsAvx2.h"

#include <array>

#include "text/RunsAvx2Maps.h"

// The AVX2 runs between UTF-8 and units.

namespace System::Text {
namespace {

using Shuffle = std::array<std::uint8_t, 16>;

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

CORVALEN_STEP void StoreLanes(std::uint8_t* out, __m128i units, unsigned lanes) {
    auto const* const pick = reinterpret_cast<__m128i const*>(kLanePicks[lanes].data());
    Store(out, _mm_shuffle_epi8(units, _mm_load_si128(pick)));
}

// 32 bytes of UTF-8, seen as characters that begin there. `starts` has a bit for each byte that begins one;
// `carry` has the first bits of the next block set where the last characters go on.
struct Utf8Block {
    std::uint32_t starts;
    std::uint32_t carry;
    bool isAscii;
};

constexpr std::ptrdiff_t kBlock = 32;
constexpr std::ptrdiff_t kLookahead = 2;  // bytes behind a block that its last characters can reach

// False if the block holds a byte that is not in its place.
CORVALEN_STEP bool Classify(std::uint8_t const* in, std::uint32_t carry, Utf8Block& block) {
    __m256i const bytes = Load(in);
    std::uint32_t const high = Mask(bytes);
    // As signed numbers, 0x80 to 0xBF lie below -64, leads of two bytes below -32, of three below -16.
    std::uint32_t const next = Mask(_mm256_cmpgt_epi8(Splat8(-64), bytes));
    std::uint32_t const notThree = Mask(_mm256_cmpgt_epi8(Splat8(-32), bytes));
    std::uint32_t const notFour = Mask(_mm256_cmpgt_epi8(Splat8(-16), bytes));
    std::uint64_t const leads = high & ~next;
    std::uint64_t const threes = high & ~notThree;
    std::uint64_t const expected = carry | leads << 1 | threes << 2;
    block = {~next, static_cast<std::uint32_t>(expected >> 32), high == 0};
    return static_cast<std::uint32_t>(expected) == next && (high & ~notFour) == 0;
}

// Writes the units of the characters that begin in the block: 64 bytes at `out`, the first of which count.
// Gives that number. Reads kLookahead bytes more than the block.
CORVALEN_STEP std::size_t StoreUnits(std::uint8_t const* in, Utf8Block const& block, std::uint8_t* out) {
    __m256i const b0 = Load(in);
    if (block.isAscii) {
        Store(out, Widen(_mm256_castsi256_si128(b0)));
        Store(out + 32, Widen(_mm256_extracti128_si256(b0, 1)));
        return 64;
    }
    __m256i const b1 = Load(in + 1);
    __m256i const b2 = Load(in + 2);
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
    __m256i const evens = _mm256_unpacklo_epi8(low, high);
    __m256i const odds = _mm256_unpackhi_epi8(low, high);
    std::uint32_t const starts = block.starts;
    std::uint8_t* const begin = out;
    StoreLanes(out, _mm256_castsi256_si128(evens), starts & 0xFF);
    StoreLanes(out + 2 * __builtin_popcount(starts & 0xFF), _mm256_castsi256_si128(odds), starts >> 8 & 0xFF);
    out += 2 * __builtin_popcount(starts & 0xFFFF);
    StoreLanes(out, _mm256_extracti128_si256(evens, 1), starts >> 16 & 0xFF);
    StoreLanes(out + 2 * __builtin_popcount(starts >> 16 & 0xFF), _mm256_extracti128_si256(odds, 1),
               starts >> 24);
    return static_cast<std::size_t>(out - begin) +
           2 * static_cast<std::size_t>(__builtin_popcount(starts >> 16));
}

// The same for the last block of a run: exactly the units of its whole characters. False if they do not fit.
CORVALEN_STEP bool StoreLastUnits(std::uint8_t const* in, std::size_t length, Utf8Block const& block,
                                  Cursor& c) {
    std::uint8_t units[64];
    std::size_t count = StoreUnits(in, block, units);
    count = block.isAscii ? 2 * length : count;
    if (block.carry != 0) {
        // The character that goes on behind the block stays: it began two bytes before the end if one is
        // missing.
        count -= 2;
        length -= IsContinuation(in[length - 1]) ? 2 : 1;
    }
    if (count > c.Room()) {
        return false;
    }
    CopyExactly(c.out, units, count);
    c.in += length;
    c.out += count;
    return true;
}

// Fewer bytes than a block and what it looks ahead.
CORVALEN_STEP void TakeShort(Cursor& c) {
    constexpr std::size_t kWorthIt = 6;
    std::size_t const length = std::min<std::size_t>(c.Left(), kBlock);
    if (length >= kWorthIt) {
        std::uint8_t padded[kBlock + kLookahead + kBlock] = {};
        CopyExactly(padded, c.in, std::min(c.Left(), length + kLookahead));
        Utf8Block block;
        if (Classify(padded, 0, block)) {
            if (length < kBlock) {
                block.starts &= (1U << length) - 1;
            }
            StoreLastUnits(padded, length, block, c);
        }
    }
    Portable::Utf8ToUnits(c);
}

CORVALEN_RUN_TARGET void Utf8ToUnits(Cursor& c) {
    constexpr std::size_t kBlockRoom = 2 * kBlock;
    while (c.Left() >= kBlock + kLookahead) {
        Utf8Block block;
        if (c.Room() < kBlockRoom || !Classify(c.in, 0, block)) {
            Portable::Utf8ToUnits(c);
            return;
        }
        // A block that is not the last of the run may be stored with more than it counts, since the next one,
        // known to be good, writes over that.
        Utf8Block next;
        while (c.Left() >= 2 * kBlock + kLookahead && c.Room() >= kBlockRoom &&
               Classify(c.in + kBlock, block.carry, next)) {
            c.out += StoreUnits(c.in, block, c.out);
            c.in += kBlock;
            block = next;
        }
        if (!StoreLastUnits(c.in, kBlock, block, c)) {
            c.in += __builtin_ctz(block.starts);  // the rest of a character that the block before has stored
            Portable::Utf8ToUnits(c);
            return;
        }
    }
    TakeShort(c);
}

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

CORVALEN_STEP std::uint8_t* StoreBytes(std::uint8_t* out, __m128i bytes, unsigned index) {
    auto const* const pick = reinterpret_cast<__m128i const*>(kBytePicks[index].data());
    Store(out, _mm_shuffle_epi8(bytes, _mm_load_si128(pick)));
    return out + 4 + __builtin_popcount(index);
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

CORVALEN_STEP std::uint8_t* StorePairs(std::uint8_t* out, __m128i pairs, unsigned index) {
    auto const* const pick = reinterpret_cast<__m128i const*>(kPairPicks[index].data());
    Store(out, _mm_shuffle_epi8(pairs, _mm_load_si128(pick)));
    return out + 8 + __builtin_popcount(index);
}

constexpr std::size_t kUnits = 16;                  // of a step
constexpr std::size_t kStepRoom = 3 * kUnits + 16;  // what a step may touch
constexpr std::size_t kCover = 12;                  // bytes at most that a step writes and does not count

// One bit for each unit.
CORVALEN_STEP std::uint32_t UnitMask(__m256i units) {
    __m256i const packed = _mm256_packs_epi16(units, _mm256_setzero_si256());
    return Mask(_mm256_permute4x64_epi64(packed, 0b1000)) & 0xFFFF;
}

// Writes sixteen units as UTF-8, and up to kCover bytes more; gives the bytes that count.
CORVALEN_STEP std::size_t StoreUtf8(__m256i units, std::uint8_t* out) {
    if (_mm256_testz_si256(units, Splat16(0xFF80))) {
        Store(out, Narrow(units));
        return kUnits;
    }
    __m256i const zero = _mm256_setzero_si256();
    __m256i const isAscii = _mm256_cmpeq_epi16(_mm256_and_si256(units, Splat16(0xFF80)), zero);
    __m256i const isShort = _mm256_cmpeq_epi16(_mm256_and_si256(units, Splat16(0xF800)), zero);
    __m256i const tail = _mm256_or_si256(_mm256_and_si256(units, Splat16(0x3F)), Splat16(0x80));
    std::uint32_t const middles = ~UnitMask(isAscii);
    std::uint8_t* const begin = out;
    if (_mm256_testz_si256(units, Splat16(0xF800))) {
        __m256i const lead2 = _mm256_or_si256(_mm256_srli_epi16(units, 6), Splat16(0xC0));
        __m256i const pairs =
            _mm256_or_si256(_mm256_blendv_epi8(lead2, units, isAscii), _mm256_slli_epi16(tail, 8));
        out = StorePairs(out, _mm256_castsi256_si128(pairs), middles & 0xFF);
        out = StorePairs(out, _mm256_extracti128_si256(pairs, 1), middles >> 8 & 0xFF);
        return static_cast<std::size_t>(out - begin);
    }
    __m256i const last = _mm256_blendv_epi8(tail, units, isAscii);
    // The middle byte is 0x80 with six bits, or 0xC0 with five where it leads.
    __m256i const middle = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(units, 6), Splat16(0x3F)),
                                           _mm256_blendv_epi8(Splat16(0x80), Splat16(0xC0), isShort));
    __m256i const lead = _mm256_or_si256(_mm256_srli_epi16(units, 12), Splat16(0xE0));
    __m256i const front = _mm256_or_si256(lead, _mm256_slli_epi16(middle, 8));
    __m256i const evens = _mm256_unpacklo_epi16(front, last);
    __m256i const odds = _mm256_unpackhi_epi16(front, last);
    std::uint32_t const leads = ~UnitMask(isShort);
    out = StoreBytes(out, _mm256_castsi256_si128(evens), (middles & 15) | (leads & 15) << 4);
    out = StoreBytes(out, _mm256_castsi256_si128(odds), (middles >> 4 & 15) | (leads & 0xF0));
    out = StoreBytes(out, _mm256_extracti128_si256(evens, 1), (middles >> 8 & 15) | (leads >> 4 & 0xF0));
    out = StoreBytes(out, _mm256_extracti128_si256(odds, 1), (middles >> 12 & 15) | (leads >> 8 & 0xF0));
    return static_cast<std::size_t>(out - begin);
}

// The last units of a run, at most sixteen: exactly their bytes. False if they do not fit.
CORVALEN_STEP bool StoreLastUtf8(Cursor& c) {
    std::size_t const units = std::min(c.Left() / 2, kUnits);
    std::uint8_t bytes[kStepRoom];
    std::size_t count;
    if (units == kUnits) {
        count = StoreUtf8(Load(c.in), bytes);
    } else {
        std::uint8_t padded[2 * kUnits] = {};
        CopyExactly(padded, c.in, 2 * units);
        count = StoreUtf8(Load(padded), bytes) - (kUnits - units);
    }
    if (count > c.Room()) {
        return false;
    }
    CopyExactly(c.out, bytes, count);
    c.in += 2 * units;
    c.out += count;
    return true;
}

CORVALEN_RUN_TARGET void UnitsToUtf8(Cursor& c) {
    // What a step writes and does not count, the units behind it write over: there is room for all of them.
    constexpr std::size_t kMinLeft = 2 * (kUnits + kCover);
    constexpr std::size_t kMinRoom = 3 * (kUnits + kCover);
    for (;;) {
        while (c.Left() >= kMinLeft && c.Room() >= kMinRoom) {
            c.out += StoreUtf8(Load(c.in), c.out);
            c.in += 2 * kUnits;
        }
        if (c.in == c.inEnd) {
            return;
        }
        if (!StoreLastUtf8(c)) {
            Portable::UnitsToUtf8(c);
            return;
        }
    }
}

}  // namespace

constinit Runs const kAvx2Runs = {
    .utf8ToUnits = Utf8ToUnits,
    .unitsToUtf8 = UnitsToUtf8,
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
