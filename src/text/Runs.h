#pragma once

#include <cstddef>
#include <cstdint>

namespace System::Text {

// What is left of the input and of the room for the output.
struct Cursor {
    std::uint8_t const* in;
    std::uint8_t const* inEnd;
    std::uint8_t* out;
    std::uint8_t* outEnd;

    [[nodiscard]] std::size_t Left() const { return static_cast<std::size_t>(inEnd - in); }
    [[nodiscard]] std::size_t Room() const { return static_cast<std::size_t>(outEnd - out); }
};

// Takes whole characters from the input as long as they are of the kind that the run is for and fit, writes
// them, and moves the cursor behind them. It reads nothing outside the input and writes nothing but what it
// counts: the bytes behind `out` keep what they held. A run never decides about an error.
using Run = void (*)(Cursor&);

// The GSM codes of characters: the code, negated for one behind the escape, or -1 for none.
struct GsmCodes {
    signed char const* low;    // of U+0000 to U+00FF
    signed char const* greek;  // of U+0380 to U+03FF
};

// The loops over the common text, one set for each kind of processor. "Units" are 16 bits, low byte first.
struct Runs {
    Run utf8ToUnits;    // well-formed sequences of one to three bytes
    Run unitsToUtf8;    // any units
    Run utf8ToLatin1;   // 0x00 to 0x7F and 0xA0 to 0xFF; may stop before the latter
    Run latin1ToUtf8;   // 0x01 to 0x7F and 0xA0 to 0xFF; may stop before the latter
    Run unitsToHex;     // any units
    Run hexToUnits;     // groups of four digits; the caller has seen to it that there is nothing else
    Run copyAscii;      // 0x00 to 0x7F
    Run copyGsmPlain;   // the characters whose GSM code is their ASCII code
    Run latin1ToUnits;  // 0x01 to 0x7F and 0xA0 to 0xFF
    Run unitsToLatin1;  // 0x00 to 0x7F and 0xA0 to 0xFF
    // Units that have a code; null where the table in GsmConv does as well.
    void (*unitsToGsm)(Cursor&, GsmCodes const&);
    bool (*isHex)(std::uint8_t const* in, std::uint8_t const* end);  // nothing but hexadecimal digits
};

// kRule has no runs: each character goes through the rule of its converter, against which the other levels
// are tested.
enum class RunLevel { kRule, kPortable, kSse2, kAvx2, kAvx512 };

// The best level of this processor, unless SetRunLevel has said otherwise; null at kRule. Any thread may ask.
[[nodiscard]] Runs const* CurrentRuns();

// For tests: from now on all conversions use `level`. False if this processor has no such level.
bool SetRunLevel(RunLevel level);
[[nodiscard]] RunLevel BestRunLevel();

extern Runs const kPortableRuns;
#if defined(__x86_64__)
extern Runs const kSse2Runs;
extern Runs const kAvx2Runs;
extern Runs const kAvx512Runs;
#endif

}  // namespace System::Text
