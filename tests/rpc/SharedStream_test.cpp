#include "corvalen/rpc/SharedStream.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <random>
#include <string>

#include "tests/support/ChildProcess.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Record.h"
#include "tests/support/Unique.h"

namespace {

using Support::ChildProcess;
using System::RPC::SharedStream;

// Streams lie in a folder of the test's own.
class SharedStreams : public testing::Test {
protected:
    void SetUp() override {
        if (char const* const old = std::getenv("XDG_RUNTIME_DIR")) {
            m_OldRuntime = old;
        }
        ::setenv("XDG_RUNTIME_DIR", m_Folder.Path().c_str(), 1);
    }
    void TearDown() override {
        m_OldRuntime ? ::setenv("XDG_RUNTIME_DIR", m_OldRuntime->c_str(), 1) : ::unsetenv("XDG_RUNTIME_DIR");
    }

    // What a read takes out; "error N" for a result that is not 0.
    static std::string Read(SharedStream& stream) {
        void* data = nullptr;
        std::uint32_t size = 1;
        int const error = stream.Read_NF(&data, &size);
        EXPECT_EQ(stream.LastError(), error);
        EXPECT_EQ(data == nullptr, error != 0 || size == 0);
        std::string const bytes =
            error == 0 ? std::string(static_cast<char const*>(data), size) : "error " + std::to_string(error);
        std::free(data);
        return bytes;
    }
    static int Write(SharedStream& stream, std::string const& bytes) {
        return stream.Write(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    }

    Support::TemporaryFolder m_Folder;
    std::optional<std::string> m_OldRuntime;
};

TEST_F(SharedStreams, GiveAllWritesInOnePieceAndAreEmptyThen) {
    SharedStream stream(u"x", 100);
    ASSERT_TRUE(stream.IsValid());
    EXPECT_EQ(Read(stream), "");
    EXPECT_EQ(Write(stream, "one "), 0);
    EXPECT_EQ(Write(stream, ""), 0);
    SharedStream reader(u"x", 100);
    EXPECT_EQ(Write(reader, std::string("t\0o", 3)), 0);
    EXPECT_EQ(Read(reader), std::string("one t\0o", 7));
    EXPECT_EQ(Read(stream), "");
}

TEST_F(SharedStreams, TakeAWriteWholeOrNotAtAll) {
    SharedStream stream(u"x", 16);
    EXPECT_EQ(Write(stream, "123456789"), 7);
    EXPECT_EQ(Write(stream, "12345678"), 0);
    EXPECT_EQ(Write(stream, "9"), 7);
    EXPECT_EQ(stream.LastError(), 7);
    EXPECT_EQ(stream.Write("", 0xFFFFFFFF), 7);
    EXPECT_EQ(stream.Write("", 0xFFFFFFF0), 7);
    EXPECT_EQ(Write(stream, ""), 0);
    EXPECT_EQ(Read(stream), "12345678");
    EXPECT_EQ(Write(stream, "abcdefgh"), 0);
}

TEST_F(SharedStreams, BelongToTheirUserAloneAndGoWithTheLastHolder) {
    {
        SharedStream stream(u"x", 100);
        for (char const* const name : {"x", "x_mtx"}) {
            struct stat status {};
            ASSERT_EQ(::stat((m_Folder / name).c_str(), &status), 0);
            EXPECT_EQ(status.st_mode & 07777U, 0600U);
        }
        EXPECT_EQ(Support::ReadFile(m_Folder / "x").substr(0, 8),
                  std::string("\xB4\x1A\x42\x5F\x08\0\0\0", 8));
    }
    EXPECT_TRUE(std::filesystem::is_empty(m_Folder.Path()));
}

TEST_F(SharedStreams, ThatAreNotOpenOnlySaySo) {
    for (auto const& [name, size] :
         std::map<std::u16string, std::uint32_t>{{u"..", 100}, {u"", 100}, {u"y", 7}}) {
        SharedStream stream(name.c_str(), size);
        EXPECT_FALSE(stream.IsValid());
        EXPECT_EQ(stream.LastError(), EINVAL);
        EXPECT_EQ(Write(stream, "x"), -1);
        EXPECT_EQ(Read(stream), "error -1");
    }
    EXPECT_TRUE(std::filesystem::is_empty(m_Folder.Path()));
}

TEST_F(SharedStreams, CanBeHeldAcrossSeveralOperations) {
    SharedStream stream(u"x", 100);
    stream.Lock();
    EXPECT_EQ(Write(stream, "mine"), 0);
    EXPECT_TRUE(stream.IsLocked());
    EXPECT_EQ(Read(stream), "mine");
    stream.Unlock();
    EXPECT_FALSE(stream.IsLocked());
    Support::LogCapture log;
    stream.Unlock();
    EXPECT_EQ(log.Asserted(0, "m_LockedCount > 0", "SharedStream"), 1U);
    stream.Lock();
}

struct BrokenHeader {
    char const* name;
    std::uint32_t signature;
    std::uint32_t length;
    char const* expression;
};
class BrokenHeaders : public SharedStreams, public testing::WithParamInterface<BrokenHeader> {};
TEST_P(BrokenHeaders, AreReportedAndMakeNothingMove) {
    SharedStream stream(u"x", 64);
    ASSERT_EQ(Write(stream, "content"), 0);
    std::uint32_t const header[] = {GetParam().signature, GetParam().length};
    std::fstream file(m_Folder / "x", std::ios::in | std::ios::out | std::ios::binary);
    file.write(reinterpret_cast<char const*>(header), sizeof header).flush();
    std::string const before = Support::ReadFile(m_Folder / "x");
    Support::LogCapture log;
    EXPECT_EQ(Write(stream, "more"), EBADMSG);
    EXPECT_EQ(log.Asserted(0, GetParam().expression, "SharedStream"), 1U);
    EXPECT_EQ(Read(stream), "error " + std::to_string(EBADMSG));
    EXPECT_EQ(log.Lines().size(), 2U);
    EXPECT_FALSE(stream.IsLocked());
    EXPECT_EQ(Support::ReadFile(m_Folder / "x"), before);
}
INSTANTIATE_TEST_SUITE_P(
    Table, BrokenHeaders,
    testing::ValuesIn<BrokenHeader>({{"Signature", 0x5F421AB5, 15, "SHARED_SIGNATURE == kSignature"},
                                     {"JustTooLong", 0x5F421AB4, 65, "SHARED_LEN <= m_MaxSize"},
                                     {"HugeLength", 0x5F421AB4, 0xFFFFFFFF, "SHARED_LEN <= m_MaxSize"},
                                     {"JustTooShort", 0x5F421AB4, 7, "SHARED_LEN >= sizeof(SharedHeaderRec)"},
                                     {"NoLength", 0x5F421AB4, 0, "SHARED_LEN >= sizeof(SharedHeaderRec)"}}),
    [](auto const& row) { return row.param.name; });

// Reads records as writers come and go, and keeps the last number of each writer.
class RecordReader {
public:
    explicit RecordReader(SharedStream& stream) : m_Stream(stream) {}

