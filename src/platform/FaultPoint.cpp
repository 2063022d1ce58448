#include "platform/FaultPoint.h"

#ifdef CORVALEN_FAULT_POINTS

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <charconv>
#include <cstdlib>
#include <string>
#include <string_view>

namespace System::Platform {

namespace {

struct Plan {
    std::string dieAt;
    long passages = 1;
    int listing = -1;
};

Plan ReadPlan() {
    Plan plan;
    if (char const* const dieAt = std::getenv("CORVALEN_DIE_AT")) {
        std::string_view const text = dieAt;
        auto const colon = text.find(':');
        plan.dieAt = text.substr(0, colon);
        if (colon != std::string_view::npos) {
            std::from_chars(text.data() + colon + 1, text.data() + text.size(), plan.passages);
        }
    }
    if (char const* const list = std::getenv("CORVALEN_FAULT_LIST")) {
        plan.listing = ::open(list, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    }
    return plan;
}

}  // namespace

void FaultPoint(char const* name) {
    static Plan const s_Plan = ReadPlan();
    static std::atomic<long> s_Passages{0};
    if (s_Plan.listing >= 0) {
        std::string const line = std::string(name) + "\n";
        // A list that can't be written shows in the test that reads it.
        static_cast<void>(!::write(s_Plan.listing, line.data(), line.size()));
    }
    if (!s_Plan.dieAt.empty() && s_Plan.dieAt == name && ++s_Passages == s_Plan.passages) {
        static_cast<void>(::kill(::getpid(), SIGKILL));
    }
}

}  // namespace System::Platform

#endif
