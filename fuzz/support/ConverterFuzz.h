#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "corvalen/text/Utf8Converter.h"
#include "text/Runs.h"

// What the fuzz targets of the converters check: that no level of runs differs from the rule, that nothing
// outside the input is read and nothing behind the output written, and that what a converter wrote it reads.

namespace Fuzz {

using System::Text::RunLevel;
using System::Text::SetRunLevel;
using System::Text::Utf8Converter;

inline void Check(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// Pages that end at a page nobody may touch.
class GuardedBlock {
public:
    static constexpr std::size_t kSize = 1 << 16;

    GuardedBlock() : m_Page(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))) {
        void* const all =
            ::mmap(nullptr, kSize + m_Page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        Check(all != MAP_FAILED);
        m_Begin = static_cast<char*>(all);
        Check(::mprotect(m_Begin + kSize, m_Page, PROT_NONE) == 0);
    }
    ~GuardedBlock() { ::munmap(m_Begin, kSize + m_Page); }
    GuardedBlock(GuardedBlock const&) = delete;
    GuardedBlock& operator=(GuardedBlock const&) = delete;

    // The last `size` bytes before the guard.
    [[nodiscard]] char* Last(std::size_t size) const { return m_Begin + kSize - size; }

private:
    std::size_t m_Page;
    char* m_Begin;
};

struct Outcome {
    int result;
    std::string block;  // the whole of the room, so that a byte behind the output counts
    unsigned length;
    bool operator==(Outcome const&) const = default;
};

enum class Direction { kFromUtf8, kToUtf8 };

inline Outcome Convert(Utf8Converter const& converter, Direction direction, std::string const& input,
                       unsigned room) {
    static GuardedBlock const s_Source;
    static GuardedBlock const s_Target;
    char* const src = s_Source.Last(input.size());
    char* const dst = s_Target.Last(room);
    input.copy(src, input.size());
    std::memset(dst, 0x5A, room);
    unsigned length = room + 1;
    auto const size = static_cast<unsigned>(input.size());
    int const result = direction == Direction::kFromUtf8 ? converter.FromUtf8(src, size, dst, room, &length)
                                                         : converter.ToUtf8(src, size, dst, room, &length);
    Check(length <= room);
    return {result, std::string(dst, room), length};
}

// The outcome by the rule; every level has to give the same.
inline Outcome ConvertAtAllLevels(Utf8Converter const& converter, Direction direction,
                                  std::string const& input, unsigned room) {
    SetRunLevel(RunLevel::kRule);
    Outcome const expected = Convert(converter, direction, input, room);
    for (RunLevel const level : {RunLevel::kPortable, RunLevel::kSse2, RunLevel::kAvx2, RunLevel::kAvx512}) {
        Check(!SetRunLevel(level) || Convert(converter, direction, input, room) == expected);
    }
    return expected;
}

// The first byte is the missing character, the next two the room for a first try; the rest is the text.
inline void TryConverter(Utf8Converter& converter, std::uint8_t const* data, std::size_t size) {
    constexpr std::size_t kHead = 3;
    constexpr std::size_t kMostInput = 4096;
    if (size < kHead || size > kMostInput) {
        return;
    }
    converter.SetMissingChar(static_cast<char>(data[0]));
    unsigned const room = (data[1] | static_cast<unsigned>(data[2]) << 8) % (2 * kMostInput);
    std::string const input(reinterpret_cast<char const*>(data) + kHead, size - kHead);
    // Enough for what came of the text to be converted once more.
    auto const plenty = static_cast<unsigned>(8 * input.size() + 64);
    for (Direction const direction : {Direction::kFromUtf8, Direction::kToUtf8}) {
        Outcome const cut = ConvertAtAllLevels(converter, direction, input, room);
        Outcome const whole = ConvertAtAllLevels(converter, direction, input, plenty);
        Check(cut.block.compare(0, cut.length, whole.block, 0, cut.length) == 0 || cut.result == 0);
    }
    // What was written, without a missing character that need not be a code, comes back as it went.
    converter.SetMissingChar(0);
    Outcome const there = Convert(converter, Direction::kFromUtf8, input, plenty);
    std::string const external = there.block.substr(0, there.length);
    Outcome const utf8 = Convert(converter, Direction::kToUtf8, external, plenty);
    Outcome const again = Convert(converter, Direction::kFromUtf8, utf8.block.substr(0, utf8.length), plenty);
    Outcome const back = Convert(converter, Direction::kToUtf8, again.block.substr(0, again.length), plenty);
    Check(back == utf8);
}

}  // namespace Fuzz
