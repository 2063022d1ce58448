#pragma once

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "text/Runs.h"
#include "text/Utf8Char.h"

// The frame of both directions. A converter adds its form, a class with the mapping of one character:
//
//     kMaxBytes                        bytes of the longest character of the external form
//     Encode(value, bytes)             writes the external form of a character, at most kMaxBytes; gives the
//                                      number of bytes, 0 for a character that comes out as nothing
//     Decode(in, end)                  reads one character of the external form
//     RunFromUtf8(runs, cursor)        takes whole characters fast, each as Encode and Decode have it, and
//     RunToUtf8(runs, cursor)          leaves what is malformed or does not fit to the rule
//
// The rule below, one character at a time, alone decides about errors and about a full output.

namespace System::Text {

struct Decoded {
    enum Kind : std::uint8_t { kCharacter, kNothing, kMalformed };
    Kind kind;
    std::uint8_t length;  // bytes of the external form that it took
    std::uint16_t value;
};

inline Cursor MakeCursor(void const* src, unsigned srcLen, void* dst, unsigned dstLen) {
    auto const* in = static_cast<std::uint8_t const*>(src);
    auto* out = static_cast<std::uint8_t*>(dst);
    return {in, in + srcLen, out, out + dstLen};
}

// Says when to ask for a run: always, but for a while after one that took nothing, so that text which runs
// can't take costs no more than the rule.
class RunPace {
public:
    bool Due() { return m_Wait == 0 || --m_Wait == 0; }
    void Took(bool anything) { m_Wait = anything ? 0 : kPause; }

private:
    static constexpr unsigned kPause = 16;
    unsigned m_Wait = 0;
};

template <typename Form>
int FrameFromUtf8(Form const& form, char const* src, unsigned srcLen, void* dst, unsigned dstLen,
                  unsigned* outLen) {
    Cursor c = MakeCursor(src, srcLen, dst, dstLen);
    Runs const* const runs = CurrentRuns();
    RunPace pace;
    int result = 0;
    while (c.in != c.inEnd) {
        if (runs != nullptr && pace.Due()) {
            auto const* const before = c.in;
            form.RunFromUtf8(*runs, c);
            pace.Took(c.in != before);
            if (c.in == c.inEnd) {
                break;
            }
        }
        Utf8Char const character = ReadUtf8Char(c.in, c.inEnd);
        if (character.length == 0) {
            result = EINVAL;
            ++c.in;
            continue;
        }
        std::uint8_t bytes[Form::kMaxBytes];
        std::size_t const count = form.Encode(character.value, bytes);
        if (count > c.Room()) {
            result = result != 0 ? result : E2BIG;
            break;
        }
        std::copy_n(bytes, count, c.out);
        c.out += count;
        c.in += character.length;
    }
    *outLen = dstLen - static_cast<unsigned>(c.Room());
    return result;
}

template <typename Form>
int FrameToUtf8(Form const& form, void const* src, unsigned srcLen, char* dst, unsigned dstLen,
                unsigned* outLen) {
    Cursor c = MakeCursor(src, srcLen, dst, dstLen);
    Runs const* const runs = CurrentRuns();
    RunPace pace;
    int result = 0;
    while (c.in != c.inEnd) {
        if (runs != nullptr && pace.Due()) {
            auto const* const before = c.in;
            form.RunToUtf8(*runs, c);
            pace.Took(c.in != before);
            if (c.in == c.inEnd) {
                break;
            }
        }
        Decoded const decoded = form.Decode(c.in, c.inEnd);
        if (decoded.kind == Decoded::kMalformed) {
            result = EINVAL;
        } else if (decoded.kind == Decoded::kCharacter) {
            std::size_t const count = WriteUtf8Char(decoded.value, c.out, c.outEnd);
            if (count == 0) {
                result = E2BIG;
                break;
            }
            c.out += count;
        }
        c.in += decoded.length;
    }
    *outLen = dstLen - static_cast<unsigned>(c.Room());
    return result;
}

// Units on their way between UTF-8 and a form that has no direct run; they stay in the first-level cache.
inline constexpr std::size_t kChunkUnits = 512;
using UnitChunk = std::array<std::uint8_t, 2 * kChunkUnits>;
// With room for fewer units than this, a detour through a chunk isn't worth its while.
inline constexpr std::size_t kFewUnits = 8;

// UTF-8 to the external form through a chunk of units. `encode(cursor)` has to take all of the units that it
// is given; there is room for kMaxBytes of each.
template <std::size_t kMaxBytes, typename Encode>
void RunThroughUnitsFromUtf8(Runs const& runs, Cursor& c, Encode&& encode) {
    UnitChunk chunk;
    while (c.in != c.inEnd) {
        std::size_t const units = std::min(kChunkUnits, c.Room() / kMaxBytes);
        if (units < kFewUnits) {
            return;
        }
        Cursor decode{c.in, c.inEnd, chunk.data(), chunk.data() + 2 * units};
        runs.utf8ToUnits(decode);
        if (decode.out == chunk.data()) {
            return;
        }
        Cursor rest{chunk.data(), decode.out, c.out, c.outEnd};
        encode(rest);
        c.in = decode.in;
        c.out = rest.out;
    }
}

// The external form to UTF-8 through a chunk of units. `decode(cursor)` takes what it can and stops at the
// first malformed byte.
template <typename Decode>
void RunThroughUnitsToUtf8(Runs const& runs, Cursor& c, Decode&& decode) {
    constexpr std::size_t kMaxUtf8 = 3;
    UnitChunk chunk;
    while (c.in != c.inEnd) {
        std::size_t const units = std::min(kChunkUnits, c.Room() / kMaxUtf8);
        if (units < kFewUnits) {
            return;
        }
        Cursor first{c.in, c.inEnd, chunk.data(), chunk.data() + 2 * units};
        decode(first);
        if (first.in == c.in) {
            return;
        }
        Cursor second{chunk.data(), first.out, c.out, c.outEnd};
        runs.unitsToUtf8(second);
        c.in = first.in;
        c.out = second.out;
    }
}

}  // namespace System::Text
