#include "bench/mailbox/Roads.h"

#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "corvalen/rpc/SharedStream.h"

namespace Bench {

namespace {

[[noreturn]] void Fail(char const* what) {
    std::perror(what);
    std::abort();
}

class StreamRoad : public Road {
public:
    explicit StreamRoad(std::string name)
        : m_Name(std::move(name)), m_Stream(std::u16string(m_Name.begin(), m_Name.end()).c_str(), kCapacity) {
        if (!m_Stream.IsValid()) {
            Fail("shared stream");
        }
    }
    [[nodiscard]] std::string Address() const override { return m_Name; }
    void Write(std::span<std::byte const> record) override {
        constexpr int kNoRoom = 7;
        int result = kNoRoom;
        while ((result = m_Stream.Write(record.data(), static_cast<std::uint32_t>(record.size()))) ==
               kNoRoom) {
            ::sched_yield();
        }
        if (result != 0) {
            Fail("Write");
        }
    }
    void Read(std::vector<std::byte>& bytes) override {
        void* data = nullptr;
        std::uint32_t size = 0;
        while (size == 0) {
            if (m_Stream.Read_NF(&data, &size) != 0) {
                Fail("Read_NF");
            }
            // Nobody is woken by a stream: let the writer run.
            ::sched_yield();
        }
        auto const* const first = static_cast<std::byte const*>(data);
        bytes.insert(bytes.end(), first, first + size);
        std::free(data);
    }

private:
    std::string m_Name;
    System::RPC::SharedStream m_Stream;
};

class DescriptorRoad : public Road {
public:
    DescriptorRoad(int reading, int writing) : m_Reading(reading), m_Writing(writing) {}
    ~DescriptorRoad() override {
        ::close(m_Reading);
        ::close(m_Writing);
    }
    [[nodiscard]] std::string Address() const override { return std::to_string(m_Writing); }
    void Write(std::span<std::byte const> record) override {
        if (::write(m_Writing, record.data(), record.size()) != static_cast<ssize_t>(record.size())) {
            Fail("write");
        }
    }
    void Read(std::vector<std::byte>& bytes) override {
        std::size_t const before = bytes.size();
        bytes.resize(before + kCapacity);
        ssize_t const got = ::read(m_Reading, bytes.data() + before, kCapacity);
        if (got <= 0) {
            Fail("read");
        }
        bytes.resize(before + static_cast<std::size_t>(got));
    }

private:
    int m_Reading;
    int m_Writing;
};

}  // namespace

std::vector<std::string> RoadKinds() {
    return {"shared stream", "pipe", "unix socket"};
}

std::unique_ptr<Road> OpenRoad(std::string const& kind, std::string const& address) {
    if (kind == "shared stream") {
        return std::make_unique<StreamRoad>(address.empty() ? "bench_mailbox_" + std::to_string(::getpid())
                                                            : address);
    }
    if (!address.empty()) {
        return std::make_unique<DescriptorRoad>(-1, std::atoi(address.c_str()));
    }
    int ends[2];
    if ((kind == "pipe" ? ::pipe(ends) : ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends)) != 0) {
        Fail("pipe");
    }
    return std::make_unique<DescriptorRoad>(ends[0], ends[1]);
}

}  // namespace Bench
