#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Board.h"
#include "Crew.h"

namespace Storm {

struct Totals {
    std::uint64_t sent = 0, answered = 0, refused = 0, givenUp = 0, wrong = 0, notified = 0, delivered = 0;

    /// Requests whose sender was killed before their end.
    [[nodiscard]] std::uint64_t CutOff() const { return sent - answered - refused - givenUp - wrong; }
};

[[nodiscard]] Totals TotalsOf(Board const& board);

/// Prints the balance and tells whether it holds.
bool DrawBalance(Board const& board, Crew const& crew, double seconds,
                 std::vector<std::string> const& filesLeft);

}  // namespace Storm
