#include "corvalen/diagnostics/ComponentLog.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "corvalen/diagnostics/Log.h"
#include "corvalen/text/NativeConv.h"
#include "corvalen/text/UcsConv.h"
#include "corvalen/threading/ComThread.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeClock.h"
#include "tests/support/Unique.h"

namespace {

using namespace System::Diagnostics;
using Support::ChildProcess;
using Support::FakeClock;
using Support::ReadFile;
using System::Threading::CComThread;

constexpr std::time_t kPiMorning = 1110792413;  // 2005-03-14 09:26:53 UTC
constexpr char kRteFirst[] = "00000000-0000-00000000[2005/03/14 09:26:53.00]\r\n";

void Put(unsigned severity, std::string const& text) {
    FLog::Put(severity, 1, "N", "C", text.c_str());
}

std::string Hex(unsigned number) {
    std::ostringstream text;
    text << std::hex << std::uppercase << number;
    return text.str();
}

std::u16string WideOf(std::string const& name) {
    return std::filesystem::path(name).u16string();
}

std::string const& MyId() {
    static std::string const s_Id = Hex(static_cast<unsigned>(::gettid()));
    return s_Id;
}

class ComponentLog : public testing::Test {
protected:
    ComponentLog() {
        ::setenv("TZ", "UTC", 1);
        CComThread::Init();
        FLog::Init();
        System::Text::UcsConv::Init();
        System::Text::NativeConv::Init();
        FLog::SetSeverityLevel(1, 3);
        FakeClock::s_Wall = kPiMorning;
        FakeClock::s_Tick = 0;
        ForgetTheLastLine();
    }
    ~ComponentLog() override {
        System::Text::NativeConv::Terminate();
        System::Text::UcsConv::Terminate();
        FLog::Terminate();
        CComThread::Terminate();
    }

    [[nodiscard]] std::string Name(std::string const& name = "log") const { return m_Folder / name; }
    [[nodiscard]] std::string Content(std::string const& file) const { return ReadFile(m_Folder / file); }

    template <typename Log>
    static std::unique_ptr<Log> Open(std::string const& name) {
        return std::make_unique<Log>(name.c_str(), static_cast<unsigned>(name.size()));
    }

