#if defined(__x86_64__)

// The compiler's own header lets its functions begin with an undefined register, and GCC 12 warns of that.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif
#include <immintrin.h>
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "text/Runs.h"
#include "text/RunsAvx2Maps.h"
#include "text/RunsPortable.h"

// The runs of processors with AVX-512 and its byte compression. A mask says which bytes a load or a store
// touches, so that the end of a text needs no step of its own.

namespace System::Text {
namespace {

#define CORVALEN_AVX512 gnu::target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt")
#define CORVALEN_RUN_TARGET [[CORVALEN_AVX512]]
#define CORVALEN_STEP [[CORVALEN_AVX512, gnu::always_inline]] static inline

constexpr std::size_t kBlock = 64;
constexpr std::size_t kHalf = kBlock / 2;

CORVALEN_STEP __m512i Splat8(int value) {
    return _mm512_set1_epi8(static_cast<char>(value));
}
CORVALEN_STEP __m512i Splat16(int value) {
    return _mm512_set1_epi16(static_cast<short>(value));
}
CORVALEN_STEP __m512i And(__m512i a, __m512i b) {
    return _mm512_and_si512(a, b);
}
CORVALEN_STEP __m512i Or(__m512i a, __m512i b) {
    return _mm512_or_si512(a, b);
}

// The lowest `count` bits, at most 64.
CORVALEN_STEP std::uint64_t FirstBits(std::size_t count) {
    return _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned>(count));
}
CORVALEN_STEP std::size_t CountOf(std::uint64_t bits) {
    return static_cast<std::size_t>(__builtin_popcountll(bits));
}
// Place of the lowest bit; 64 for none.
CORVALEN_STEP std::size_t FirstOf(std::uint64_t bits) {
    return static_cast<std::size_t>(_tzcnt_u64(bits));
}
// Place of the highest bit below `end`; there has to be one.
CORVALEN_STEP std::size_t LastBelow(std::uint64_t bits, std::size_t end) {
    return 63 - static_cast<std::size_t>(__builtin_clzll(bits & FirstBits(end)));
}

// Bytes at `in` that `length` reaches; zeros behind them.
CORVALEN_STEP __m512i Load(std::uint8_t const* in, std::uint64_t bytes) {
    return _mm512_maskz_loadu_epi8(bytes, in);
}
CORVALEN_STEP void Store(std::uint8_t* out, std::size_t count, __m512i bytes) {
    _mm512_mask_storeu_epi8(out, FirstBits(count), bytes);
}

// Writes `count` bytes, at most 64, as units.
CORVALEN_STEP void StoreWide(std::uint8_t* out, std::size_t count, __m512i low, __m512i high) {
    __m512i const first = Or(_mm512_cvtepu8_epi16(_mm512_castsi512_si256(low)),
                             _mm512_slli_epi16(_mm512_cvtepu8_epi16(_mm512_castsi512_si256(high)), 8));
    Store(out, std::min(2 * count, kBlock), first);
    if (count > kHalf) {
        __m512i const second =
            Or(_mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(low, 1)),
               _mm512_slli_epi16(_mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(high, 1)), 8));
        Store(out + kBlock, 2 * count - kBlock, second);
    }
}

// The characters at the begin of a block that a run takes.
struct Prefix {
    std::uint64_t starts;  // the first byte of each
    std::size_t length;    // bytes of all
    bool isAll;            // the run goes on behind them
};

// Of characters that begin at `starts`, those before the one that has the first `bad` byte; `expected` are
// the bytes that go on with a character, whatever stands there.
CORVALEN_STEP Prefix PrefixBefore(std::uint64_t bad, std::uint64_t expected, std::uint64_t starts,
                                  std::size_t length) {
    bool const isAll = bad == 0;
    if (!isAll) {
        std::size_t const at = FirstOf(bad);
        length = std::min(length, (expected >> at & 1) != 0 ? LastBelow(starts, at) : at);
    }
    return {starts & FirstBits(length), length, isAll};
}

