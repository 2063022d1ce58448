#include "Balance.h"

#include <cstdio>

namespace Storm {

namespace {

void Row(char const* name, std::uint64_t value, char const* note = "") {
    std::printf("  %-44s%12llu  %s\n", name, static_cast<unsigned long long>(value), note);
}

// A row that must have one value.
bool Demand(char const* name, std::uint64_t value, std::uint64_t wanted) {
    Row(name, value, value == wanted ? "" : "WRONG");
    return value == wanted;
}

bool DrawRequests(Totals const& totals, Crew const& crew) {
    std::printf("\nrequests\n");
    Row("sent", totals.sent);
    Row("answered right", totals.answered);
    Row("refused", totals.refused);
    Row("given up", totals.givenUp);
    // Each kill of a client cuts off one request at most.
    bool const isCutOffPlausible = totals.CutOff() <= crew.ClientKills();
    Row("cut off by the death of their sender", totals.CutOff(), isCutOffPlausible ? "" : "WRONG");
    return Demand("wrong", totals.wrong, 0) && isCutOffPlausible && totals.answered > 0;
}

bool DrawNotifications(Board const& board, Totals const& totals) {
    std::printf("notifications\n");
    Row("sent by clients", totals.notified);
    Row("handled by servers", board.notificationsHandled);
    Row("deliveries handled by clients", totals.delivered);
    bool holds = Demand("lost, doubled or out of order", board.outOfOrder, 0);
    holds &= Demand("wrong at a server, requests too", board.wrongAtServer, 0);
    return holds;
}

bool DrawHandles(Board const& board) {
    std::printf("handles\n");
    Row("deaths inside the channel's lock", board.deathsInTheLock);
    Row("purged meanwhile for dead clients", board.purgedMeanwhile);
    Row("live at the end", board.liveBeforePurge);
    Row("purged at the end", board.purged);
    Row("live after the purge", board.liveAfterPurge);
    bool holds = Demand("of these without a living owner", board.notOwned, 0);
    holds &= Demand("of a living owner and gone", board.lost, 0);
    return holds && board.isExamined.load() != 0;
}

}  // namespace

Totals TotalsOf(Board const& board) {
    Totals totals;
    for (ClientSlot const& slot : board.clients) {
        totals.answered += slot.answered;
        totals.refused += slot.refused;
        totals.givenUp += slot.givenUp;
        totals.wrong += slot.wrong;
        totals.notified += slot.notified;
        totals.delivered += slot.delivered;
        // Last, so that an end is never counted without its beginning while the storm goes on.
        totals.sent += slot.sent;
    }
    return totals;
}

bool DrawBalance(Board const& board, Crew const& crew, double seconds,
                 std::vector<std::string> const& filesLeft) {
    Totals const totals = TotalsOf(board);
    std::printf("\n%.1f seconds, %llu servers and %llu clients killed\n", seconds,
                static_cast<unsigned long long>(crew.ServerKills()),
                static_cast<unsigned long long>(crew.ClientKills()));
    bool holds = DrawRequests(totals, crew);
    holds &= DrawNotifications(board, totals);
    holds &= DrawHandles(board);
    std::printf("callers of a killed server\n");
    Row("held", board.heldTimes.Count());
    std::printf("  %-44s%12.2f ms\n  %-44s%12.2f ms\n", "p99", board.heldTimes.Percentile(0.99), "longest",
                board.heldTimes.MaxMs());
    std::printf("left behind\n");
    holds &= Demand("files", filesLeft.size(), 0);
    for (std::string const& name : filesLeft) {
        std::printf("    %s\n", name.c_str());
    }
    holds &= Demand("mappings", board.mappingsLeft, 0);
    std::printf("faults\n");
    holds &= Demand("errors logged", board.errorsLogged, 0);
    holds &= Demand("processes that fell by themselves", crew.Fallen(), 0);
    std::printf("\n%s\n", holds ? "The balance holds." : "THE BALANCE DOES NOT HOLD.");
    return holds;
}

}  // namespace Storm
