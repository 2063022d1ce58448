// What the vector levels share. Each of their sources includes this once, with CORVALEN_RUN_TARGET the
// attribute of the instructions that it may use: a function of another level would neither inline nor run
// everywhere.
#pragma once

#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "text/Runs.h"
#include "text/RunsPortable.h"

namespace System::Text {
namespace {

// Copies exactly `count` bytes, at most 64, with two overlapping moves.
inline void CopyExactly(std::uint8_t* out, std::uint8_t const* in, std::size_t count) {
    if (count >= 32) {
        std::uint8_t head[32];
        std::uint8_t tail[32];
        std::memcpy(head, in, 32);
        std::memcpy(tail, in + count - 32, 32);
        std::memcpy(out, head, 32);
        std::memcpy(out + count - 32, tail, 32);
    } else if (count >= 16) {
        std::uint8_t head[16];
        std::uint8_t tail[16];
        std::memcpy(head, in, 16);
        std::memcpy(tail, in + count - 16, 16);
        std::memcpy(out, head, 16);
        std::memcpy(out + count - 16, tail, 16);
    } else if (count >= 4) {
        // Four moves of four bytes cover four to fifteen: the second pair starts in the middle.
        std::size_t const middle = count >= 8 ? 4 : 0;
        std::uint32_t moves[4];
        std::memcpy(&moves[0], in, 4);
        std::memcpy(&moves[1], in + middle, 4);
        std::memcpy(&moves[2], in + count - 4 - middle, 4);
        std::memcpy(&moves[3], in + count - 4, 4);
        std::memcpy(out, &moves[0], 4);
        std::memcpy(out + middle, &moves[1], 4);
        std::memcpy(out + count - 4 - middle, &moves[2], 4);
        std::memcpy(out + count - 4, &moves[3], 4);
    } else {
        for (std::size_t i = 0; i < count; ++i) {
            out[i] = in[i];
        }
    }
}

// A run over characters that are all of one size on either side. Map has
//
//     kIn, kOut        bytes of one character
//     kStep            characters of one step
//     Step(in, out)    converts one step; false, with nothing written, if a character isn't of the run's kind
//     Rest(cursor)     the portable run
//
// The last step overlaps the one before, so that only a short text, or the step before the end of the run, is
// left to the portable run.
template <typename Map>
CORVALEN_RUN_TARGET void MapRun(Cursor& c) {
    std::size_t left = std::min(c.Left() / Map::kIn, c.Room() / Map::kOut);
    if (left < Map::kStep) {
        Map::Rest(c);
        return;
    }
    bool isWhole = true;
    std::size_t const all = left;
    while (left >= Map::kStep && (isWhole = Map::Step(c.in, c.out))) {
        c.in += Map::kStep * Map::kIn;
        c.out += Map::kStep * Map::kOut;
        left -= Map::kStep;
    }
    if (isWhole && left != 0 && all != left) {
        std::size_t const back = Map::kStep - left;
        if (Map::Step(c.in - back * Map::kIn, c.out - back * Map::kOut)) {
            c.in += left * Map::kIn;
            c.out += left * Map::kOut;
            return;
        }
    }
    if (left != 0) {
        Map::Rest(c);
    }
}

}  // namespace
}  // namespace System::Text