    Support::TemporaryFolder m_Folder;
    FakeClock m_Clock;

private:
    // The time of the last line is the process's, and the test before may have left one: a tick of 0 counts
    // as none.
    void ForgetTheLastLine() {
        {
            auto const log = Open<FRteCompLog>(Name("none"));
            Put(0, "");
        }
        std::filesystem::remove(Name("none.rlg"));
    }
};

TEST_F(ComponentLog, WritesRteLinesWithTheTimeSinceTheLineBefore) {
    auto const log = Open<FRteCompLog>(Name());
    Put(0, "after the tick 0 there is no difference");
    FakeClock::s_Tick = 0xFFFFFFFF;
    Put(1, "a");
    FakeClock::s_Tick += 1234567;
    Put(2, "b");
    FakeClock::s_Tick += 5;
    Put(3, "");
    FakeClock::s_Wall += 3600;
    Put(4, "d");
    std::string const id = MyId();
    std::string const time = "[2005/03/14 09:26:53.00]";
    std::string const lines = Content("log.rlg");
    EXPECT_EQ(lines.substr(lines.find("-W0")),
              "-W0" + time + "[000.000] " + id + " N C a\r\n" + "00000000-0000-L1" + time + "[1234.567] " +
                  id + " N C b\r\n" + "00000000-0000-T2" + time + "[000.005] " + id + " N C \r\n" +
                  "00000000-0000-E0[2005/03/14 10:26:53.00][000.000] " + id + " N C d\r\n");
    EXPECT_TRUE(lines.starts_with(kRteFirst));
}

TEST_F(ComponentLog, MeasuresTheTimeSinceTheLineOfAnyRteLog) {
    auto const first = Open<FRteCompLog>(Name("first"));
    auto const second = Open<FRteCompLog>(Name("second"));
    FakeClock::s_Tick = 1000;
    Put(0, "a");
    FakeClock::s_Tick = 1016;
    Put(0, "b");
    EXPECT_NE(Content("second.rlg").find("[000.016] " + MyId() + " N C b"), std::string::npos);
    EXPECT_NE(Content("first.rlg").find("[000.000] " + MyId() + " N C b"), std::string::npos);
}

class NameTeller : public System::Threading::IRunnable {
public:
    void Run() override { Put(1, "of a named thread"); }
    void Abort() override {}
};

TEST_F(ComponentLog, WritesCorvalenLinesInColumnsWithTheThreadsName) {
    auto const log = Open<FCorvalenLog>(Name());
    FLog::Put(1, 1, "ERR", "-", "Forcing a thread to quit");
    std::string unknown;
    std::thread([&] {
        unknown = Hex(static_cast<unsigned>(::gettid()));
        Put(7, "x");
    }).join();
    std::string const time = "05 03 14\t09:26:53:000";
    EXPECT_EQ(Content("log.cr_log"),
              "0\t!\tMain:" + MyId() + "\t" + time + "\t-\tSTART\n" + "1\tERR\tMain:" + MyId() + "\t" + time +
                  "\t-\tForcing a thread to quit\n" + "3\tN\tUnknown:" + unknown + "\t" + time + "\tC\tx\n");
}

TEST_F(ComponentLog, NamesARegisteredThread) {
    auto const log = Open<FCorvalenLog>(Name());
    NameTeller teller;
    CComThread thread(&teller);
    thread.SetName("Courier");
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(Support::WaitUntil([&] { return !thread.IsRunning(); }));
    EXPECT_NE(Content("log.cr_log").find("1\tN\tCourier:"), std::string::npos);
}

TEST_F(ComponentLog, WritesTheLineThatAskingForAThreadsNameBringsUp) {
    auto const log = Open<FCorvalenLog>(Name());
    CComThread::Terminate();
    Put(0, "x");
    CComThread::Init();
    std::string const lines = Content("log.cr_log");
    EXPECT_NE(lines.find("s_InitCount > 0"), std::string::npos);
    EXPECT_TRUE(lines.ends_with("C\tx\n"));
}

struct ClassCase {
    char const* name;
    char const* kind;
    char const* extension;
    std::size_t limit;
    std::string (*firstLine)(char const* minute);
    std::unique_ptr<void, void (*)(void*)> (*open)(std::string const& name);
};

template <typename Log>
std::unique_ptr<void, void (*)(void*)> OpenAny(std::string const& name) {
    return {new Log(name.c_str(), static_cast<unsigned>(name.size())), [](void* log) {
                delete static_cast<Log*>(log);
            }};
}

ClassCase const kClassCases[] = {
    {"Rte", "rte", ".rlg", 10485760,
     [](char const* minute) {
         return std::string("00000000-0000-00000000[2005/03/14 09:") + minute + ":53.00]\r\n";
     },
     OpenAny<FRteCompLog>},
    {"Corvalen", "corvalen", ".cr_log", 20971520,
     [](char const* minute) {
         return "0\t!\tMain:" + MyId() + "\t05 03 14\t09:" + minute + ":53:000\t-\tSTART\n";
     },
     OpenAny<FCorvalenLog>},
};

class ComponentLogFile : public ComponentLog, public testing::WithParamInterface<ClassCase> {
protected:
    [[nodiscard]] std::string Present() const { return Name() + GetParam().extension; }
    [[nodiscard]] std::string Older() const { return Name() + "_" + GetParam().extension; }
    [[nodiscard]] std::string FirstLine(char const* minute = "26") const {
        return GetParam().firstLine(minute);
    }
    // Makes the present file so long that it has `missing` bytes to the limit.
    void FillUpTo(std::size_t missing) const {
        Support::WriteFile(Present(), "");
        std::filesystem::resize_file(Present(), GetParam().limit - missing);
    }
    // The length of a line of our thread with an empty text.
    [[nodiscard]] std::size_t LineLength() const {
        auto const log = GetParam().open(Name("probe"));
        Put(0, "");
        std::string const file = Name("probe") + GetParam().extension;
        auto const size = std::filesystem::file_size(file);
        std::filesystem::remove(file);
        return size - FirstLine().size();
    }
};

TEST_P(ComponentLogFile, IsRotatedByTheLineThatPassesTheLimitAndNotByTheOneThatReachesIt) {
    FillUpTo(FirstLine().size() + LineLength() + 7);
    auto const log = GetParam().open(Name());
    Put(0, "7 bytes");
    EXPECT_EQ(std::filesystem::file_size(Present()), GetParam().limit);
    EXPECT_FALSE(std::filesystem::exists(Older()));
    // The first line of the new file has its own time, not that of the line before it.
    FLog::RegisterProc([](void*, unsigned, std::uint64_t, char const*, unsigned, long, char const*,
                          char const*) { FakeClock::s_Wall = kPiMorning + 60; },
                       nullptr);
    Put(0, "beyond");
    EXPECT_EQ(ReadFile(Present()), FirstLine("27"));
    std::string const older = ReadFile(Older());
    EXPECT_EQ(older.size(), GetParam().limit + LineLength() + 6);
    EXPECT_TRUE(older.find("beyond") > GetParam().limit);
}

TEST_P(ComponentLogFile, IsRotatedByTheFirstLineIfItIsTooLongAtTheStart) {
    FillUpTo(0);
    Support::WriteFile(Older(), "goes away");
    auto const log = GetParam().open(Name());
    EXPECT_EQ(ReadFile(Older()), "goes away");
    Put(0, "x");
    EXPECT_EQ(ReadFile(Present()), FirstLine());
    EXPECT_EQ(std::filesystem::file_size(Older()), GetParam().limit + FirstLine().size() + LineLength() + 1);
}

TEST_P(ComponentLogFile, IsRotatedAtTheLimitAlsoWhenSomeoneElseHasJustFilledIt) {
    auto const log = GetParam().open(Name());
    Put(0, "");
    std::filesystem::resize_file(Present(), GetParam().limit - LineLength());
    // Lines less than some microseconds apart make a stream, in which the size is looked at now and then.
    std::this_thread::sleep_for(std::chrono::microseconds(100));
    Put(0, "");
    EXPECT_EQ(std::filesystem::file_size(Present()), GetParam().limit);
    EXPECT_FALSE(std::filesystem::exists(Older()));
    Put(0, "");
    EXPECT_EQ(ReadFile(Present()), FirstLine());
}

TEST_P(ComponentLogFile, GoesOnWithAFirstLineBehindEachLineIfTheOlderOneCantBeReplaced) {
    std::filesystem::create_directories(Older() + "/kept");
    FillUpTo(0);
    auto const log = GetParam().open(Name());
    Put(0, "1");
    Put(0, "2");
    std::string const added = ReadFile(Present()).substr(GetParam().limit);
    std::size_t const line = LineLength() + 1;
    ASSERT_EQ(added.size(), 3 * FirstLine().size() + 2 * line);
    EXPECT_TRUE(added.ends_with(FirstLine()));
    EXPECT_EQ(added.substr(FirstLine().size() + line, FirstLine().size()), FirstLine());
    EXPECT_TRUE(std::filesystem::exists(Older() + "/kept"));
}

TEST_P(ComponentLogFile, IsDroppedForGoodWithItsFolder) {
    std::filesystem::create_directory(Name("sub"));
    auto const log = GetParam().open(Name("sub/log"));
    std::filesystem::resize_file(Name("sub/log") + GetParam().extension, GetParam().limit);
    unsigned const procs = FLog::RegisteredProcCount();
    std::filesystem::remove_all(Name("sub"));
    Put(0, std::string(GetParam().limit, 'x'));
    std::filesystem::create_directory(Name("sub"));
    Put(0, "x");
    EXPECT_TRUE(std::filesystem::is_empty(Name("sub")));
    EXPECT_EQ(FLog::RegisteredProcCount(), procs);
}

TEST_P(ComponentLogFile, LeavesOutOnlyWholeLinesWhenTheDiskIsFull) {
    ChildProcess writer("log_writer");
    auto const tell = [&](std::string const& command) {
        writer.WriteLine(command);
        ASSERT_TRUE(writer.Reports("ok")) << command;
    };
    tell(std::string("open ") + GetParam().kind + " " + Name());
    tell("put first");
    auto const full = std::filesystem::file_size(Present());
    tell("limit " + std::to_string(full + 20));
    tell("put not_kept");
    EXPECT_EQ(std::filesystem::file_size(Present()), full);
    tell("limit 0");
    tell("put last");
    std::string const lines = ReadFile(Present());
    EXPECT_EQ(lines.find("not_kept"), std::string::npos);
    EXPECT_LT(lines.find("first"), lines.find("last"));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 3);
}

