#include "Roles.h"

#include <cstdio>
#include <cstring>
#include <fstream>

#include "corvalen/diagnostics/Log.h"
#include "corvalen/system/Framework.h"

namespace Storm {

namespace {

using System::Diagnostics::FLog;

void CountReport(void* user, unsigned severity, std::uint64_t /*component*/, char const* /*name*/,
                 unsigned threadId, long /*time*/, char const* /*context*/, char const* text) {
    auto& board = *static_cast<Board*>(user);
    if (std::strstr(text, "filler == 0") != nullptr) {
        board.deathsInTheLock++;
    }
    if (severity == 0) {
        board.errorsLogged++;
        std::fprintf(stderr, "\nerror logged by %u: %s\n", threadId, text);
    }
}

}  // namespace

ErrorWatch::ErrorWatch(Board& board) : m_Board(board) {
    InitFramework();
    FLog::RegisterProc(CountReport, &m_Board);
}

ErrorWatch::~ErrorWatch() {
    FLog::UnregisterProc(CountReport, &m_Board);
    ExitFramework();
}

std::u16string Wide(std::string const& ascii) {
    return {ascii.begin(), ascii.end()};
}

std::uint64_t MappingsOf(std::string const& name) {
    std::ifstream maps("/proc/self/maps");
    std::uint64_t count = 0;
    for (std::string line; std::getline(maps, line);) {
        count += line.find(name) != std::string::npos ? 1 : 0;
    }
    return count;
}

}  // namespace Storm