    void Read() {
        void* data = nullptr;
        std::uint32_t size = 0;
        ASSERT_EQ(m_Stream.Read_NF(&data, &size), 0);
        std::string_view bytes(static_cast<char const*>(data), size);
        while (!bytes.empty()) {
            Support::RecordHead const head = Support::CheckRecord(bytes);
            ASSERT_GT(head.length, 0U) << "a record is torn";
            ASSERT_EQ(head.number, m_Last[head.writer] + 1) << "of writer " << head.writer;
            m_Last[head.writer] = head.number;
            bytes.remove_prefix(head.length);
        }
        std::free(data);
    }
    [[nodiscard]] std::uint32_t Last(std::uint32_t writer) { return m_Last[writer]; }

private:
    SharedStream& m_Stream;
    std::map<std::uint32_t, std::uint32_t> m_Last;
};

unsigned KillsWanted() {
    constexpr unsigned kKills = 30;
    char const* const wanted = std::getenv("CORVALEN_KILLS");
    return wanted != nullptr ? static_cast<unsigned>(std::strtoul(wanted, nullptr, 10)) : kKills;
}

TEST_F(SharedStreams, LoseNothingAndTearNothingWhenWritersAreKilled) {
    SharedStream stream(u"x", 4096);
    RecordReader reader(stream);
    std::minstd_rand random(std::random_device{}());
    auto const ackFile = [&](std::uint32_t writer) {
        return m_Folder / ("ack" + std::to_string(writer));
    };
    auto const start = [&](std::uint32_t writer) {
        return ChildProcess("stream_writer", {"x", "4096", std::to_string(writer), ackFile(writer)});
    };
    auto const readUntil = [&](std::uint32_t writer, std::uint32_t number) {
        return Support::WaitUntil([&] {
            reader.Read();
            return HasFatalFailure() || reader.Last(writer) >= number;
        });
    };
    ChildProcess steady = start(0);
    for (std::uint32_t writer = 1; writer <= KillsWanted(); ++writer) {
        ChildProcess victim = start(writer);
        ASSERT_TRUE(readUntil(writer, 1 + static_cast<std::uint32_t>(random() % 300)));
        victim.Kill();
        ASSERT_TRUE(readUntil(0, reader.Last(0) + 1)) << "the survivor is stuck";
        reader.Read();
        ASSERT_FALSE(HasFatalFailure());
        std::string told = Support::ReadFile(ackFile(writer));
        told.resize(sizeof(std::uint32_t));  // empty if the writer was killed before it told of its first
        std::uint32_t taken = 0;
        std::memcpy(&taken, told.data(), sizeof taken);
        ASSERT_GE(reader.Last(writer), taken);
        ASSERT_LE(reader.Last(writer), taken + 1) << "only the killed write may be there without being told";
    }
}

#ifdef CORVALEN_FAULT_POINTS
struct DeathCase {
    char const* name;
    char const* point;
    std::uint32_t whole;  // records that are there after the death
};
class DeathsInAWrite : public SharedStreams, public testing::WithParamInterface<DeathCase> {};
TEST_P(DeathsInAWrite, LeaveItWholeOrAbsent) {
    std::optional<SharedStream> stream;
    if (GetParam().whole > 0) {
        stream.emplace(u"x", 4096);
    }
    ::setenv("CORVALEN_DIE_AT", GetParam().point, 1);
    ChildProcess writer("stream_writer", {"x", "4096", "1", m_Folder / "ack"});
    ::unsetenv("CORVALEN_DIE_AT");
    ASSERT_EQ(writer.Wait(), -SIGKILL);
    if (!stream) {
        stream.emplace(u"x", 4096);
    }
    RecordReader reader(*stream);
    reader.Read();
    EXPECT_EQ(reader.Last(1), GetParam().whole);
    EXPECT_EQ(Write(*stream, Support::MakeRecord(1, GetParam().whole + 1)), 0);
    reader.Read();
}
INSTANTIATE_TEST_SUITE_P(Table, DeathsInAWrite,
                         testing::ValuesIn<DeathCase>({{"Formatting", "stream.format.length", 0},
                                                       {"Copied", "stream.write.copied:3", 2},
                                                       {"Published", "stream.write.published:3", 3}}),
                         [](auto const& row) { return row.param.name; });
#endif

}  // namespace
