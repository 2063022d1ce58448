#pragma once

#include <cstdint>
#include <string>

#include "Board.h"

namespace Storm {

constexpr char16_t kServerTitle[] = u"storm";

/// What a spawned process is: all that its command line says.
struct Assignment {
    std::string role;  // "server", "client", "examiner" or "visitor"
    std::string channel;
    std::uint32_t slot = 0;         // of a client
    std::uint32_t life = 0;         // of a client, or which server
    std::uint32_t seed = 0;         // of its random decisions
    std::uint32_t parent = 0;       // process id of the storm
    std::int64_t holdingSince = 0;  // examiner: wall seconds before the first answer that is held
};

/// Each runs until its part is over and returns the exit code of the process.
int RunServer(Board& board, Assignment const& assignment);
int RunClient(Board& board, Assignment const& assignment);
int RunExaminer(Board& board, Assignment const& assignment);
/// Opens the channel when all others are gone, as the next run of a server would, and closes it. An opening
/// takes away what killed processes have left.
int RunVisitor(Board& board, Assignment const& assignment);

/// Counts what this process's log tells of errors and of deaths inside the channel's lock on the board;
/// errors go to standard error as well.
class ErrorWatch {
public:
    explicit ErrorWatch(Board& board);
    ~ErrorWatch();
    ErrorWatch(ErrorWatch const&) = delete;
    ErrorWatch& operator=(ErrorWatch const&) = delete;

private:
    Board& m_Board;
};

[[nodiscard]] std::u16string Wide(std::string const& ascii);
/// Mappings of this process that bear `name`; to be asked when the channel is closed.
[[nodiscard]] std::uint64_t MappingsOf(std::string const& name);

}  // namespace Storm
