#include "tests/support/Unique.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace Support {

std::string UniqueName(char const* prefix) {
    static std::atomic<unsigned> s_Count{0};
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    std::ostringstream name;
    name << prefix << std::hex << ::getpid() << '_' << (now.tv_sec * 1000 + now.tv_nsec / 1000000) % 0xFFFFFFF
         << '_' << ++s_Count;
    return name.str();
}

std::u16string UniqueWideName(char const* prefix) {
    std::string const name = UniqueName(prefix);
    return {name.begin(), name.end()};
}

TemporaryFolder::TemporaryFolder() {
    char const* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/corvalen_test_XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::abort();
    }
    m_Path = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_Path, ignored);
}

std::string ReadFile(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

void WriteFile(std::string const& path, std::string const& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace Support
