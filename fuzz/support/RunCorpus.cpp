// Runs every file of the given corpus folders through a fuzz target, so that the seeds are tests in each
// build.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace {

bool RunFile(std::filesystem::path const& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<char> const bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad() || !file.is_open()) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return false;
    }
    LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    unsigned ran = 0;
    for (int i = 1; i < argc; ++i) {
        for (auto const& entry : std::filesystem::directory_iterator(argv[i])) {
            if (!RunFile(entry.path())) {
                return 1;
            }
            ++ran;
        }
    }
    std::printf("%u seeds\n", ran);
    return ran == 0 ? 1 : 0;
}
