#include "platform/AppendFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "tests/support/Unique.h"

namespace {

using System::Platform::AppendFile;

// What another process holds while it rotates the file at `path`.
class RotationLock {
public:
    explicit RotationLock(std::string const& path) : m_File(::open(path.c_str(), O_WRONLY | O_CLOEXEC)) {
        EXPECT_EQ(::flock(m_File, LOCK_EX), 0);
    }
    ~RotationLock() { ::close(m_File); }
    RotationLock(RotationLock const&) = delete;
    RotationLock& operator=(RotationLock const&) = delete;

private:
    int m_File;
};

class AppendFileTest : public testing::Test {
protected:
    bool Open(AppendFile& file) { return file.Open(m_Path, m_OlderPath); }

    static bool Append(AppendFile& file, std::string_view line) {
        file.Follow();
        return file.Append(std::span(&line, 1));
    }
    [[nodiscard]] std::string Present() const { return Support::ReadFile(m_Path); }
    [[nodiscard]] std::string Older() const { return Support::ReadFile(m_OlderPath); }

    Support::TemporaryFolder m_Folder;
    std::string m_Path = m_Folder / "x.log";
    std::string m_OlderPath = m_Folder / "x_.log";
    AppendFile m_File;
};

TEST_F(AppendFileTest, AppendsBehindWhatIsThereAndTellsThePosition) {
    Support::WriteFile(m_Path, "old\n");
    ASSERT_TRUE(Open(m_File));
    EXPECT_EQ(m_File.Position(), 4);
    std::string_view const pieces[] = {"a", "", "bc", "\n"};
    EXPECT_TRUE(m_File.Append(pieces));
    EXPECT_EQ(Present(), "old\nabc\n");
    EXPECT_EQ(m_File.Position(), 8);
}

TEST_F(AppendFileTest, WritesLongLinesWhole) {
    ASSERT_TRUE(Open(m_File));
    std::string expected;
    for (std::size_t length : {4095u, 4096u, 4097u, 300000u}) {
        std::string const text(length - 1, 'x');
        std::string_view const pieces[] = {text, "\n"};
        EXPECT_TRUE(m_File.Append(pieces));
        expected += text + "\n";
    }
    EXPECT_EQ(Present(), expected);
    EXPECT_EQ(m_File.Position(), static_cast<std::int64_t>(expected.size()));
}

TEST_F(AppendFileTest, KeepsTwoGenerations) {
    ASSERT_TRUE(Open(m_File));
    for (char const* line : {"1\n", "2\n", "3\n"}) {
        Append(m_File, line);
        m_File.Rotate("first\n");
    }
    EXPECT_EQ(Older(), "first\n3\n");
    EXPECT_EQ(Present(), "first\n");
    EXPECT_EQ(m_File.Position(), 6);
}

TEST_F(AppendFileTest, GoesOnInTheSameFileIfItCantBeRenamed) {
    ASSERT_TRUE(std::filesystem::create_directory(m_OlderPath));
    ASSERT_TRUE(Open(m_File));
    Append(m_File, "1\n");
    m_File.Rotate("first\n");
    Append(m_File, "2\n");
    m_File.Rotate("first\n");
    EXPECT_EQ(Present(), "1\nfirst\n2\nfirst\n");
    EXPECT_TRUE(std::filesystem::is_directory(m_OlderPath));
}

TEST_F(AppendFileTest, IsClosedWhenItsFolderIsGone) {
    std::filesystem::path const folder = std::filesystem::path(m_Folder.Path()) / "gone";
    std::filesystem::create_directory(folder);
    ASSERT_TRUE(m_File.Open(folder / "x.log", folder / "x_.log"));
    std::filesystem::remove_all(folder);
    m_File.Rotate("first\n");
    EXPECT_FALSE(m_File.IsOpen());
    m_File.Follow();
    EXPECT_FALSE(m_File.IsOpen());
}

TEST_F(AppendFileTest, FollowsAnotherThatHasRotated) {
    AppendFile other;
    ASSERT_TRUE(Open(m_File));
    ASSERT_TRUE(Open(other));
    Append(m_File, "1\n");
    other.Rotate("first\n");
    m_File.Rotate("the second to rotate renames nothing\n");
    Append(m_File, "2\n");
    EXPECT_EQ(Older(), "1\n");
    EXPECT_EQ(Present(), "first\n2\n");
    EXPECT_EQ(m_File.Position(), static_cast<std::int64_t>(Present().size()));
}

TEST_F(AppendFileTest, FollowsAtTheLatestAfterSomeKilobytes) {
    AppendFile other;
    ASSERT_TRUE(Open(m_File));
    ASSERT_TRUE(Open(other));
    Append(m_File, "1\n");
    other.Rotate("first\n");
    std::string const text(1000, 'x');
    for (int line = 0; line < 70; ++line) {
        Append(m_File, text);
    }
    EXPECT_TRUE(Present().ends_with(text));
    EXPECT_EQ(Older().size() + Present().size(), 2 + 6 + 70 * text.size());
}

TEST_F(AppendFileTest, MakesAFileAnewThatSomeoneRemoved) {
    ASSERT_TRUE(Open(m_File));
    ASSERT_EQ(::unlink(m_Path.c_str()), 0);
    m_File.Follow();
    EXPECT_TRUE(m_File.IsEmpty());
    Append(m_File, "1\n");
    EXPECT_EQ(Present(), "1\n");
}

TEST_F(AppendFileTest, LeavesTheFileToWhoeverIsRotatingIt) {
    ASSERT_TRUE(Open(m_File));
    RotationLock const rotating(m_Path);
    m_File.Rotate("first\n");
    Append(m_File, "1\n");
    EXPECT_EQ(Present(), "1\n");
    EXPECT_FALSE(std::filesystem::exists(m_OlderPath));
    ASSERT_EQ(::rename(m_Path.c_str(), m_OlderPath.c_str()), 0);
    m_File.Rotate("first\n");
    Append(m_File, "2\n");
    EXPECT_EQ(Older(), "1\n2\n");
    EXPECT_FALSE(std::filesystem::exists(m_Path));
}

// A forked child that shares all descriptors of the test, and does nothing with them.
class IdleChild {
public:
    IdleChild() {
        EXPECT_EQ(::pipe2(m_Pipe, O_CLOEXEC), 0);
        m_Pid = ::fork();
        if (m_Pid == 0) {
            ::close(m_Pipe[1]);
            char byte = 0;
            ::_exit(static_cast<int>(::read(m_Pipe[0], &byte, 1)));
        }
    }
    ~IdleChild() {
        ::close(m_Pipe[0]);
        ::close(m_Pipe[1]);
        ::waitpid(m_Pid, nullptr, 0);
    }
    IdleChild(IdleChild const&) = delete;
    IdleChild& operator=(IdleChild const&) = delete;

private:
    int m_Pipe[2];
    pid_t m_Pid = -1;
};

TEST_F(AppendFileTest, KeepsNobodyFromFollowingWhileAForkedChildHoldsTheOldFile) {
    AppendFile others[2];
    ASSERT_TRUE(Open(m_File));
    ASSERT_TRUE(Open(others[0]));
    ASSERT_TRUE(Open(others[1]));
    IdleChild const child;
    Append(m_File, "1\n");
    m_File.Rotate("first\n");
    Append(others[0], "2\n");
    others[1].Rotate("renames nothing\n");
    Append(others[1], "3\n");
    EXPECT_EQ(Older(), "1\n");
    EXPECT_EQ(Present(), "first\n2\n3\n");
}

TEST_F(AppendFileTest, HasNoPositionInAPipe) {
    ASSERT_EQ(::mkfifo(m_Path.c_str(), 0600), 0);
    int const reader = ::open(m_Path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_TRUE(Open(m_File));
    EXPECT_TRUE(Append(m_File, "1\n"));
    EXPECT_EQ(m_File.Position(), -1);
    char bytes[8];
    EXPECT_EQ(::read(reader, bytes, sizeof bytes), 2);
    ::close(reader);
}

TEST_F(AppendFileTest, TellsThatALineDidNotArrive) {
    ASSERT_EQ(::symlink("/dev/full", m_Path.c_str()), 0);
    ASSERT_TRUE(Open(m_File));
    EXPECT_FALSE(Append(m_File, "1\n"));
    EXPECT_FALSE(Append(m_File, std::string(5000, 'x')));
}

}  // namespace