// Takes the line apart into its writer and its number, and checks that it is whole.
void Note(std::string const& line, std::size_t length, std::map<std::string, int>& next) {
    std::size_t const start = line.find_first_of("WXYZ", line.find("C"));
    if (line.find("00000000[") != std::string::npos || line.find("START") != std::string::npos) {
        return;
    }
    ASSERT_NE(start, std::string::npos) << line;
    std::string text = line.substr(start);
    if (text.ends_with('\r')) {
        text.pop_back();
    }
    ASSERT_EQ(text.size(), length) << line;
    std::istringstream words(text);
    std::string writer;
    int number = -1;
    words >> writer >> number;
    ASSERT_EQ(number, next[writer]++) << writer;
}

TEST_P(ComponentLogFile, LosesAndTearsNoLineWhenTwoProcessesWriteThroughARotation) {
    constexpr std::size_t kLength = 2000;
    // So many that the file is rotated once.
    int const lines = static_cast<int>(GetParam().limit / kLength * 3 / 2 / 4);
    ChildProcess writers[] = {ChildProcess("log_writer"), ChildProcess("log_writer")};
    std::string const arguments = " " + std::to_string(lines) + " " + std::to_string(kLength);
    for (auto& writer : writers) {
        writer.WriteLine(std::string("open ") + GetParam().kind + " " + Name());
        ASSERT_TRUE(writer.Reports("ok"));
    }
    writers[0].WriteLine("many W" + arguments);
    writers[1].WriteLine("many Z" + arguments);
    ASSERT_TRUE(writers[0].Reports("ok"));
    ASSERT_TRUE(writers[1].Reports("ok"));
    std::map<std::string, int> next;
    std::istringstream all(ReadFile(Older()) + ReadFile(Present()));
    for (std::string line; std::getline(all, line);) {
        Note(line, kLength, next);
    }
    EXPECT_EQ(next, (std::map<std::string, int>{{"Wa", lines}, {"Wb", lines}, {"Za", lines}, {"Zb", lines}}));
    EXPECT_GT(std::filesystem::file_size(Older()), GetParam().limit);
}

