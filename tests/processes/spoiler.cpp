// spoiler <seed> <rounds> <file>...: overwrites random words of the files, thousands in each round, then
// reports "done". Every other round it puts back small numbers and zeros, which look more like the real
// thing.

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>
#include <vector>

namespace {

struct Target {
    std::uint32_t* words;
    std::size_t count;
};

std::vector<Target> MapAll(int count, char** paths) {
    std::vector<Target> targets;
    for (int i = 0; i < count; ++i) {
        int const file = ::open(paths[i], O_RDWR | O_CLOEXEC);
        struct stat status {};
        if (file < 0 || ::fstat(file, &status) != 0) {
            continue;
        }
        auto const size = static_cast<std::size_t>(status.st_size);
        void* const memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        ::close(file);
        if (memory != MAP_FAILED) {
            targets.push_back({static_cast<std::uint32_t*>(memory), size / sizeof(std::uint32_t)});
        }
    }
    return targets;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        return 2;
    }
    constexpr int kWordsInARound = 2000;
    // Most of what decides lies in the first pages.
    constexpr std::size_t kHeadWords = 2048;
    std::mt19937 random(static_cast<unsigned>(std::atoi(argv[1])));
    std::vector<Target> const targets = MapAll(argc - 3, argv + 3);
    for (int round = 0; round < std::atoi(argv[2]); ++round) {
        for (int i = 0; i < kWordsInARound; ++i) {
            Target const& target = targets[random() % targets.size()];
            std::size_t const reach = random() % 2 == 0 ? target.count : std::min(target.count, kHeadWords);
            std::uint32_t const value = round % 2 == 0 ? static_cast<std::uint32_t>(random())
                                                       : static_cast<std::uint32_t>(random() % 5);
            std::atomic_ref(target.words[random() % reach]).store(value, std::memory_order_relaxed);
        }
        ::sched_yield();
    }
    std::cout << "done" << std::endl;
    return targets.empty() ? 1 : 0;
}
