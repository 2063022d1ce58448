#if defined(__x86_64__)

// Every x86-64 processor has these.
#define CORVALEN_RUN_TARGET [[gnu::target("sse2")]]
#include "text/RunsVector.h"

namespace System::Text {
namespace {

inline __m128i Load(void const* in) {
    return _mm_loadu_si128(static_cast<__m128i const*>(in));
}
inline void Store(void* out, __m128i bytes) {
    _mm_storeu_si128(static_cast<__m128i*>(out), bytes);
}
inline __m128i Splat8(int value) {
    return _mm_set1_epi8(static_cast<char>(value));
}
inline __m128i Splat16(int value) {
    return _mm_set1_epi16(static_cast<short>(value));
}
inline int Mask(__m128i bytes) {
    return _mm_movemask_epi8(bytes);
}
constexpr int kAllBytes = 0xFFFF;

// Whether each unsigned byte lies in [first, last].
inline __m128i InRange(__m128i bytes, int first, int last) {
    __m128i const offset = _mm_sub_epi8(bytes, Splat8(first));
    return _mm_cmpeq_epi8(_mm_min_epu8(offset, Splat8(last - first)), offset);
}

// Whether all units have no bit of `bits`.
inline bool HasNone(__m128i units, int bits) {
    __m128i const none = _mm_cmpeq_epi16(_mm_and_si128(units, Splat16(bits)), _mm_setzero_si128());
    return Mask(none) == kAllBytes;
}

struct ByteMap {
    static constexpr std::size_t kIn = 1;
    static constexpr std::size_t kOut = 1;
    static constexpr std::size_t kStep = 16;
};

struct CopyAscii : ByteMap {
    static constexpr Run Rest = Portable::CopyAscii;
    static bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m128i const bytes = Load(in);
        if (Mask(bytes) != 0) {
            return false;
        }
        Store(out, bytes);
        return true;
    }
};

struct CopyAsciiNoNul : ByteMap {
    static constexpr Run Rest = Portable::CopyAsciiNoNul;
    static bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m128i const bytes = Load(in);
        if (Mask(_mm_cmpgt_epi8(bytes, _mm_setzero_si128())) != kAllBytes) {
            return false;
        }
        Store(out, bytes);
        return true;
    }
};

struct CopyGsmPlain : ByteMap {
    static constexpr Run Rest = Portable::CopyGsmPlain;
    static bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m128i const bytes = Load(in);
        __m128i const letters = InRange(_mm_or_si128(bytes, Splat8(0x20)), 'a', 'z');
        __m128i const others = _mm_andnot_si128(_mm_cmpeq_epi8(bytes, Splat8('$')), InRange(bytes, ' ', '?'));
        __m128i const ends =
            _mm_or_si128(_mm_cmpeq_epi8(bytes, Splat8('\n')), _mm_cmpeq_epi8(bytes, Splat8('\r')));
        if (Mask(_mm_or_si128(_mm_or_si128(letters, others), ends)) != kAllBytes) {
            return false;
        }
        Store(out, bytes);
        return true;
    }
};

struct Latin1ToUnits {
    static constexpr std::size_t kIn = 1;
    static constexpr std::size_t kOut = 2;
    static constexpr std::size_t kStep = 16;
    static constexpr Run Rest = Portable::Latin1ToUnits;
    static bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m128i const bytes = Load(in);
        __m128i const zero = _mm_setzero_si128();
        if (Mask(_mm_or_si128(_mm_cmpeq_epi8(bytes, zero), InRange(bytes, 0x80, 0x9F))) != 0) {
            return false;
        }
        Store(out, _mm_unpacklo_epi8(bytes, zero));
        Store(out + 16, _mm_unpackhi_epi8(bytes, zero));
        return true;
    }
};

struct UnitsToLatin1 {
    static constexpr std::size_t kIn = 2;
    static constexpr std::size_t kOut = 1;
    static constexpr std::size_t kStep = 16;
    static constexpr Run Rest = Portable::UnitsToLatin1;
    static bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m128i const first = Load(in);
        __m128i const second = Load(in + 16);
        __m128i const packed =
            _mm_packus_epi16(_mm_and_si128(first, Splat16(0xFF)), _mm_and_si128(second, Splat16(0xFF)));
        if (!HasNone(_mm_or_si128(first, second), 0xFF00) || Mask(InRange(packed, 0x80, 0x9F)) != 0) {
            return false;
        }
        Store(out, packed);
        return true;
    }
};

inline __m128i SwapUnits(__m128i units) {
    return _mm_or_si128(_mm_slli_epi16(units, 8), _mm_srli_epi16(units, 8));
}

