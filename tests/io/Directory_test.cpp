#include "corvalen/io/Directory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "corvalen/text/UcsConv.h"
#include "tests/support/Unique.h"

namespace {

namespace fs = std::filesystem;
using System::IO::FDirectory;
using System::Text::UcsConv;

// Each test has an empty folder of its own and the converter started.
class Directory : public testing::Test {
protected:
    Directory() { UcsConv::Init(); }
    ~Directory() override { UcsConv::Terminate(); }

    // Makes what is named: a directory for a name that ends in '/', else a file, read-only with '!' behind
    // it.
    void Make(std::vector<std::string> const& names) const {
        for (std::string const& name : names) {
            bool const isReadOnly = name.ends_with('!');
            std::string const path = m_Folder / name.substr(0, name.size() - (isReadOnly ? 1 : 0));
            fs::create_directories(path.substr(0, path.rfind('/')));
            if (!path.ends_with('/')) {
                Support::WriteFile(path, "x");
                ASSERT_EQ(::chmod(path.c_str(), isReadOnly ? 0444 : 0644), 0);
            }
        }
    }

    [[nodiscard]] bool Exists(std::string const& name) const { return fs::exists(m_Folder / name); }

    Support::TemporaryFolder m_Folder;
};

struct TreeCase {
    char const* name;
    std::vector<std::string> made;
    bool recursive;
    char const* path;
    bool isGone;
    std::vector<std::string> left;
};
class DirectoryDelete : public Directory, public testing::WithParamInterface<TreeCase> {};

TreeCase const kTrees[] = {
    {"File", {"file"}, false, "file", true, {}},
    {"HiddenFile", {".file"}, false, ".file", true, {}},
    {"ReadOnlyFile", {"file!"}, false, "file", false, {"file"}},
    {"MissingFile", {"other"}, false, "file", false, {"other"}},
    {"DirectoryAsFile", {"tree/"}, false, "tree", false, {"tree"}},
    {"FileAsDirectory", {"file"}, true, "file", false, {"file"}},
    {"MissingDirectory", {"other/"}, true, "tree", false, {"other"}},
    {"EmptyDirectory", {"tree/"}, true, "tree", true, {}},
    {"Tree", {"tree/a/b/c", "tree/d", "tree/e/"}, true, "tree", true, {}},
    {"SeparatorAtTheEnd", {"tree/a/b"}, true, "tree//", true, {}},
    {"DotFile", {"tree/.profile", "tree/sub/.x"}, true, "tree", true, {}},
    {"DotDirectory",
     {"tree/sub/.cache/x", "tree/sub/y", "tree/z"},
     true,
     "tree",
     false,
     {"tree", "tree/sub", "tree/sub/.cache", "tree/sub/.cache/x"}},
    {"DotDirectoryItself", {".cache/x"}, true, ".cache", true, {}},
    {"ReadOnlyInside",
     {"tree/a/x!", "tree/a/y", "tree/b/z"},
     true,
     "tree",
     false,
     {"tree", "tree/a", "tree/a/x"}},
    {"NotAscii", {"b\xC3\xA4um/\xE2\x82\xAC"}, true, "b\xC3\xA4um", true, {}},
};

TEST_P(DirectoryDelete, RemovesAsMuchAsItMay) {
    Make(GetParam().made);
    EXPECT_EQ(FDirectory::Delete(m_Folder / GetParam().path, GetParam().recursive), GetParam().isGone);
    std::vector<std::string> left;
    for (auto const& entry : fs::recursive_directory_iterator(m_Folder.Path())) {
        left.push_back(entry.path().string().substr(m_Folder.Path().size() + 1));
    }
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, GetParam().left);
}
INSTANTIATE_TEST_SUITE_P(, DirectoryDelete, testing::ValuesIn(kTrees),
                         [](auto const& row) { return std::string(row.param.name); });

TEST_F(Directory, IsNotTouchedByAPathThatCantBeConvertedWhole) {
    Make({"tree/file", "tree/sub/"});
    for (std::string const& name : {std::string("tree\xF0\x9F\x98\x80"), std::string("tree\x80"),
                                    std::string("tree/\xF0\x9F\x98\x80"), std::string("tree\0/x", 7)}) {
        EXPECT_FALSE(FDirectory::Delete(m_Folder / name, true));
        EXPECT_FALSE(FDirectory::Delete(m_Folder / name, false));
    }
    for (char const* path : {"", "/"}) {
        EXPECT_FALSE(FDirectory::Delete(path, true));
        EXPECT_FALSE(FDirectory::Delete(path, false));
    }
    EXPECT_TRUE(Exists("tree/file") && Exists("tree/sub"));
}

TEST_F(Directory, IsSoughtUnderTheFirst259CharactersOfItsName) {
    std::string const prefix = m_Folder.Path() + "/" + std::string(100, 'n') + "/";
    fs::create_directory(prefix);
    std::string const path = prefix + std::string(258 - prefix.size(), 'n');
    fs::create_directory(path + "n");
    EXPECT_TRUE(FDirectory::Delete(path + "nbehind", true));
    EXPECT_FALSE(fs::exists(path + "n"));
    // Characters, not bytes.
    Support::WriteFile(path + "\xE2\x82\xAC", "");
    EXPECT_TRUE(FDirectory::Delete(path + "\xE2\x82\xAC"
                                          "behind",
                                   false));
    EXPECT_FALSE(fs::exists(path + "\xE2\x82\xAC"));
}

TEST_F(Directory, KeepsAnEntryWhoseFullNameIsTooLong) {
    std::string const tree = m_Folder.Path() + "/" + std::string(100, 't');
    std::size_t const room = 259 - tree.size() - 1;
    fs::create_directory(tree);
    std::string const fits = tree + "/" + std::string(room, 'a');
    std::string const isTooLong = tree + "/" + std::string(room + 1, 'b');
    Support::WriteFile(fits, "");
    Support::WriteFile(isTooLong, "");
    EXPECT_FALSE(FDirectory::Delete(tree, true));
    EXPECT_FALSE(fs::exists(fits));
    EXPECT_TRUE(fs::exists(isTooLong));
}

TEST_F(Directory, OfAThousandLevelsGoesAsFarAsItsNamesMay) {
    Make({"tree/file"});
    int at = ::open((m_Folder / "tree").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(::mkdirat(at, "d", 0755), 0);
        int const below = ::openat(at, "d", O_PATH | O_DIRECTORY | O_CLOEXEC);
        ::close(at);
        at = below;
    }
    ::close(at);
    EXPECT_FALSE(FDirectory::Delete(m_Folder / "tree", true));
    EXPECT_FALSE(Exists("tree/file"));
    EXPECT_TRUE(Exists("tree/d/d"));
}

}  // namespace
