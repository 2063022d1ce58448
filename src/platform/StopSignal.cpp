#include "platform/StopSignal.h"

#include <elf.h>
#include <link.h>
#include <signal.h>
#include <ucontext.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/ErrnoGuard.h"
#include "platform/StopDelay.h"

namespace System::Platform {

namespace {

// The allocator, the loader and the streams keep locks that would never be free again if their holder were
// ended. A thread inside one of these objects is left alone for a while.
constexpr std::string_view kRuntimeNames[] = {
    "libc.",     "libc-",   "ld-linux",         "libpthread",  "libstdc++",   "libc++",      "libgcc_s",
    "libunwind", "libasan", "libclang_rt.asan", "libjemalloc", "libtcmalloc", "libmimalloc",
};

struct CodeRange {
    std::uintptr_t start;
    std::uintptr_t end;
};

// Written once, before the first thread that could be stopped; the handler must not ask the loader itself.
struct Runtime {
    std::array<CodeRange, 64> ranges;
    std::size_t count = 0;
    int signal = 0;
};

constinit Runtime s_Runtime{};

[[gnu::tls_model("initial-exec")]] constinit thread_local std::atomic<StopRequest> const* t_Request = nullptr;

bool IsRuntime(std::string_view path) {
    std::string_view const name = path.substr(path.rfind('/') + 1);
    for (std::string_view const start : kRuntimeNames) {
        if (name.starts_with(start)) {
            return true;
        }
    }
    return false;
}

int NoteObject(dl_phdr_info* object, std::size_t, void*) {
    if (!IsRuntime(object->dlpi_name)) {
        return 0;
    }
    for (int i = 0; i < object->dlpi_phnum && s_Runtime.count < s_Runtime.ranges.size(); ++i) {
        auto const& header = object->dlpi_phdr[i];
        if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0) {
            std::uintptr_t const start = object->dlpi_addr + header.p_vaddr;
            s_Runtime.ranges[s_Runtime.count++] = {start, start + header.p_memsz};
        }
    }
    return 0;
}

bool IsInRuntime(std::uintptr_t place) {
    for (std::size_t i = 0; i < s_Runtime.count; ++i) {
        if (place >= s_Runtime.ranges[i].start && place < s_Runtime.ranges[i].end) {
            return true;
        }
    }
    return false;
}

struct Place {
    std::uintptr_t instruction;
    bool isInterruptedWait;  // directly behind a system call that the signal has interrupted
};

Place PlaceOf(ucontext_t const& context) {
#if defined(__x86_64__)
    static constexpr unsigned char kSystemCall[] = {0x0f, 0x05};
    auto const place = static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RIP]);
    bool const isInterrupted = context.uc_mcontext.gregs[REG_RAX] == -EINTR;
#elif defined(__aarch64__)
    static constexpr unsigned char kSystemCall[] = {0x01, 0x00, 0x00, 0xd4};
    auto const place = static_cast<std::uintptr_t>(context.uc_mcontext.pc);
    bool const isInterrupted = static_cast<long>(context.uc_mcontext.regs[0]) == -EINTR;
#else
#error "tell where this processor keeps the instruction pointer and the result of a system call"
#endif
    return {place, isInterrupted && std::memcmp(reinterpret_cast<void const*>(place - sizeof kSystemCall),
                                                kSystemCall, sizeof kSystemCall) == 0};
}

// A call that the signal has interrupted was waiting, and whoever waits for a lock does not hold it. The
// calls that the allocator makes with its lock held are never interrupted.
bool MayStopAt(ucontext_t const& context) {
    Place const place = PlaceOf(context);
    return !IsInRuntime(place.instruction) || place.isInterruptedWait;
}

void OnSignal(int, siginfo_t*, void* context) {
    ErrnoGuard const keepErrno;
    StopRequest const request =
        t_Request != nullptr ? t_Request->load(std::memory_order_relaxed) : StopRequest::kNone;
    if (request == StopRequest::kNone) {
        return;
    }
    if (Detail::t_Stop.depth.load(std::memory_order_relaxed) > 0) {
        Detail::t_Stop.isPending.store(true, std::memory_order_relaxed);
        return;
    }
    if (request == StopRequest::kAnywhere || MayStopAt(*static_cast<ucontext_t*>(context))) {
        Detail::EndStoppedThread();
    }
}

// Hosts tend to take theirs from the low end.
int FreeSignal() {
    for (int signal = SIGRTMAX; signal >= SIGRTMIN; --signal) {
        struct sigaction current {};
        if (::sigaction(signal, nullptr, &current) == 0 && (current.sa_flags & SA_SIGINFO) == 0 &&
            current.sa_handler == SIG_DFL) {
            return signal;
        }
    }
    return 0;
}

bool Install() {
    static_cast<void>(::dl_iterate_phdr(NoteObject, nullptr));
    s_Runtime.signal = FreeSignal();
    struct sigaction action {};
    action.sa_sigaction = OnSignal;
    // Without SA_RESTART: an interrupted wait shows as such, see MayStopAt.
    action.sa_flags = SA_SIGINFO;
    ::sigemptyset(&action.sa_mask);
    return s_Runtime.signal != 0 && ::sigaction(s_Runtime.signal, &action, nullptr) == 0;
}

}  // namespace

bool StopSignal::Prepare() {
    static bool const s_IsInstalled = Install();
    return s_IsInstalled;
}

void StopSignal::SetRequest(std::atomic<StopRequest> const* request) {
    t_Request = request;
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

void StopSignal::Unblock() {
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, s_Runtime.signal);
    // Fails only for an unknown way of changing the mask.
    static_cast<void>(::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr));
}

void StopSignal::Send(pthread_t thread) {
    // Fails only for a thread that has ended, which is what the caller waits for.
    static_cast<void>(::pthread_kill(thread, s_Runtime.signal));
}

}  // namespace System::Platform
