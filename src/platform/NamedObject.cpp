#include "platform/NamedObject.h"

#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <utility>

#include "platform/Clock.h"
#include "platform/FaultPoint.h"
#include "platform/FileDescriptor.h"
#include "platform/FileLock.h"
#include "platform/ObjectFile.h"
#include "platform/StopDelay.h"

namespace System::Platform {

namespace {

// Byte 0 of a file is locked around opening and closing. Each kind has a range of its own for its holders'
// numbers, so that a holder's lock tells its kind as well.
constexpr std::int64_t kOpeningByte = 0;
constexpr std::int64_t kBytesOfKind = 65536;
constexpr std::int64_t kKinds = 4;
constexpr std::int64_t kOpeningLimitMs = 4000;

std::int64_t ByteOf(Kind kind, unsigned participant) {
    return static_cast<std::int64_t>(kind) * kBytesOfKind + participant;
}

// Sleeps for the `look`-th time between two looks at a lock that the kernel can't wait for with a limit.
void PauseBeforeLook(unsigned look) {
    constexpr long kShortestNs = 20'000;
    constexpr unsigned kDoublings = 6;
    timespec const pause{0, kShortestNs << (look < kDoublings ? look : kDoublings)};
    static_cast<void>(::nanosleep(&pause, nullptr));
}

int TakeOpeningLock(int descriptor, std::int64_t untilNs) {
    for (unsigned look = 0;; ++look) {
        int const error = FileLock::TryTake(descriptor, kOpeningByte);
        if (error != EAGAIN || Clock::MonotonicNs() >= untilNs) {
            return error;
        }
        PauseBeforeLook(look);
    }
}

// Where the search for a free number starts: spread, so that a thousand holders do not walk over each other.
unsigned FirstNumber() {
    static std::atomic<std::uint32_t> s_Count{0};
    constexpr std::uint64_t kMix = 0x9E37'79B9'7F4A'7C15;
    std::uint64_t const seed = static_cast<std::uint64_t>(Clock::MonotonicNs()) +
                               (static_cast<std::uint64_t>(::getpid()) << 32U) +
                               s_Count.fetch_add(1, std::memory_order_relaxed);
    return static_cast<unsigned>((seed * kMix) >> 40U) % NamedObject::kMaxParticipant;
}

}  // namespace

// All descriptors of the process's open objects, so that a forked child can drop its copies: a lock lives as
// long as any copy of its descriptor.
struct HolderList {
    static inline constinit std::mutex s_Mutex;
    static inline constinit NamedObject::State* s_First = nullptr;

    // Opens through `open` and notes the descriptor in one step as seen by a fork.
    template <typename OpenCall>
    static int Fill(NamedObject::State& state, OpenCall&& open) {
        std::lock_guard const guard(s_Mutex);
        state.descriptor = open();
        if (state.descriptor < 0) {
            return errno;
        }
        state.previous = nullptr;
        state.next = s_First;
        if (s_First != nullptr) {
            s_First->previous = &state;
        }
        s_First = &state;
        return 0;
    }

    static void Close(NamedObject::State& state) {
        std::lock_guard const guard(s_Mutex);
        state.participant = 0;
        if (state.descriptor < 0) {
            return;
        }
        (state.previous != nullptr ? state.previous->next : s_First) = state.next;
        if (state.next != nullptr) {
            state.next->previous = state.previous;
        }
        static_cast<void>(::close(std::exchange(state.descriptor, -1)));
    }

