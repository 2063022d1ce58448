#include "platform/FileSystem.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "platform/FileDescriptor.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Unique.h"

namespace {

namespace fs = std::filesystem;
using Support::TemporaryFolder;
using Support::WriteFile;
using System::Platform::FileSystem::RemoveFile;
using System::Platform::FileSystem::RemoveTree;

std::ptrdiff_t EntriesIn(std::string const& folder) {
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

// A chain of `levels` directories called "d", with a link in each; longer than a path may be.
void MakeChain(std::string const& top, int levels) {
    ASSERT_EQ(::mkdir(top.c_str(), 0755), 0);
    int at = ::open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; i < levels; ++i) {
        ASSERT_EQ(::mkdirat(at, "d", 0755), 0);
        ASSERT_EQ(::symlinkat("nowhere", at, "file"), 0);
        int const below = ::openat(at, "d", O_PATH | O_DIRECTORY | O_CLOEXEC);
        ::close(at);
        at = below;
    }
    ::close(at);
}

// Lets this process open `count` more descriptors, for as long as this lives.
class FewDescriptors {
public:
    explicit FewDescriptors(int count) {
        ::getrlimit(RLIMIT_NOFILE, &m_Before);
        int highest = 0;
        for (auto const& entry : fs::directory_iterator("/proc/self/fd")) {
            highest = std::max(highest, std::stoi(entry.path().filename()));
        }
        do {
            m_Fillers.emplace_back(::open("/", O_PATH | O_CLOEXEC));
        } while (m_Fillers.back().IsOpen() && m_Fillers.back().Get() < highest);
        rlimit few = m_Before;
        few.rlim_cur = static_cast<rlim_t>(m_Fillers.back().Get() + 1 + count);
        ::setrlimit(RLIMIT_NOFILE, &few);
    }
    ~FewDescriptors() { ::setrlimit(RLIMIT_NOFILE, &m_Before); }
    FewDescriptors(FewDescriptors const&) = delete;
    FewDescriptors& operator=(FewDescriptors const&) = delete;

private:
    rlimit m_Before{};
    std::vector<System::Platform::FileDescriptor> m_Fillers;  // of gaps below the limit
};

TEST(RemoveTree, TakesTenThousandEntries) {
    TemporaryFolder const folder;
    // Links to one file are made faster than files, and go in the same way.
    WriteFile(folder / "file", "");
    for (int directory = 0; directory < 10; ++directory) {
        std::string const path = folder / "tree/" + std::to_string(directory);
        fs::create_directories(path);
        for (int file = 0; file < 1000; ++file) {
            fs::create_hard_link(folder / "file", path + "/" + std::to_string(file));
        }
    }
    EXPECT_TRUE(RemoveTree((folder / "tree").c_str()));
    EXPECT_EQ(EntriesIn(folder.Path()), 1);
}

TEST(RemoveTree, NeedsFewDescriptorsForAThousandLevels) {
    TemporaryFolder const folder;
    MakeChain(folder / "tree", 1000);
    FewDescriptors const few(32);
    EXPECT_TRUE(RemoveTree((folder / "tree").c_str()));
    EXPECT_FALSE(fs::exists(folder / "tree"));
}

TEST(RemoveTree, IsDoneByOneThreadWhereTwoLackDescriptors) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizers need descriptors of their own to look at an object";
#endif
    constexpr int kEnoughForOneThread = 12;
    TemporaryFolder const folder;
    ASSERT_EQ(::mkdir((folder / "tree").c_str(), 0755), 0);
    for (int i = 0; i < 40; ++i) {
        MakeChain(folder / "tree/" + std::to_string(i), 20);
    }
    FewDescriptors const few(kEnoughForOneThread);
    EXPECT_TRUE(RemoveTree((folder / "tree").c_str()));
}

TEST(RemoveTree, LeavesWhatTheLimitOfNamesDoesNotReach) {
    TemporaryFolder const folder;
    std::string const tree = folder / "tree";
    fs::create_directories(tree);
    WriteFile(tree + "/a\xC3\xA9", "");                     // two units
    WriteFile(tree + "/\xF0\x9F\x98\x80\xE2\x82\xAC", "");  // three
    auto const limit = static_cast<unsigned>(tree.size() + 1 + 2);
    EXPECT_FALSE(RemoveTree(tree.c_str(), limit));
    EXPECT_EQ(EntriesIn(tree), 1);
    EXPECT_FALSE(fs::exists(tree + "/a\xC3\xA9"));
    EXPECT_TRUE(RemoveTree(tree.c_str(), limit + 1));
}