struct UnitsToHex {
    static constexpr std::size_t kIn = 2;
    static constexpr std::size_t kOut = 4;
    static constexpr std::size_t kStep = 8;
    static constexpr Run Rest = Portable::UnitsToHex;

    static __m128i Digits(__m128i values) {
        __m128i const isLetter = _mm_cmpgt_epi8(values, Splat8(9));
        return _mm_add_epi8(_mm_add_epi8(values, Splat8('0')),
                            _mm_and_si128(isLetter, Splat8('A' - '0' - 10)));
    }

    static bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m128i const bytes = SwapUnits(Load(in));
        __m128i const high = Digits(_mm_and_si128(_mm_srli_epi16(bytes, 4), Splat8(15)));
        __m128i const low = Digits(_mm_and_si128(bytes, Splat8(15)));
        Store(out, _mm_unpacklo_epi8(high, low));
        Store(out + 16, _mm_unpackhi_epi8(high, low));
        return true;
    }
};

struct HexToUnits {
    static constexpr std::size_t kIn = 4;
    static constexpr std::size_t kOut = 2;
    static constexpr std::size_t kStep = 8;
    static constexpr Run Rest = Portable::HexToUnits;

    // The bytes that each pair of digits makes, as 16-bit numbers.
    static __m128i Pairs(std::uint8_t const* in) {
        __m128i const digits = Load(in);
        __m128i const isLetter = _mm_cmpgt_epi8(digits, Splat8('9'));
        __m128i const values =
            _mm_add_epi8(_mm_and_si128(digits, Splat8(15)), _mm_and_si128(isLetter, Splat8(9)));
        __m128i const high = _mm_slli_epi16(_mm_and_si128(values, Splat16(15)), 4);
        return _mm_or_si128(high, _mm_srli_epi16(values, 8));
    }

    static bool Step(std::uint8_t const* in, std::uint8_t* out) {
        Store(out, SwapUnits(_mm_packus_epi16(Pairs(in), Pairs(in + 16))));
        return true;
    }
};

bool IsHex(std::uint8_t const* in, std::uint8_t const* end) {
    for (; end - in >= 16; in += 16) {
        __m128i const bytes = Load(in);
        __m128i const letters = InRange(_mm_or_si128(bytes, Splat8(0x20)), 'a', 'f');
        if (Mask(_mm_or_si128(letters, InRange(bytes, '0', '9'))) != kAllBytes) {
            return false;
        }
    }
    return Portable::IsHex(in, end);
}

struct AsciiToUnits {
    static constexpr std::size_t kIn = 1;
    static constexpr std::size_t kOut = 2;
    static constexpr std::size_t kStep = 16;
    static bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m128i const bytes = Load(in);
        if (Mask(bytes) != 0) {
            return false;
        }
        Store(out, _mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
        Store(out + 16, _mm_unpackhi_epi8(bytes, _mm_setzero_si128()));
        return true;
    }
};

struct TwoBytesToUnits {
    static constexpr std::size_t kIn = 2;
    static constexpr std::size_t kOut = 2;
    static constexpr std::size_t kStep = 8;
    static bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m128i const pairs = Load(in);
        __m128i const marks = _mm_and_si128(pairs, Splat16(0xC0E0));
        if (Mask(_mm_cmpeq_epi16(marks, Splat16(0x80C0))) != kAllBytes) {
            return false;
        }
        __m128i const high = _mm_slli_epi16(_mm_and_si128(pairs, Splat16(0x1F)), 6);
        Store(out, _mm_or_si128(high, _mm_and_si128(_mm_srli_epi16(pairs, 8), Splat16(0x3F))));
        return true;
    }
};

struct ThreeBytesToUnits {
    static constexpr std::size_t kIn = 3;
    static constexpr std::size_t kOut = 2;
    static constexpr std::size_t kStep = 8;

    // Four characters in 32-bit lanes; the top byte of a lane belongs to the next. The last one is loaded
    // from a byte before, so that nothing behind it is read.
    static __m128i Gather(std::uint8_t const* in) {
        std::uint32_t lanes[4];
        for (std::size_t i = 0; i < 3; ++i) {
            std::memcpy(&lanes[i], in + kIn * i, sizeof lanes[i]);
        }
        std::memcpy(&lanes[3], in + 3 * kIn - 1, sizeof lanes[3]);
        lanes[3] >>= 8;
        return Load(lanes);
    }

    static bool AreThree(__m128i lanes) {
        __m128i const marks = _mm_and_si128(lanes, _mm_set1_epi32(0x00C0C0F0));
        return Mask(_mm_cmpeq_epi32(marks, _mm_set1_epi32(0x008080E0))) == kAllBytes;
    }