// No more characters than there is room for.
CORVALEN_STEP void LimitTo(std::size_t room, Prefix& prefix) {
    if (CountOf(prefix.starts) > room) {
        prefix.length = FirstOf(_pdep_u64(std::uint64_t{1} << room, prefix.starts));
        prefix.starts &= FirstBits(prefix.length);
        prefix.isAll = false;
    }
}

// The well-formed characters at the begin of a block of UTF-8 that isn't all ASCII. One that goes on behind
// a whole block is left to the next.
CORVALEN_STEP Prefix ClassifyUtf8(__m512i bytes, std::uint64_t high, std::size_t length) {
    // As signed numbers, 0x80 to 0xBF lie below -64, leads of two bytes below -32, of three below -16.
    std::uint64_t const next = _mm512_cmplt_epi8_mask(bytes, Splat8(-64));
    std::uint64_t const leads = high & ~next;
    std::uint64_t const threes = high & _mm512_cmpge_epi8_mask(bytes, Splat8(-32));
    std::uint64_t const fours = high & _mm512_cmpge_epi8_mask(bytes, Splat8(-16));
    std::uint64_t const expected = leads << 1 | threes << 2;
    std::size_t const cut = leads >> 63 != 0 ? 1 : threes >> 62 != 0 ? 2 : 0;
    return PrefixBefore((expected ^ next) | fours, expected, ~next, length - cut);
}

// The units of the characters of `prefix`, their low and high bytes compressed to the front.
CORVALEN_STEP void StoreUnits(std::uint8_t const* in, std::uint64_t loaded, __m512i b0, Prefix const& prefix,
                              std::uint8_t* out) {
    __m512i const b1 = Load(in + 1, loaded >> 1);
    __m512i const b2 = Load(in + 2, loaded >> 2);
    std::uint64_t const isLong = _mm512_movepi8_mask(b0);
    std::uint64_t const isThree = _mm512_cmpge_epu8_mask(b0, Splat8(0xE0));
    // Of a character of two bytes the last two are b0 b1, of three b1 b2.
    __m512i const last = _mm512_mask_blend_epi8(isThree, b1, b2);
    __m512i const middle = _mm512_mask_blend_epi8(isThree, b0, b1);
    __m512i const lowBits = Or(And(_mm512_slli_epi16(middle, 6), Splat8(0xC0)), And(last, Splat8(0x3F)));
    __m512i const topBits = _mm512_maskz_mov_epi8(isThree, And(_mm512_slli_epi16(b0, 4), Splat8(0xF0)));
    __m512i const highBits = Or(And(_mm512_srli_epi16(middle, 2), Splat8(0x0F)), topBits);
    __m512i const low = _mm512_mask_blend_epi8(isLong, b0, lowBits);
    StoreWide(out, CountOf(prefix.starts), _mm512_maskz_compress_epi8(prefix.starts, low),
              _mm512_maskz_compress_epi8(prefix.starts, _mm512_maskz_mov_epi8(isLong, highBits)));
}

CORVALEN_RUN_TARGET void Utf8ToUnits(Cursor& c) {
    Prefix prefix{0, 0, true};
    while (prefix.isAll && c.in != c.inEnd) {
        std::size_t const length = std::min(c.Left(), kBlock);
        std::uint64_t const loaded = FirstBits(length);
        __m512i const bytes = Load(c.in, loaded);
        std::uint64_t const high = _mm512_movepi8_mask(bytes);
        prefix = high == 0 ? Prefix{loaded, length, true} : ClassifyUtf8(bytes, high, length);
        LimitTo(c.Room() / 2, prefix);
        if (high == 0) {
            StoreWide(c.out, prefix.length, bytes, _mm512_setzero_si512());
        } else {
            StoreUnits(c.in, loaded, bytes, prefix, c.out);
        }
        c.in += prefix.length;
        c.out += 2 * CountOf(prefix.starts);
    }
}

// Characters in lanes wider than they need, and a bit for each byte that counts.
struct Lanes {
    __m512i bytes;
    std::uint64_t keep;
};

