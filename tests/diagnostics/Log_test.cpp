#include "corvalen/diagnostics/Log.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "corvalen/platform/DebugOutput.h"
#include "corvalen/text/UcsConv.h"
#include "tests/support/FakeClock.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Unique.h"

namespace {

using System::Diagnostics::FLog;

constexpr std::uint64_t kAll = ~std::uint64_t{0};
constexpr std::time_t kPiMorning = 1110792413;  // 2005-03-14 09:26:53 UTC

bool const s_IsEnabledAtLoad = FLog::Enabled(0, kAll);

class Log : public testing::Test {
protected:
    Log() { FLog::Init(); }
    ~Log() override { FLog::Terminate(); }

    static std::string Levels() {
        char text[FLog::kLevelTextSize];
        FLog::GetSeverityLevel(text);
        return text;
    }
};

// A procedure that does what a test gives it.
struct Procedure {
    std::function<void(char const* text)> act;

    static void Call(void* user, unsigned, std::uint64_t, char const*, unsigned, long, char const*,
                     char const* text) {
        static_cast<Procedure*>(user)->act(text);
    }
};

void PutText(char const* text) {
    FLog::Put(0, 1, "N", "C", text);
}

TEST(LogLifetime, DeliversNothingBeforeTheFirstInit) {
    EXPECT_FALSE(s_IsEnabledAtLoad);
}

TEST(LogLifetime, KeepsLevelsAndProceduresUntilTheLastTerminate) {
    FLog::Init();
    FLog::SetSeverityLevel(1, 3);
    FLog::RegisterProc(Procedure::Call, nullptr);
    FLog::Init();
    FLog::Terminate();
    EXPECT_EQ(FLog::RegisteredProcCount(), 1u);
    EXPECT_EQ(FLog::GetSeverityLevel(1), 3u);
    FLog::Terminate();
    EXPECT_EQ(FLog::RegisteredProcCount(), 0u);
    EXPECT_EQ(FLog::GetSeverityLevel(1), 3u);
    PutText("after the end");
    FLog::Init();
    EXPECT_EQ(FLog::GetSeverityLevel(1), 2u);
    FLog::Terminate();
}

TEST(LogLifetime, StartsWithoutTheProceduresThatWereRegisteredBefore) {
    FLog::RegisterProc(Procedure::Call, nullptr);
    FLog::Init();
    EXPECT_EQ(FLog::RegisteredProcCount(), 0u);
    PutText("to nobody");
    FLog::Terminate();
}

TEST_F(Log, PassesSeverities0To2OfEveryComponentByDefault) {
    for (std::uint64_t component : {std::uint64_t{1}, std::uint64_t{1} << 63, kAll}) {
        EXPECT_TRUE(FLog::Enabled(0, component));
        EXPECT_TRUE(FLog::Enabled(2, component));
        EXPECT_FALSE(FLog::Enabled(3, component));
    }
    EXPECT_FALSE(FLog::Enabled(0, 0));
}

TEST_F(Log, TreatsASeverityAbove3LikeVerboseAndHandsItOnAsItIs) {
    Support::LogCapture lines;
    FLog::Put(4, 1, "N", "C", "filtered");
    FLog::SetSeverityLevel(1, 3);
    FLog::Put(0xFFFFFFFF, 1, "N", "C", "passes");
    ASSERT_EQ(lines.Lines().size(), 1u);
    EXPECT_EQ(lines.Lines()[0].severity, 0xFFFFFFFFu);
}

TEST_F(Log, HandsThreadTimeAndTheCallersWordsToAProcedure) {
    Support::FakeClock clock;
    Support::LogCapture lines;
    Support::FakeClock::s_Wall = kPiMorning;
    std::uint64_t const component = std::uint64_t{1} << 40 | 1;
    FLog::Put(1, component, "name", "context", "text");
    ASSERT_EQ(lines.Lines().size(), 1u);
    auto const& line = lines.Lines()[0];
    EXPECT_EQ(line.component, component);
    EXPECT_EQ(line.name, "name");
    EXPECT_EQ(line.context, "context");
    EXPECT_EQ(line.text, "text");
    EXPECT_EQ(line.threadId, static_cast<unsigned>(::gettid()));
    EXPECT_EQ(line.time, kPiMorning);
}

TEST_F(Log, PassesALineOfSeveralComponentsIfOneOfThemPasses) {
    FLog::SetSeverityLevel(1, 0);
    EXPECT_FALSE(FLog::Enabled(2, 1));
    EXPECT_TRUE(FLog::Enabled(2, 3));
    EXPECT_EQ(FLog::GetSeverityLevel(3), 2u);
}

TEST_F(Log, CapsALevelAt3AndReturnsTheOneBefore) {
    EXPECT_EQ(FLog::SetSeverityLevel(1, 9), 2u);
    EXPECT_EQ(FLog::SetSeverityLevel(1, 0), 3u);
    EXPECT_TRUE(FLog::Enabled(0, 1));
    EXPECT_FALSE(FLog::Enabled(1, 1));
    EXPECT_EQ(FLog::GetSeverityLevel(1), 1u);
    EXPECT_EQ(FLog::SetSeverityLevel(0, 3), 1u);
    EXPECT_EQ(Levels(), "W" + std::string(63, 'I'));
}

TEST_F(Log, SetsALevelForEachLetterAndSkipsOtherCharacters) {
    FLog::SetSeverityLevel("vE.w");
    EXPECT_EQ(Levels(), "VWIW" + std::string(60, 'I'));
    EXPECT_FALSE(FLog::Enabled(1, 2));
    FLog::SetSeverityLevel("");
    EXPECT_EQ(Levels(), "VWIW" + std::string(60, 'I'));
}

TEST_F(Log, ReadsAtMost64Letters) {
    FLog::SetSeverityLevel(std::string(70, 'V').c_str());
    EXPECT_EQ(Levels(), std::string(64, 'V'));
    FLog::SetSeverityLevel((std::string(64, '.') + "WWWWWW").c_str());
    EXPECT_EQ(Levels(), std::string(64, 'V'));
}

TEST_F(Log, CountsThePositionsOfWideLevelsInBytesOfUtf8) {
    System::Text::UcsConv::Init();
    FLog::SetSeverityLevel(u"w\u00E9\u20AC\xD83Dv");
    EXPECT_EQ(Levels(), "WIIIIIIIIV" + std::string(54, 'I'));
    FLog::SetSeverityLevel(static_cast<char16_t const*>(nullptr));
    FLog::SetSeverityLevel((std::u16string(62, u'.') + u"\u20ACv").c_str());
    EXPECT_EQ(Levels().substr(60), "IIII");
    System::Text::UcsConv::Terminate();
}

TEST_F(Log, CallsTheNewestProcedureFirstAndAPairAsOftenAsItIsRegistered) {
    std::string calls;
    Procedure a{[&](char const*) {
        calls += 'a';
    }};
    Procedure b{[&](char const*) {
        calls += 'b';
    }};
    FLog::RegisterProc(Procedure::Call, &a);
    FLog::RegisterProc(Procedure::Call, &b);
    FLog::RegisterProc(Procedure::Call, &a);
    PutText("");
    EXPECT_EQ(calls, "aba");
    EXPECT_FALSE(FLog::UnregisterProc(Procedure::Call, nullptr));
    EXPECT_TRUE(FLog::UnregisterProc(Procedure::Call, &a));
    PutText("");
    EXPECT_EQ(calls, "ababa");
    EXPECT_TRUE(FLog::UnregisterProc(Procedure::Call, &a));
    EXPECT_FALSE(FLog::UnregisterProc(Procedure::Call, &a));
    EXPECT_EQ(FLog::RegisteredProcCount(), 1u);
}

TEST_F(Log, DeliversALineOfAProcedureToAllBeforeTheOuterWalkGoesOn) {
    std::string calls;
    Procedure last{[&](char const* text) {
        calls += std::string("last:") + text + ' ';
    }};
    Procedure first{[&](char const* text) {
        calls += std::string("first:") + text + ' ';
        if (std::string(text) == "outer") {
            PutText("inner");
        }
    }};
    FLog::RegisterProc(Procedure::Call, &last);
    FLog::RegisterProc(Procedure::Call, &first);
    PutText("outer");
    EXPECT_EQ(calls, "first:outer first:inner last:inner last:outer ");
}

TEST_F(Log, NeverRunsProceduresConcurrentlyAndKeepsOneOrderForAll) {
    constexpr int kLines = 500;
    std::atomic<int> inside{0};
    bool hasMet = false;
    std::vector<std::string> seen[2];
    Procedure procedures[2];
    for (int n = 0; n < 2; ++n) {
        procedures[n].act = [&, n](char const* text) {
            hasMet |= inside.fetch_add(1) != 0;
            seen[n].push_back(text);
            inside.fetch_sub(1);
        };
        FLog::RegisterProc(Procedure::Call, &procedures[n]);
    }
    std::vector<std::thread> threads;
    for (int n = 0; n < 3; ++n) {
        threads.emplace_back([n] {
            for (int line = 0; line < kLines; ++line) {
                PutText(std::to_string(n * kLines + line).c_str());
                FLog::SetSeverityLevel(std::uint64_t{1} << 1, static_cast<unsigned>(line) % 4);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(hasMet);
    EXPECT_EQ(seen[0].size(), 3u * kLines);
    EXPECT_EQ(seen[0], seen[1]);
}

void* PutOnce(void*) {
    PutText("last words");
    return nullptr;
}

TEST_F(Log, GoesOnAfterAThreadEndedInsideAProcedure) {
    int calls = 0;
    Procedure ending{[&](char const* text) {
        ++calls;
        if (std::string(text) == "last words") {
            ::pthread_exit(nullptr);
        }
    }};
    FLog::RegisterProc(Procedure::Call, &ending);
    pthread_t thread{};
    ASSERT_EQ(::pthread_create(&thread, nullptr, PutOnce, nullptr), 0);
    ASSERT_EQ(::pthread_join(thread, nullptr), 0);
    PutText("next");
    std::thread(PutText, "from another thread").join();
    EXPECT_EQ(calls, 3);
}

class LogLine : public Log {
protected:
    LogLine() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }

    static inline std::string s_Debugger;
};

TEST_F(LogLine, GoesToAStreamAndIsFlushed) {
    Support::TemporaryFolder folder;
    std::FILE* const stream = std::fopen((folder / "out").c_str(), "w");
    ASSERT_NE(stream, nullptr);
    FLog::PrintProc(stream, 0, 1, "ERR", 0x5D4, kPiMorning, "-", "some text");
    EXPECT_EQ(Support::ReadFile(folder / "out"), "EEEE>[5D4] 03 14 09:26:53> [ERR] - some text\n");
    std::fclose(stream);
}

TEST_F(LogLine, IsTaggedByTheLowTwoBitsOfTheSeverity) {
    Support::TemporaryFolder folder;
    std::FILE* const stream = std::fopen((folder / "out").c_str(), "w");
    ASSERT_NE(stream, nullptr);
    for (unsigned severity : {1u, 2u, 3u, 4u, 7u}) {
        FLog::PrintProc(stream, severity, 1, "N", 0xAB, 0, "C", "");
    }
    std::fclose(stream);
    std::string expected;
    for (char const* tag : {"WWWW", "----", "    ", "EEEE", "    "}) {
        expected += std::string(tag) + ">[AB] 01 01 00:00:00> [N] C \n";
    }
    EXPECT_EQ(Support::ReadFile(folder / "out"), expected);
}

TEST_F(LogLine, GoesToTheDebuggerInOneCallOfAtMost1279Bytes) {
    constexpr std::size_t kMost = 1279;
    std::string const start = "EEEE>[1] 03 14 09:26:53> [N] C ";
    System::Platform::ReplaceDebugSink(
        [](char const* text, std::size_t size) { s_Debugger.append(text, size).append("|"); });
    for (std::size_t length : {std::size_t{1}, kMost - start.size() - 1, kMost - start.size()}) {
        s_Debugger.clear();
        std::string const text(length, 'x');
        FLog::OutputDebugProc(nullptr, 0, 1, "N", 1, kPiMorning, "C", text.c_str());
        EXPECT_EQ(s_Debugger, (start + text + "\n").substr(0, kMost) + "|");
    }
    System::Platform::ReplaceDebugSink(nullptr);
}

}  // namespace