TEST_P(ComponentLogFile, HasTheNameWithTheExtensionBehindIt) {
    auto const log = GetParam().open(Name("x.log"));
    EXPECT_TRUE(std::filesystem::exists(Name("x.log") + GetParam().extension));
}

INSTANTIATE_TEST_SUITE_P(Classes, ComponentLogFile, testing::ValuesIn(kClassCases),
                         [](auto const& row) { return row.param.name; });

TEST_F(ComponentLog, DoesNothingWithoutAName) {
    FRteCompLog const none(static_cast<char const*>(nullptr), 3);
    FRteCompLog const wideNone(static_cast<char16_t const*>(nullptr), 3);
    FCorvalenLog const empty("x", 0);
    FCorvalenLog const wideEmpty(u"x", 0);
    EXPECT_EQ(FLog::RegisteredProcCount(), 0u);
}

TEST_F(ComponentLog, IsRegisteredWithoutAFileOnlyAsRteLog) {
    auto const rte = Open<FRteCompLog>(Name("missing/log"));
    EXPECT_EQ(FLog::RegisteredProcCount(), 1u);
    auto const corvalen = Open<FCorvalenLog>(Name("missing/log"));
    EXPECT_EQ(FLog::RegisteredProcCount(), 1u);
    Put(0, "dropped");
}

TEST_F(ComponentLog, MeansTheSameFileByAWideAndANarrowName) {
    std::string const name = Name();
    std::u16string const wide = WideOf(name);
    { FRteCompLog const log(wide.c_str(), static_cast<unsigned>(wide.size())); }
    { auto const log = Open<FRteCompLog>(name); }
    EXPECT_EQ(Content("log.rlg"), std::string(kRteFirst) + kRteFirst);
}

TEST_F(ComponentLog, WritesWideNamesAsUtf8) {
    std::u16string const wide = WideOf(m_Folder.Path()) + u"/\u20AC";
    FRteCompLog const log(wide.c_str(), static_cast<unsigned>(wide.size()));
    EXPECT_EQ(Content("\xE2\x82\xAC.rlg"), kRteFirst);
}

TEST_F(ComponentLog, CutsANameThatIsLongerThanItsLengthAndTheRoomForTheExtension) {
    std::string const name = Name("abcdefgh");
    std::u16string const wide = WideOf(name);
    auto const length = static_cast<unsigned>(wide.size());
    { FRteCompLog const log(wide.c_str(), length - 12); }
    EXPECT_EQ(Content("abcdefgh.rl"), kRteFirst);
    { FRteCompLog const log(wide.c_str(), length - 18); }
    EXPECT_EQ(Content("abcde"), kRteFirst);
    { FRteCompLog const log(name.c_str(), static_cast<unsigned>(name.size() - 5)); }
    EXPECT_EQ(Content("abc.rlg"), kRteFirst);
}

TEST_F(ComponentLog, StaysWhereItWasOpenedWhenTheCurrentDirectoryChanges) {
    std::filesystem::create_directory(Name("elsewhere"));
    std::filesystem::path const before = std::filesystem::current_path();
    std::filesystem::current_path(m_Folder.Path());
    auto const log = Open<FRteCompLog>("log");
    std::filesystem::current_path(Name("elsewhere"));
    Put(0, std::string(10485760, 'x'));
    std::filesystem::current_path(before);
    EXPECT_EQ(Content("log.rlg"), kRteFirst);
    EXPECT_TRUE(std::filesystem::exists(Name("log_.rlg")));
    EXPECT_TRUE(std::filesystem::is_empty(Name("elsewhere")));
}

TEST_F(ComponentLog, OutlivesTheLogAndGetsNoMoreLines) {
    auto log = Open<FRteCompLog>(Name());
    FLog::Terminate();
    FLog::Init();
    Put(0, "x");
    log.reset();
    EXPECT_EQ(Content("log.rlg"), kRteFirst);
}

}  // namespace
