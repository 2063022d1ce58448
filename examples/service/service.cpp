// A service with an event loop of its own: it logs to a file that rotates and to the standard output, beats
// on a timer, reads a setting from the registry, and ends on SIGTERM.
//
//   service LOG

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>

#include "corvalen/diagnostics/ComponentLog.h"
#include "corvalen/diagnostics/Log.h"
#include "corvalen/platform/MessageQueue.h"
#include "corvalen/system/Framework.h"
#include "corvalen/text/TextUtils.h"
#include "corvalen/win32/Registry.h"

namespace {

using System::Diagnostics::FLog;
using System::Platform::Message;
using System::Platform::MessageQueue;

constexpr unsigned kInformation = 2;
constexpr std::uint64_t kService = 1U << 1U;  // bit 0 is the library's own

void Log(std::string const& text) {
    FLog::Put(kInformation, kService, "SERVICE", "-", text.c_str());
}

std::string Greeting() {
    using namespace Microsoft::Win32;
    constexpr unsigned kMaxGreeting = 256;
    std::unique_ptr<RegistryKey> const root(Registry::LocalMachine());
    std::unique_ptr<RegistryKey> const key(root->OpenSubKey(u"Software\\Corvalen\\Example"));
    char16_t value[kMaxGreeting];
    std::string text = "no greeting";
    if (key && key->GetValue(u"Greeting", value, sizeof value)) {
        System::Text::CTextUtils::ConvertWCHARtoUTF8(value, text);
    }
    return text;
}

void OnBeat(std::uint32_t /*window*/, std::uint32_t /*message*/, std::uint32_t /*id*/,
            std::uint32_t /*time*/) {
    Log("beat");
}

// A descriptor that is readable once the process is told to end.
int EndDescriptor() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    return sigprocmask(SIG_BLOCK, &signals, nullptr) == 0 ? signalfd(-1, &signals, SFD_CLOEXEC) : -1;
}

// The queue brings the ticks, and whatever comes to channels that are opened on this thread.
void Serve(int end) {
    MessageQueue& queue = MessageQueue::Current();
    pollfd watched[] = {{queue.Descriptor(), POLLIN, 0}, {end, POLLIN, 0}};
    while (poll(watched, std::size(watched), -1) >= 0 || errno == EINTR) {
        if ((watched[1].revents & POLLIN) != 0) {
            return;
        }
        Message message;
        while (queue.Peek(message)) {
            queue.Dispatch(message);
        }
    }
    Log("poll failed");
}

int Run(std::string const& log) {
    constexpr unsigned kBeatMs = 50;
    System::Diagnostics::FRteCompLog const file(log.c_str(), static_cast<unsigned>(log.size()));
    FLog::RegisterProc(FLog::PrintProc, stdout);
    // Before anything that may start a thread, so that none of them takes the signals.
    int const end = EndDescriptor();
    std::uint32_t const beat = MessageQueue::Current().SetTimer(kBeatMs, OnBeat);
    if (end == -1 || beat == 0) {
        std::fputs("no descriptor or no timer to be had\n", stderr);
        return 1;
    }
    Log(Greeting());
    Serve(end);
    Log("told to end");
    MessageQueue::Current().KillTimer(beat);
    close(end);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: service LOG, the path of the log file without its extension\n", stderr);
        return 2;
    }
    InitFramework();
    int const result = Run(argv[1]);
    ExitFramework();
    return result;
}
