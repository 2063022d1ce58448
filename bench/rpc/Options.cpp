#include "bench/rpc/Options.h"

#include <algorithm>
#include <cstdio>

namespace Bench {

namespace {

// To see that all works, not to learn how fast it is.
void MakeQuick(Options& options) {
    options.roundTrips = 200;
    options.notifications = 2000;
    options.idleSeconds = 1;
}

}  // namespace

bool Options::Wants(std::string const& transport) const {
    return only.empty() || std::any_of(only.begin(), only.end(), [&transport](std::string const& part) {
               return transport.find(part) != std::string::npos;
           });
}

std::optional<Options> ReadOptions(int argc, char** argv) {
    Options options;
    for (int n = 1; n < argc; ++n) {
        std::string const option = argv[n];
        bool const hasValue = n + 1 < argc;
        if (option == "--quick") {
            MakeQuick(options);
        } else if (option == "--only" && hasValue) {
            options.only.emplace_back(argv[++n]);
        } else if (option == "--csv" && hasValue) {
            options.csv = argv[++n];
        } else {
            std::fprintf(stderr, "usage: %s [--quick] [--only NAME]... [--csv FILE]\n", argv[0]);
            return std::nullopt;
        }
    }
    return options;
}

}  // namespace Bench
