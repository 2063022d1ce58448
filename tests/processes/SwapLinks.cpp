// SwapLinks <tree> <links> <count>: exchanges <tree>/<n> with <links>/<n> over and over, until its input
// ends.

#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

int main(int, char** argv) {
    std::string const tree = argv[1];
    std::string const links = argv[2];
    int const count = std::atoi(argv[3]);
    std::puts("swapping");
    std::fflush(stdout);
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (::poll(&input, 1, 0) == 0) {
        for (int i = 0; i < count; ++i) {
            std::string const name = "/" + std::to_string(i);
            // Fails once the deletion has taken one of the two.
            static_cast<void>(::renameat2(AT_FDCWD, (tree + name).c_str(), AT_FDCWD, (links + name).c_str(),
                                          RENAME_EXCHANGE));
        }
    }
    return 0;
}