    static void BeforeFork() { s_Mutex.lock(); }
    static void InParent() { s_Mutex.unlock(); }
    static void InChild() {
        for (NamedObject::State* state = s_First; state != nullptr; state = state->next) {
            static_cast<void>(::close(std::exchange(state->descriptor, -1)));
            state->participant = 0;
        }
        s_First = nullptr;
        s_Mutex.unlock();
    }
};

namespace {

// With a priority: before the handlers of those who hold locks of their own while they open an object, since
// what is registered later is asked earlier.
[[gnu::constructor(1000)]] void RegisterForkHandlers() {
    static_cast<void>(::pthread_atfork(HolderList::BeforeFork, HolderList::InParent, HolderList::InChild));
}

}  // namespace

NamedObject::NamedObject() = default;

NamedObject::~NamedObject() {
    Close();
}

NamedObject::NamedObject(NamedObject&& other) noexcept
    : m_State(std::move(other.m_State)),
      m_Data(std::exchange(other.m_Data, nullptr)),
      m_Size(std::exchange(other.m_Size, 0)),
      m_IsCreator(std::exchange(other.m_IsCreator, false)) {}

NamedObject& NamedObject::operator=(NamedObject&& other) noexcept {
    if (this != &other) {
        Close();
        m_State = std::move(other.m_State);
        m_Data = std::exchange(other.m_Data, nullptr);
        m_Size = std::exchange(other.m_Size, 0);
        m_IsCreator = std::exchange(other.m_IsCreator, false);
    }
    return *this;
}

int NamedObject::Open(Place const& place, std::string_view fileName, std::uint64_t size,
                      std::uint64_t reserve, Kind kind) {
    if (size == 0 || size > INT64_MAX || reserve > size) {
        return EINVAL;
    }
    return Attach({place, size, reserve, true}, fileName, kind);
}

int NamedObject::OpenExisting(Place const& place, std::string_view fileName, std::uint64_t minSize,
                              Kind kind) {
    return Attach({place, minSize, 0, false}, fileName, kind);
}

int NamedObject::Attach(Request const& request, std::string_view fileName, Kind kind) {
    // Stopped half way we would keep the opening lock for as long as the process lives.
    StopDelay const delay;
    Close();
    if (fileName.empty() || fileName == "." || fileName == ".." ||
        fileName.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos) {
        return EINVAL;
    }
    if (fileName.size() > NAME_MAX) {
        return ENAMETOOLONG;
    }
    m_State = std::make_unique<State>();
    m_State->kind = kind;
    m_State->path = request.place.directory + "/" + std::string(fileName);
    std::int64_t const untilNs = Clock::MonotonicNs() + kOpeningLimitMs * Deadline::kNsPerMs;
    int error = ObjectFile::kTryAgain;
    while (error == ObjectFile::kTryAgain) {
        error = Clock::MonotonicNs() < untilNs ? AttachOnce(request, untilNs) : EAGAIN;
        if (error != 0) {
            HolderList::Close(*m_State);
        }
    }
    if (error != 0) {
        m_State.reset();
        m_IsCreator = false;
    }
    return error;
}

int NamedObject::AttachOnce(Request const& request, std::int64_t untilNs) {
    if (int const error = OpenFile(request); error != 0) {
        return error;
    }
    CORVALEN_FAULT("object.open.opened");
    int error = TakeOpeningLock(m_State->descriptor, untilNs);
    if (error != 0) {
        return error;
    }
    CORVALEN_FAULT("object.open.locked");
    error = JoinLocked(request);
    CORVALEN_FAULT("object.open.joined");
    FileLock::Release(m_State->descriptor, kOpeningByte, 1);
    return error;
}

int NamedObject::OpenFile(Request const& request) {
    std::string const& path = m_State->path;
    int error = HolderList::Fill(*m_State, [&] { return ObjectFile::Open(path); });
    if (error != ENOENT || !request.mayCreate) {
        return error;
    }
    error = HolderList::Fill(*m_State, [&] { return ObjectFile::Create(request.place, path); });
    if (error == ENOENT && ObjectFile::IsShared(request.place)) {
        ObjectFile::MakeDirectories(request.place.directory);
        error = HolderList::Fill(*m_State, [&] { return ObjectFile::Create(request.place, path); });
    }
    return error == EEXIST ? ObjectFile::kTryAgain : error;
}

// Under the opening lock: nobody else comes or goes. A death here leaves a file without a holder, which the
// next opener treats as new.
int NamedObject::JoinLocked(Request const& request) {
    std::uint64_t existing = 0;
    int error = ObjectFile::CheckIdentity(m_State->descriptor, m_State->path,
                                          ObjectFile::IsShared(request.place), existing);
    if (error != 0) {
        return error;
    }
    if (HasOtherHolders(true)) {
        return EEXIST;
    }
    m_IsCreator = !HasOtherHolders(false);
    if (m_IsCreator && !request.mayCreate) {
        RemoveFileLocked();
        return ENOENT;
    }
    error = SizeLocked(request, existing);
    CORVALEN_FAULT("object.open.sized");
    if (error == 0) {
        error = Map(request.mayCreate ? request.size : existing);
    }
    if (error == 0) {
        error = TakeParticipant();
    }
    if (error != 0) {
        Unmap();
        if (m_IsCreator && error != ObjectFile::kTryAgain) {
            RemoveFileLocked();
        }
    }
    return error;
}

int NamedObject::SizeLocked(Request const& request, std::uint64_t existing) {
    if (!m_IsCreator) {
        if (existing < request.size) {
            return EINVAL;
        }
        int const error = ObjectFile::Reserve(m_State->descriptor, 0, request.reserve);
        return error == EOPNOTSUPP ? 0 : error;
    }
    // To 0 first: what a crash left in the file must not be read by its next users.
    if (::ftruncate(m_State->descriptor, 0) != 0 ||
        ::ftruncate(m_State->descriptor, static_cast<off_t>(request.size)) != 0) {
        return errno;
    }
    // The file of a crash may be another user's, who has set the mode already.
    static_cast<void>(::fchmod(m_State->descriptor, request.place.mode));
    return ObjectFile::ReserveNew(m_State->descriptor, request.reserve);
}

int NamedObject::TakeParticipant() {
    unsigned const first = FirstNumber();
    for (unsigned i = 0; i < kMaxParticipant; ++i) {
        unsigned const number = (first + i) % kMaxParticipant + 1;
        int const error = FileLock::TryTake(m_State->descriptor, ByteOf(m_State->kind, number));
        if (error == 0) {
            m_State->participant = number;
            return 0;
        }
        if (error != EAGAIN) {
            return error;
        }
    }
    return EUSERS;
}

// Through a descriptor of its own: a mapping keeps its open file, and with it the locks, alive in a forked
// child that has closed all descriptors.
int NamedObject::Map(std::uint64_t size) {
    if (size == 0) {
        return EINVAL;
    }
    std::lock_guard const noFork(HolderList::s_Mutex);
    FileDescriptor const file(ObjectFile::Open(m_State->path));
    if (!file.IsOpen()) {
        return errno;
    }
    std::uint64_t ignored = 0;
    if (int const error = ObjectFile::CheckIdentity(file.Get(), m_State->path, true, ignored); error != 0) {
        return error;
    }
    void* const data = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
    if (data == MAP_FAILED) {
        return errno;
    }
    m_Data = static_cast<std::byte*>(data);
    m_Size = size;
    return 0;
}

void NamedObject::Unmap() {
    if (m_Data != nullptr) {
        // Fails only for a range that we never mapped.
        static_cast<void>(::munmap(m_Data, m_Size));
        m_Data = nullptr;
        m_Size = 0;
    }
}

bool NamedObject::HasOtherHolders(bool ofOtherKinds) const {
    int const file = m_State->descriptor;
    std::int64_t const first = ByteOf(m_State->kind, 1);
    std::int64_t const last = first + NamedObject::kMaxParticipant;
    if (!ofOtherKinds) {
        return FileLock::IsTakenByOther(file, first, last - first);
    }
    return (first > 1 && FileLock::IsTakenByOther(file, 1, first - 1)) ||
           FileLock::IsTakenByOther(file, last, kKinds * kBytesOfKind - last);
}

void NamedObject::RemoveFileLocked() {
    if (::unlink(m_State->path.c_str()) != 0) {
        // Another user's file in a sticky directory: its name stays, but no memory.
        static_cast<void>(::ftruncate(m_State->descriptor, 0));
    }
}

void NamedObject::Close() {
    StopDelay const delay;
    Unmap();
    m_IsCreator = false;
    if (m_State == nullptr) {
        return;
    }
    if (m_State->participant != 0) {
        LeaveFile();
    }
    HolderList::Close(*m_State);
    m_State.reset();
}

// Without the opening lock the file stays, as after a crash, for the next opener to use anew.
void NamedObject::LeaveFile() {
    int const file = m_State->descriptor;
    std::int64_t const untilNs = Clock::MonotonicNs() + kOpeningLimitMs * Deadline::kNsPerMs;
    if (TakeOpeningLock(file, untilNs) == 0) {
        CORVALEN_FAULT("object.close.locked");
        std::uint64_t ignored = 0;
        if (!HasOtherHolders(false) && ObjectFile::CheckIdentity(file, m_State->path, true, ignored) == 0) {
            RemoveFileLocked();
            CORVALEN_FAULT("object.close.removed");
        }
    }
    // By hand, since a process that is just being spawned may still have a copy of the descriptor.
    FileLock::Release(file, 0, 0);
}

int NamedObject::ReserveRange(std::uint64_t offset, std::uint64_t bytes) {
    if (!IsOpen()) {
        return EBADF;
    }
    if (offset > m_Size || bytes > m_Size - offset) {
        return EINVAL;
    }
    return ObjectFile::Reserve(m_State->descriptor, offset, bytes);
}

bool NamedObject::IsAlive(unsigned participant) const {
    if (!IsOpen() || participant == 0 || participant > kMaxParticipant) {
        return false;
    }
    return participant == m_State->participant ||
           FileLock::IsTakenByOther(m_State->descriptor, ByteOf(m_State->kind, participant), 1);
}

}  // namespace System::Platform
