// The limits of the machine: a word in shared memory that one side changes and the other sees, spinning on it
// or sleeping on it. The payload lies beside the word.

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

#include "bench/rpc/Transport.h"

namespace Bench {

namespace {

struct Shared {
    alignas(64) std::atomic<std::uint32_t> asked;
    alignas(64) std::atomic<std::uint32_t> answered;
    alignas(64) Answer answer;
    alignas(64) std::uint64_t size;
    char payload[kMaxPayload];
};

Shared* Map(std::string const& key, bool isServer) {
    std::string const name = "/" + key;
    int const file = ::shm_open(name.c_str(), isServer ? O_RDWR | O_CREAT | O_TRUNC : O_RDWR, 0600);
    if (file < 0 || (isServer && ::ftruncate(file, sizeof(Shared)) != 0)) {
        std::perror("shm_open");
        std::_Exit(1);
    }
    void* const memory = ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    if (memory == MAP_FAILED) {
        std::perror("mmap");
        std::_Exit(1);
    }
    return static_cast<Shared*>(memory);
}

void Futex(std::atomic<std::uint32_t>& word, int operation, std::uint32_t value) {
    ::syscall(SYS_futex, &word, operation, value, nullptr, nullptr, 0);
}

void AwaitValue(std::atomic<std::uint32_t>& word, std::uint32_t value, bool isSleeping) {
    for (std::uint32_t seen = word.load(std::memory_order_acquire); seen != value;
         seen = word.load(std::memory_order_acquire)) {
        if (isSleeping) {
            Futex(word, FUTEX_WAIT, seen);
        } else {
            PausePolling();
        }
    }
}

void Set(std::atomic<std::uint32_t>& word, std::uint32_t value, bool isSleeping) {
    word.store(value, std::memory_order_release);
    if (isSleeping) {
        Futex(word, FUTEX_WAKE, 1);
    }
}

class RawClient : public Client {
public:
    RawClient(Shared* shared, bool isSleeping) : m_Shared(shared), m_IsSleeping(isSleeping) {}

    Answer Ask(std::uint64_t sequence, std::size_t size) override {
        Fill(m_Shared->payload, sequence, size);
        m_Shared->size = size;
        Set(m_Shared->asked, ++m_Count, m_IsSleeping);
        AwaitValue(m_Shared->answered, m_Count, m_IsSleeping);
        return m_Shared->answer;
    }
    bool Notify(std::uint64_t, std::size_t) override { return false; }

private:
    Shared* m_Shared;
    bool m_IsSleeping;
    std::uint32_t m_Count = 0;
};

class Raw : public Transport {
public:
    Raw(char const* name, bool isSleeping) : m_Name(name), m_IsSleeping(isSleeping) {}
    [[nodiscard]] char const* Name() const override { return m_Name; }
    [[nodiscard]] bool CanSleep() const override { return m_IsSleeping; }
    [[nodiscard]] bool CanPoll() const override { return !m_IsSleeping; }

    int Serve(std::string const& key, Waiting) override {
        Shared* const shared = Map(key, true);
        Answers const answers;
        ReportReady();
        for (std::uint32_t count = 1;; ++count) {
            AwaitValue(shared->asked, count, m_IsSleeping);
            shared->answer = answers.To(shared->payload, shared->size);
            bool const isLast = shared->answer.sequence == kStop;
            Set(shared->answered, count, m_IsSleeping);
            if (isLast) {
                ::shm_unlink(("/" + key).c_str());
                return 0;
            }
        }
    }

    std::unique_ptr<Client> Connect(std::string const& key, Waiting) override {
        return std::make_unique<RawClient>(Map(key, false), m_IsSleeping);
    }

private:
    char const* m_Name;
    bool m_IsSleeping;
};

}  // namespace

std::unique_ptr<Transport> MakeRawSpinning() {
    return std::make_unique<Raw>("raw spinning", false);
}

std::unique_ptr<Transport> MakeRawFutex() {
    return std::make_unique<Raw>("raw futex", true);
}

}  // namespace Bench