// Of `count` pairs of bytes all the first ones, and the second ones where there is a bit.
CORVALEN_STEP std::uint64_t KeepPairs(std::uint32_t seconds, std::size_t count) {
    constexpr std::uint64_t kFirsts = 0x5555555555555555;
    return (kFirsts | _pdep_u64(seconds, ~kFirsts)) & FirstBits(2 * count);
}

// Units below 0x800 as two bytes, of which ASCII needs the first.
CORVALEN_STEP Lanes PairLanes(__m512i units, std::size_t count) {
    std::uint32_t const isLong = _mm512_cmpge_epu16_mask(units, Splat16(0x80));
    __m512i const lead = Or(_mm512_srli_epi16(units, 6), Splat16(0xC0));
    __m512i const last = Or(And(units, Splat16(0x3F)), Splat16(0x80));
    __m512i const pairs = Or(lead, _mm512_slli_epi16(last, 8));
    return {_mm512_mask_blend_epi16(isLong, units, pairs), KeepPairs(isLong, count)};
}

// Sixteen units of any size as three bytes of four; 0xFF, which UTF-8 does not have, where a byte is not
// needed.
CORVALEN_STEP Lanes TripleLanes(__m256i units, std::size_t count) {
    __m512i const wide = _mm512_cvtepu16_epi32(units);
    __mmask16 const isLong = _mm512_cmpge_epu32_mask(wide, _mm512_set1_epi32(0x80));
    __mmask16 const isThree = _mm512_cmpge_epu32_mask(wide, _mm512_set1_epi32(0x800));
    __m512i const six = _mm512_set1_epi32(0x3F);
    __m512i const last = Or(_mm512_slli_epi32(And(wide, six), 16), _mm512_set1_epi32(0x800000));
    __m512i const middle = _mm512_slli_epi32(And(_mm512_srli_epi32(wide, 6), six), 8);
    __m512i const lead = _mm512_srli_epi32(wide, 12);
    __m512i const two = Or(Or(last, middle), _mm512_set1_epi32(static_cast<int>(0xFF00C0FF)));
    __m512i const three = Or(Or(last, middle), Or(lead, _mm512_set1_epi32(static_cast<int>(0xFF0080E0))));
    __m512i const one = Or(wide, _mm512_set1_epi32(static_cast<int>(0xFFFFFF00)));
    __m512i const bytes = _mm512_mask_blend_epi32(isThree, _mm512_mask_blend_epi32(isLong, one, two), three);
    return {bytes, _mm512_cmpneq_epi8_mask(bytes, Splat8(0xFF)) & FirstBits(4 * count)};
}

// Writes what counts; false, with nothing written, if that does not fit.
CORVALEN_STEP bool StoreLanes(Cursor& c, Lanes const& lanes, std::size_t inBytes) {
    std::size_t const count = CountOf(lanes.keep);
    if (count > c.Room()) {
        return false;
    }
    Store(c.out, count, _mm512_maskz_compress_epi8(lanes.keep, lanes.bytes));
    c.in += inBytes;
    c.out += count;
    return true;
}

CORVALEN_STEP bool StoreAscii(Cursor& c, __m512i units, std::size_t count) {
    if (count > c.Room()) {
        return false;
    }
    _mm256_mask_storeu_epi8(c.out, static_cast<__mmask32>(FirstBits(count)), _mm512_cvtepi16_epi8(units));
    c.in += 2 * count;
    c.out += count;
    return true;
}

CORVALEN_STEP bool StoreTriples(Cursor& c, __m512i units, std::size_t count) {
    constexpr std::size_t kLanes = 16;
    std::size_t const first = std::min(count, kLanes);
    std::size_t const second = count - first;
    return StoreLanes(c, TripleLanes(_mm512_castsi512_si256(units), first), 2 * first) &&
           (second == 0 ||
            StoreLanes(c, TripleLanes(_mm512_extracti64x4_epi64(units, 1), second), 2 * second));
}

