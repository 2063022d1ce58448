// Hosts run for months: what is opened and closed again leaves nothing behind in the process or on the
// machine.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "corvalen/platform/MessageQueue.h"
#include "corvalen/rpc/SharedMemory.h"
#include "platform/NamedObject.h"
#include "platform/Window.h"
#include "tests/support/Unique.h"

namespace {

using namespace System::Platform;
using System::RPC::SharedMemory;

struct Usage {
    std::size_t descriptors = 0;
    std::size_t mappings = 0;

    static Usage Now() {
        Usage usage;
        for ([[maybe_unused]] auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            ++usage.descriptors;
        }
        std::ifstream maps("/proc/self/maps");
        for (std::string line; std::getline(maps, line);) {
            usage.mappings += line.find("/dev/shm") != std::string::npos ? 1 : 0;
        }
        return usage;
    }
};

long Answer(std::uint32_t, unsigned, unsigned wParam, long) {
    return static_cast<long>(wParam);
}

// One of everything that processes share, made and ended; the window on a thread of its own.
void OpenAndCloseAll(std::u16string const& className, std::u16string const& region) {
    {
        SharedMemory const first(region.c_str(), 5000);
        SharedMemory const second(region.c_str(), 5000);
        ASSERT_TRUE(first.IsValid());
        ASSERT_TRUE(second.IsValid());
    }
    std::thread([&className] {
        std::uint32_t window = 0;
        ASSERT_EQ(CreateMessageWindow(className, u"t", nullptr, window), 0);
        ASSERT_EQ(FindMessageWindow(className, u"t"), window);
        ASSERT_EQ(PostToWindow(window, 1, 1, 0), 0);
        ASSERT_GE(MessageQueue::Current().Descriptor(), 0);
        std::thread([window] { ASSERT_EQ(SendToWindow(window, 1, 5, 0, 0).error, ETIMEDOUT); }).join();
        ASSERT_EQ(DestroyMessageWindow(window), 0);
    }).join();
}

TEST(Growth, OfDescriptorsAndMappingsDoesNotFollowFromOpeningAndClosing) {
    char const* const asked = std::getenv("CORVALEN_ROUNDS");
    int const rounds = asked != nullptr ? std::atoi(asked) : 300;
    std::u16string const className = Support::UniqueWideName();
    std::u16string const region = Support::UniqueWideName();
    ASSERT_EQ(RegisterWindowClass(className, Answer), 0);
    // What is made once for the process is there after the first rounds; peers that ended are let go when
    // others are opened.
    for (int i = 0; i < 20; ++i) {
        OpenAndCloseAll(className, region);
    }
    Usage const before = Usage::Now();
    for (int i = 0; i < rounds && !HasFatalFailure(); ++i) {
        OpenAndCloseAll(className, region);
    }
    Usage const after = Usage::Now();
    EXPECT_LE(after.descriptors, before.descriptors + 8);
    EXPECT_LE(after.mappings, before.mappings + 8);
    std::string const file = SharedPlace().directory + "/" + NamedObject::FileNameOf(region, Kind::kRegion);
    EXPECT_FALSE(std::filesystem::exists(file));
}

}  // namespace