TEST(RemoveTree, RemovesLinksAndNotWhatTheyLeadTo) {
    TemporaryFolder const folder;
    fs::create_directories(folder / "tree/sub");
    fs::create_directories(folder / "kept");
    WriteFile(folder / "kept/file", "x");
    fs::create_directory_symlink(folder / "kept", folder / "tree/sub/directory");
    fs::create_symlink(folder / "kept/file", folder / "tree/file");
    fs::create_symlink("nowhere", folder / "tree/dangling");
    EXPECT_TRUE(RemoveTree((folder / "tree").c_str()));
    EXPECT_EQ(Support::ReadFile(folder / "kept/file"), "x");
}

TEST(RemoveTree, DoesNotEnterATreeThroughALinkToIt) {
    TemporaryFolder const folder;
    fs::create_directories(folder / "kept/sub");
    fs::create_directory_symlink(folder / "kept", folder / "link");
    EXPECT_FALSE(RemoveTree((folder / "link").c_str()));
    EXPECT_FALSE(RemoveTree((folder / "link/").c_str()));
    EXPECT_TRUE(fs::exists(folder / "link/sub"));
}

TEST(RemoveTree, IsNotLedAwayByALinkThatIsSwappedInMeanwhile) {
    constexpr int kDirectories = 150;
    constexpr int kRounds = 10;
    TemporaryFolder const folder;
    fs::create_directories(folder / "kept/sub");
    WriteFile(folder / "kept/file", "x");
    fs::create_directories(folder / "links");
    Support::ChildProcess swapper("SwapLinks",
                                  {folder / "tree", folder / "links", std::to_string(kDirectories)});
    ASSERT_TRUE(swapper.Reports("swapping"));
    for (int round = 0; round < kRounds; ++round) {
        for (int i = 0; i < kDirectories; ++i) {
            std::error_code ignored;
            fs::create_directories(folder / "tree/" + std::to_string(i) + "/sub", ignored);
            fs::create_directory_symlink(folder / "kept", folder / "links/" + std::to_string(i), ignored);
        }
        // It may fail to empty the tree, which someone else fills; it may not leave it.
        static_cast<void>(RemoveTree((folder / "tree").c_str()));
        ASSERT_TRUE(fs::exists(folder / "kept/sub"));
        ASSERT_EQ(Support::ReadFile(folder / "kept/file"), "x");
    }
}

TEST(RemoveTree, DoesNotCrossAMount) {
    // Enough for both threads of a removal to meet some.
    constexpr int kMounts = 200;
    TemporaryFolder const folder;
    fs::create_directories(folder / "outside/sub");
    for (int i = 0; i < kMounts; ++i) {
        fs::create_directories(folder / "doomed/" + std::to_string(i));
    }
    WriteFile(folder / "doomed/file", "");
    Support::ChildProcess remover("DeleteAcrossMount", {folder.Path(), std::to_string(kMounts)});
    std::optional<std::string> const report = remover.ReadLine();
    ASSERT_TRUE(report.has_value());
    if (*report == "no mounts") {
        GTEST_SKIP() << "mounting is not allowed here";
    }
    EXPECT_EQ(*report, "refused");
    EXPECT_TRUE(fs::exists(folder / "outside/sub"));
    EXPECT_FALSE(fs::exists(folder / "doomed/file"));
}

TEST(RemoveTree, KeepsReadOnlyFilesAndTheDirectoriesAboveThem) {
    TemporaryFolder const folder;
    fs::create_directories(folder / "tree/a/b");
    WriteFile(folder / "tree/a/b/kept", "x");
    WriteFile(folder / "tree/a/gone", "x");
    ASSERT_EQ(::chmod((folder / "tree/a/b/kept").c_str(), 0444), 0);
    EXPECT_FALSE(RemoveTree((folder / "tree").c_str()));
    EXPECT_TRUE(fs::exists(folder / "tree/a/b/kept"));
    EXPECT_FALSE(fs::exists(folder / "tree/a/gone"));
}

struct NoTreeCase {
    char const* name;
    char const* path;
};
class NoTree : public testing::TestWithParam<NoTreeCase> {};

constexpr NoTreeCase kNoTrees[] = {
    {"Empty", ""},
    {"Root", "/"},
    {"ManySeparators", "///"},
    {"Missing", "/nonexistent/a"},
};

TEST_P(NoTree, IsRefused) {
    EXPECT_FALSE(RemoveTree(GetParam().path));
    EXPECT_FALSE(RemoveFile(GetParam().path));
}
INSTANTIATE_TEST_SUITE_P(, NoTree, testing::ValuesIn(kNoTrees),
                         [](auto const& row) { return std::string(row.param.name); });

}  // namespace
