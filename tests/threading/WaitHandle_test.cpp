#include "corvalen/threading/WaitHandle.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>

namespace {

using namespace System::Threading;

struct OpenedEvent : CAutoResetEvent {
    static std::uint32_t Count() { return WaitHandleEventCount; }
    std::u16string Name() const {
        char16_t const* const name = GenerateUniqueName();
        std::u16string copy = name;
        std::free(const_cast<char16_t*>(name));
        return copy;
    }
};

struct BareHandle : CWaitHandle {};

TEST(WaitHandle, LetsOneThroughOrAllByItsKind) {
    CAutoResetEvent automatic(true);
    CManualResetEvent manual(true);
    EXPECT_TRUE(automatic.WaitOne(0));
    EXPECT_FALSE(automatic.WaitOne(0));
    EXPECT_TRUE(manual.WaitOne(0) && manual.WaitOne(CWaitHandle::kForever));
    manual.Reset();
    EXPECT_FALSE(manual.WaitOne(1));
    EXPECT_FALSE(CManualResetEvent().WaitOne(0) || CAutoResetEvent().WaitOne(0));
}

TEST(WaitHandle, WakesAThreadThatWaitsWithoutLimit) {
    CAutoResetEvent asked;
    CManualResetEvent answered;
    std::thread other([&] {
        asked.WaitOne();
        answered.Set();
    });
    asked.Set();
    EXPECT_TRUE(answered.WaitOne(-1));
    other.join();
}

TEST(WaitHandle, CountsEveryHandleBeforeItMakesItsName) {
    std::uint32_t const before = OpenedEvent::Count();
    OpenedEvent const first;
    OpenedEvent const second;
    EXPECT_EQ(OpenedEvent::Count(), before + 2);
    std::string const number = std::to_string(before + 2);
    EXPECT_EQ(first.Name(), u"ManualResetEvent_" + std::u16string(number.begin(), number.end()));
}

TEST(WaitHandle, DoesNothingWithoutAnEvent) {
    CManualResetEvent closed(true);
    closed.Close();
    closed.Close();
    BareHandle bare;
    for (CWaitHandle* handle : {static_cast<CWaitHandle*>(&closed), static_cast<CWaitHandle*>(&bare)}) {
        handle->Set();
        handle->Reset();
        handle->WaitOne();
        EXPECT_FALSE(handle->WaitOne(CWaitHandle::kForever));
    }
}

}  // namespace
