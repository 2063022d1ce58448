// What it takes to delete 10,000 files in 100 directories: FDirectory beside `rm -rf`, with what it takes to
// start a process, and std::filesystem::remove_all. The trees lie in $TMPDIR, else in /tmp; making them takes
// most of the run.

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench/services/Rounds.h"
#include "corvalen/io/Directory.h"
#include "corvalen/text/UcsConv.h"

namespace {

namespace fs = std::filesystem;

constexpr unsigned kDirectories = 100;
constexpr unsigned kFilesEach = 100;
constexpr unsigned kRounds = 7;

void Require(bool holds, char const* what) {
    if (!holds) {
        std::perror(what);
        std::exit(1);
    }
}

void MakeTree(fs::path const& tree) {
    for (unsigned directory = 0; directory < kDirectories; ++directory) {
        fs::path const path = tree / ("directory" + std::to_string(directory));
        fs::create_directories(path);
        for (unsigned file = 0; file < kFilesEach; ++file) {
            std::ofstream const made(path / ("file" + std::to_string(file)));
            Require(made.is_open(), "make a file");
        }
    }
}

void Run(char const* program, char const* first, std::string const& second) {
    char* const arguments[] = {const_cast<char*>(program), const_cast<char*>(first),
                               const_cast<char*>(second.c_str()), nullptr};
    pid_t child = -1;
    int status = -1;
    Require(::posix_spawnp(&child, program, nullptr, nullptr, arguments, environ) == 0, program);
    Require(::waitpid(child, &status, 0) == child && status == 0, program);
}

}  // namespace

int main() {
    System::Text::UcsConv::Init();
    std::string folder = (fs::temp_directory_path() / "corvalen_bench_XXXXXX").string();
    Require(::mkdtemp(folder.data()) != nullptr, "make a folder");
    std::string const tree = folder + "/tree";
    auto const make = [&] {
        MakeTree(tree);
    };
    Bench::Compare("delete 10,000 files in 100 directories", kRounds,
                   {{"FDirectory::Delete", make,
                     [&] {
                         Require(System::IO::FDirectory::Delete(tree, true), "FDirectory::Delete");
                     }},
                    {"rm -rf", make,
                     [&] {
                         Run("rm", "-rf", tree);
                     }},
                    {"std::filesystem::remove_all", make,
                     [&] {
                         fs::remove_all(tree);
                     }},
                    {"(starting a process)", [] {},
                     [&] {
                         Run("true", "", "");
                     }}});
    Require(::rmdir(folder.c_str()) == 0, "remove the folder");
    System::Text::UcsConv::Terminate();
    return 0;
}