CORVALEN_RUN_TARGET void UnitsToUtf8(Cursor& c) {
    while (c.in != c.inEnd) {
        std::size_t const count = std::min(c.Left() / 2, kHalf);
        __m512i const units = Load(c.in, FirstBits(2 * count));
        bool const isStored = _mm512_test_epi16_mask(units, Splat16(0xFF80)) == 0
                                  ? StoreAscii(c, units, count)
                              : _mm512_test_epi16_mask(units, Splat16(0xF800)) == 0
                                  ? StoreLanes(c, PairLanes(units, count), 2 * count)
                                  : StoreTriples(c, units, count);
        if (!isStored) {
            Portable::UnitsToUtf8(c);
            return;
        }
    }
}

// The characters at the begin of a block of UTF-8 that Latin-1 has.
CORVALEN_STEP Prefix ClassifyLatin1(__m512i bytes, std::uint64_t high, std::size_t length) {
    std::uint64_t const c2 = _mm512_cmpeq_epi8_mask(bytes, Splat8(0xC2));
    std::uint64_t const c3 = _mm512_cmpeq_epi8_mask(bytes, Splat8(0xC3));
    std::uint64_t const next = _mm512_cmplt_epi8_mask(bytes, Splat8(-64));
    std::uint64_t const controls = _mm512_cmplt_epi8_mask(bytes, Splat8(-96));  // 0x80 to 0x9F
    std::uint64_t const leads = c2 | c3;
    std::uint64_t const expected = leads << 1;
    std::uint64_t const bad = (expected ^ next) | (high & ~next & ~leads) | (c2 << 1 & controls);
    return PrefixBefore(bad, expected, ~next, length - (leads >> 63));
}

CORVALEN_RUN_TARGET void Utf8ToLatin1(Cursor& c) {
    Prefix prefix{0, 0, true};
    while (prefix.isAll && c.in != c.inEnd) {
        std::size_t const length = std::min(c.Left(), kBlock);
        __m512i bytes = Load(c.in, FirstBits(length));
        std::uint64_t const high = _mm512_movepi8_mask(bytes);
        prefix = high == 0 ? Prefix{FirstBits(length), length, true} : ClassifyLatin1(bytes, high, length);
        LimitTo(c.Room(), prefix);
        if (high != 0) {
            // The last byte is the character, but for the bit that 0xC3 before it adds.
            std::uint64_t const c3 = _mm512_cmpeq_epi8_mask(bytes, Splat8(0xC3));
            std::uint64_t const leads = c3 | _mm512_cmpeq_epi8_mask(bytes, Splat8(0xC2));
            bytes = _mm512_mask_add_epi8(bytes, c3 << 1, bytes, Splat8(0x40));
            bytes = _mm512_maskz_compress_epi8(~leads, bytes);
        }
        std::size_t const count = CountOf(prefix.starts);
        Store(c.out, count, bytes);
        c.in += prefix.length;
        c.out += count;
    }
}

// Blocks of ASCII without a NUL.
CORVALEN_STEP void CopyAsciiBlocks(Cursor& c) {
    while (c.Left() >= kBlock && c.Room() >= kBlock) {
        __m512i const bytes = Load(c.in, ~std::uint64_t{0});
        if (~_mm512_cmpgt_epi8_mask(bytes, _mm512_setzero_si512()) != 0) {
            return;
        }
        Store(c.out, kBlock, bytes);
        c.in += kBlock;
        c.out += kBlock;
    }
}

// As many of `length` bytes, at most kHalf, as are of the run's kind. False at one that isn't or doesn't fit.
CORVALEN_STEP bool WidenLatin1(Cursor& c, std::size_t length) {
    __m256i const bytes = _mm256_maskz_loadu_epi8(static_cast<__mmask32>(FirstBits(length)), c.in);
    std::uint64_t const special = _mm256_cmpeq_epi8_mask(bytes, _mm256_setzero_si256()) |
                                  _mm256_cmplt_epi8_mask(bytes, _mm256_set1_epi8(static_cast<char>(-96)));
    std::size_t const count = std::min(length, FirstOf(special));
    Lanes const lanes = PairLanes(_mm512_cvtepu8_epi16(bytes), count);
    return StoreLanes(c, lanes, count) && count == length;
}

