#include "platform/QueueDescriptor.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>

#include "platform/Bell.h"
#include "platform/Clock.h"

namespace System::Platform {

namespace {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;

int Watch(FileDescriptor const& poll, FileDescriptor const& watched) {
    epoll_event event{};
    event.events = EPOLLIN;
    return ::epoll_ctl(poll.Get(), EPOLL_CTL_ADD, watched.Get(), &event) == 0 ? 0 : errno;
}

}  // namespace

int QueueDescriptor::Open(std::uint32_t inboxNumber) {
    FileDescriptor timer(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    FileDescriptor poll(timer.IsOpen() ? ::epoll_create1(EPOLL_CLOEXEC) : -1);
    if (!poll.IsOpen()) {
        return errno;
    }
    FileDescriptor bell;
    int error = CreateBell(inboxNumber, bell);
    if (error == 0) {
        error = Watch(poll, bell);
    }
    if (error == 0) {
        error = Watch(poll, timer);
    }
    if (error != 0) {
        return error;
    }
    m_Bell = std::move(bell);
    m_Timer = std::move(timer);
    m_Poll = std::move(poll);
    return 0;
}

void QueueDescriptor::Ring() {
    RingBell(m_Bell);
}

void QueueDescriptor::Silence(std::int64_t dueNs) {
    SilenceBell(m_Bell);
    itimerspec due{};
    if (dueNs != Deadline::kNever) {
        // A time of 0 would disarm it; whatever is past is due at once.
        std::int64_t const at = std::max<std::int64_t>(dueNs, 1);
        due.it_value = {at / kNsPerSecond, at % kNsPerSecond};
    }
    // Setting it also takes back an expiry that was not read. Fails only for a time that is no time.
    static_cast<void>(::timerfd_settime(m_Timer.Get(), TFD_TIMER_ABSTIME, &due, nullptr));
}

}  // namespace System::Platform
