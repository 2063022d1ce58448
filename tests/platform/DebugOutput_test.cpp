#include "platform/DebugOutput.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace System::Platform;

TEST(DebugOutput, GoesToStandardErrorAsItIs) {
    std::string const text("a\0b", 3);
    testing::internal::CaptureStderr();
    DebugOutput(text.data(), text.size());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), text);
}

TEST(DebugOutput, BreaksOnlyIntoADebugger) {
    if (IsDebuggerAttached()) {
        GTEST_SKIP() << "a debugger is attached";
    }
    DebugBreak();
}

}  // namespace