    // The value with its sign, as packs_epi32 wants it.
    static __m128i Values(__m128i lanes) {
        __m128i const lead = _mm_slli_epi32(_mm_and_si128(lanes, _mm_set1_epi32(0x0F)), 12);
        __m128i const middle = _mm_srli_epi32(_mm_and_si128(lanes, _mm_set1_epi32(0x3F00)), 2);
        __m128i const last = _mm_srli_epi32(_mm_and_si128(lanes, _mm_set1_epi32(0x3F0000)), 16);
        __m128i const value = _mm_or_si128(lead, _mm_or_si128(middle, last));
        return _mm_srai_epi32(_mm_slli_epi32(value, 16), 16);
    }

    static bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m128i const first = Gather(in);
        __m128i const second = Gather(in + 4 * kIn);
        if (!AreThree(first) || !AreThree(second)) {
            return false;
        }
        Store(out, _mm_packs_epi32(Values(first), Values(second)));
        return true;
    }
};

// Whole steps of one kind.
template <typename Map>
void TakeSteps(Cursor& c) {
    while (c.Left() >= Map::kStep * Map::kIn && c.Room() >= Map::kStep * Map::kOut &&
           Map::Step(c.in, c.out)) {
        c.in += Map::kStep * Map::kIn;
        c.out += Map::kStep * Map::kOut;
    }
}

// A few characters one by one, where kinds change within a step. False if nothing can be taken.
template <void (*kRest)(Cursor&)>
bool TakeFew(Cursor& c, std::size_t inBytes, std::size_t outBytes) {
    Cursor few{c.in, c.in + std::min(c.Left(), inBytes), c.out, c.out + std::min(c.Room(), outBytes)};
    kRest(few);
    bool const any = few.in != c.in;
    c.in = few.in;
    c.out = few.out;
    return any;
}

void Utf8ToUnits(Cursor& c) {
    for (;;) {
        auto const* const before = c.in;
        TakeSteps<AsciiToUnits>(c);
        TakeSteps<TwoBytesToUnits>(c);
        TakeSteps<ThreeBytesToUnits>(c);
        if (c.in == before && !TakeFew<Portable::Utf8ToUnits>(c, c.Left(), 16)) {
            return;
        }
    }
}

struct UnitsToAscii {
    static constexpr std::size_t kIn = 2;
    static constexpr std::size_t kOut = 1;
    static constexpr std::size_t kStep = 16;
    static bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m128i const first = Load(in);
        __m128i const second = Load(in + 16);
        if (!HasNone(_mm_or_si128(first, second), 0xFF80)) {
            return false;
        }
        Store(out, _mm_packus_epi16(first, second));
        return true;
    }
};

struct UnitsToTwoBytes {
    static constexpr std::size_t kIn = 2;
    static constexpr std::size_t kOut = 2;
    static constexpr std::size_t kStep = 8;
    static bool Step(std::uint8_t const* in, std::uint8_t* out) {
        __m128i const units = Load(in);
        __m128i const isAscii = _mm_cmpeq_epi16(_mm_and_si128(units, Splat16(0xFF80)), _mm_setzero_si128());
        if (!HasNone(units, 0xF800) || Mask(isAscii) != 0) {
            return false;
        }
        __m128i const lead = _mm_or_si128(_mm_srli_epi16(units, 6), Splat16(0xC0));
        __m128i const last = _mm_or_si128(_mm_and_si128(units, Splat16(0x3F)), Splat16(0x80));
        Store(out, _mm_or_si128(lead, _mm_slli_epi16(last, 8)));
        return true;
    }
};

void UnitsToUtf8(Cursor& c) {
    for (;;) {
        auto const* const before = c.in;
        TakeSteps<UnitsToAscii>(c);
        TakeSteps<UnitsToTwoBytes>(c);
        if (c.in == before && !TakeFew<Portable::UnitsToUtf8>(c, 16, c.Room())) {
            return;
        }
    }
}

}  // namespace

constinit Runs const kSse2Runs = {
    .utf8ToUnits = Utf8ToUnits,
    .unitsToUtf8 = UnitsToUtf8,
    .utf8ToLatin1 = MapRun<CopyAscii>,
    .latin1ToUtf8 = MapRun<CopyAsciiNoNul>,
    .unitsToHex = MapRun<UnitsToHex>,
    .hexToUnits = MapRun<HexToUnits>,
    .copyAscii = MapRun<CopyAscii>,
    .copyGsmPlain = MapRun<CopyGsmPlain>,
    .latin1ToUnits = MapRun<Latin1ToUnits>,
    .unitsToLatin1 = MapRun<UnitsToLatin1>,
    .unitsToGsm = nullptr,
    .isHex = IsHex,
};

}  // namespace System::Text

#endif
