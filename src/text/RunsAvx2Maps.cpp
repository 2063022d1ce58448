#if defined(__x86_64__)

#include "text/RunsAvx2Maps.h"

#include "text/RunsAvx2.h"

// The AVX2 runs over characters that are all of one size on either side.

namespace System::Text {
namespace {

struct ByteMap {
    static constexpr std::size_t kIn = 1;
    static constexpr std::size_t kOut = 1;
    static constexpr std::size_t kStep = 32;
};

struct CopyAsciiMap : ByteMap {
    static constexpr Run Rest = Portable::CopyAscii;
    CORVALEN_STEP bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m256i const bytes = Load(in);
        if (Mask(bytes) != 0) {
            return false;
        }
        Store(out, bytes);
        return true;
    }
};

struct CopyAsciiNoNulMap : ByteMap {
    static constexpr Run Rest = Portable::CopyAsciiNoNul;
    CORVALEN_STEP bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m256i const bytes = Load(in);
        if (~Mask(_mm256_cmpgt_epi8(bytes, _mm256_setzero_si256())) != 0) {
            return false;
        }
        Store(out, bytes);
        return true;
    }
};

struct CopyGsmPlainMap : ByteMap {
    static constexpr Run Rest = Portable::CopyGsmPlain;
    CORVALEN_STEP bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m256i const bytes = Load(in);
        __m256i const letters = InRange(_mm256_or_si256(bytes, Splat8(0x20)), 'a', 'z');
        __m256i const others =
            _mm256_andnot_si256(_mm256_cmpeq_epi8(bytes, Splat8('$')), InRange(bytes, ' ', '?'));
        __m256i const ends =
            _mm256_or_si256(_mm256_cmpeq_epi8(bytes, Splat8('\n')), _mm256_cmpeq_epi8(bytes, Splat8('\r')));
        if (~Mask(_mm256_or_si256(_mm256_or_si256(letters, others), ends)) != 0) {
            return false;
        }
        Store(out, bytes);
        return true;
    }
};

struct Latin1ToUnitsMap {
    static constexpr std::size_t kIn = 1;
    static constexpr std::size_t kOut = 2;
    static constexpr std::size_t kStep = 32;
    static constexpr Run Rest = Portable::Latin1ToUnits;
    CORVALEN_STEP bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m256i const bytes = Load(in);
        __m256i const special =
            _mm256_or_si256(_mm256_cmpeq_epi8(bytes, _mm256_setzero_si256()), InRange(bytes, 0x80, 0x9F));
        if (Mask(special) != 0) {
            return false;
        }
        Store(out, Widen(_mm256_castsi256_si128(bytes)));
        Store(out + 32, Widen(_mm256_extracti128_si256(bytes, 1)));
        return true;
    }
};

struct UnitsToLatin1Map {
    static constexpr std::size_t kIn = 2;
    static constexpr std::size_t kOut = 1;
    static constexpr std::size_t kStep = 16;
    static constexpr Run Rest = Portable::UnitsToLatin1;
    CORVALEN_STEP bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m256i const units = Load(in);
        __m256i const special = _mm256_cmpeq_epi16(_mm256_and_si256(units, Splat16(0xFFE0)), Splat16(0x80));
        __m256i const high = _mm256_and_si256(units, Splat16(0xFF00));
        __m256i const bad = _mm256_or_si256(special, high);
        if (!_mm256_testz_si256(bad, bad)) {
            return false;
        }
        Store(out, Narrow(units));
        return true;
    }
};

// The bytes of each unit of the lane, exchanged.
CORVALEN_STEP __m256i SwapUnits(__m256i units) {
    return _mm256_or_si256(_mm256_slli_epi16(units, 8), _mm256_srli_epi16(units, 8));
}

struct UnitsToHexMap {
    static constexpr std::size_t kIn = 2;
    static constexpr std::size_t kOut = 4;
    static constexpr std::size_t kStep = 16;
    static constexpr Run Rest = Portable::UnitsToHex;
    CORVALEN_STEP bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m256i const digits = _mm256_broadcastsi128_si256(
            _mm_setr_epi8('0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'A', 'B', 'C', 'D', 'E', 'F'));
        __m256i const bytes = SwapUnits(Load(in));
        __m256i const high =
            _mm256_shuffle_epi8(digits, _mm256_and_si256(_mm256_srli_epi16(bytes, 4), Splat8(15)));
        __m256i const low = _mm256_shuffle_epi8(digits, _mm256_and_si256(bytes, Splat8(15)));
        __m256i const first = _mm256_unpacklo_epi8(high, low);
        __m256i const second = _mm256_unpackhi_epi8(high, low);
        Store(out, _mm256_permute2x128_si256(first, second, 0x20));
        Store(out + 32, _mm256_permute2x128_si256(first, second, 0x31));
        return true;
    }
};

struct HexToUnitsMap {
    static constexpr std::size_t kIn = 4;
    static constexpr std::size_t kOut = 2;
    static constexpr std::size_t kStep = 16;
    static constexpr Run Rest = Portable::HexToUnits;

    // The bytes that each pair of digits makes, as 16-bit numbers.
    CORVALEN_STEP __m256i Pairs(std::uint8_t const* in) {
        __m256i const digits = Load(in);
        __m256i const isLetter = _mm256_cmpgt_epi8(digits, Splat8('9'));
        __m256i const values =
            _mm256_add_epi8(_mm256_and_si256(digits, Splat8(15)), _mm256_and_si256(isLetter, Splat8(9)));
        return _mm256_maddubs_epi16(values, Splat16(0x0110));
    }

    CORVALEN_STEP bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m256i const packed = _mm256_packus_epi16(Pairs(in), Pairs(in + 32));
        Store(out, SwapUnits(_mm256_permute4x64_epi64(packed, 0b11011000)));
        return true;
    }
};

}  // namespace

void Avx2::CopyAscii(Cursor& c) {
    MapRun<CopyAsciiMap>(c);
}
void Avx2::CopyAsciiNoNul(Cursor& c) {
    MapRun<CopyAsciiNoNulMap>(c);
}
void Avx2::CopyGsmPlain(Cursor& c) {
    MapRun<CopyGsmPlainMap>(c);
}
void Avx2::Latin1ToUnits(Cursor& c) {
    MapRun<Latin1ToUnitsMap>(c);
}
void Avx2::UnitsToLatin1(Cursor& c) {
    MapRun<UnitsToLatin1Map>(c);
}
void Avx2::UnitsToHex(Cursor& c) {
    MapRun<UnitsToHexMap>(c);
}
void Avx2::HexToUnits(Cursor& c) {
    MapRun<HexToUnitsMap>(c);
}

CORVALEN_RUN_TARGET bool Avx2::IsHex(std::uint8_t const* in, std::uint8_t const* end) {
    for (; end - in >= 32; in += 32) {
        __m256i const bytes = Load(in);
        __m256i const letters = InRange(_mm256_or_si256(bytes, Splat8(0x20)), 'a', 'f');
        if (~Mask(_mm256_or_si256(letters, InRange(bytes, '0', '9'))) != 0) {
            return false;
        }
    }
    return Portable::IsHex(in, end);
}

}  // namespace System::Text

#endif