CORVALEN_RUN_TARGET void Latin1ToUtf8(Cursor& c) {
    do {
        CopyAsciiBlocks(c);
    } while (c.in != c.inEnd && WidenLatin1(c, std::min(c.Left(), kHalf)));
}

// The entries of a table of 128 bytes, by the low seven bits of each byte of `places`.
CORVALEN_STEP __m256i LookUp(signed char const* table, __m256i places) {
    __m512i const first = _mm512_loadu_si512(table);
    __m512i const second = _mm512_loadu_si512(table + kBlock);
    return _mm512_castsi512_si256(_mm512_permutex2var_epi8(first, _mm512_zextsi256_si512(places), second));
}

// The codes of units as GsmCodes has them.
CORVALEN_STEP __m256i CodesOf(__m512i units, GsmCodes const& codes) {
    constexpr int kEuro = 0x20AC;
    constexpr char kEuroCode = -0x65;
    constexpr std::size_t kSecondHalf = 128;
    __m256i const places = _mm512_cvtepi16_epi8(units);
    __mmask32 const isLow = _mm512_cmplt_epu16_mask(units, Splat16(0x80));
    __mmask32 const isHigh = _mm512_cmpeq_epi16_mask(And(units, Splat16(0xFF80)), Splat16(0x80));
    __mmask32 const isGreek = _mm512_cmpeq_epi16_mask(And(units, Splat16(0xFF80)), Splat16(0x380));
    __mmask32 const isEuro = _mm512_cmpeq_epi16_mask(units, Splat16(kEuro));
    __m256i result = _mm256_mask_mov_epi8(_mm256_set1_epi8(-1), isLow, LookUp(codes.low, places));
    result = _mm256_mask_mov_epi8(result, isHigh, LookUp(codes.low + kSecondHalf, places));
    result = _mm256_mask_mov_epi8(result, isGreek, LookUp(codes.greek, places));
    return _mm256_mask_mov_epi8(result, isEuro, _mm256_set1_epi8(kEuroCode));
}

// Codes as two bytes, of which a plain one needs the first.
CORVALEN_STEP Lanes EscapeLanes(__m256i codes, std::size_t count) {
    __m512i const wide = _mm512_cvtepi8_epi16(codes);
    __mmask32 const isEscaped = _mm512_movepi16_mask(wide);
    __m512i const negated = _mm512_sub_epi16(_mm512_setzero_si512(), wide);
    __m512i const pairs = Or(_mm512_slli_epi16(negated, 8), Splat16(0x1B));
    return {_mm512_mask_blend_epi16(isEscaped, wide, pairs), KeepPairs(isEscaped, count)};
}

CORVALEN_RUN_TARGET void UnitsToGsm(Cursor& c, GsmCodes const& codes) {
    bool isWhole = true;
    while (isWhole && c.in != c.inEnd) {
        std::size_t const length = std::min(c.Left() / 2, kHalf);
        __m256i const found = CodesOf(Load(c.in, FirstBits(2 * length)), codes);
        std::size_t const count =
            std::min(length, FirstOf(_mm256_cmpeq_epi8_mask(found, _mm256_set1_epi8(-1))));
        isWhole = StoreLanes(c, EscapeLanes(found, count), 2 * count) && count == length;
    }
}

}  // namespace

constinit Runs const kAvx512Runs = {
    .utf8ToUnits = Utf8ToUnits,
    .unitsToUtf8 = UnitsToUtf8,
    .utf8ToLatin1 = Utf8ToLatin1,
    .latin1ToUtf8 = Latin1ToUtf8,
    .unitsToHex = Avx2::UnitsToHex,
    .hexToUnits = Avx2::HexToUnits,
    .copyAscii = Avx2::CopyAscii,
    .copyGsmPlain = Avx2::CopyGsmPlain,
    .latin1ToUnits = Avx2::Latin1ToUnits,
    .unitsToLatin1 = Avx2::UnitsToLatin1,
    .unitsToGsm = UnitsToGsm,
    .isHex = Avx2::IsHex,
};

}  // namespace System::Text

#endif
