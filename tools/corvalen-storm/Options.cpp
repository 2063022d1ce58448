#include "Options.h"

#include <charconv>
#include <cstdio>
#include <random>
#include <string_view>

#include "Board.h"

namespace Storm {

namespace {

constexpr std::uint32_t kDefaultSeconds = 30;

constexpr char kUsage[] =
    "usage: corvalen-storm [--kills N] [--seconds N] [--seed N] [--clients N]\n"
    "\n"
    "Starts a server and clients that exchange checked messages through one channel, kills random ones of\n"
    "them at random moments, starts them again, and draws the balance at the end.\n"
    "\n"
    "  --kills N    end after N kills\n"
    "  --seconds N  end after N seconds (30 if neither bound is given)\n"
    "  --seed N     the same random decisions again (which is not the same storm)\n"
    "  --clients N  1 to 64 clients, 6 if not given\n"
    "\n"
    "Exit code 0: the balance holds. 1: it does not. 2: the command line is wrong.\n";

template <typename Number>
bool Parse(std::string_view text, Number& value) {
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

bool Set(Options& options, std::string_view name, std::string_view value) {
    if (name == "--kills") {
        return Parse(value, options.kills);
    }
    if (name == "--seconds") {
        return Parse(value, options.seconds);
    }
    if (name == "--seed") {
        return Parse(value, options.seed);
    }
    return name == "--clients" && Parse(value, options.clients) && options.clients >= 1 &&
           options.clients <= kMaxClients;
}

}  // namespace

std::optional<Options> ReadOptions(int argc, char** argv) {
    Options options;
    options.seed = std::random_device()();
    for (int i = 1; i < argc; i += 2) {
        if (i + 1 >= argc || !Set(options, argv[i], argv[i + 1])) {
            std::fputs(kUsage, stderr);
            return std::nullopt;
        }
    }
    if (options.kills == 0 && options.seconds == 0) {
        options.seconds = kDefaultSeconds;
    }
    return options;
}

}  // namespace Storm
