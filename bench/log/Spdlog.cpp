#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include "bench/log/Logger.h"

namespace Bench {

namespace {

constexpr std::size_t kLimit = 10485760;
constexpr std::size_t kOlderFiles = 1;

std::shared_ptr<spdlog::logger> s_Logger;

void Open(std::string const& folder) {
    s_Logger = spdlog::rotating_logger_mt("ERR", folder + "/spdlog.txt", kLimit, kOlderFiles);
    s_Logger->set_level(spdlog::level::info);
    s_Logger->flush_on(spdlog::level::trace);
}

void Filtered(std::size_t count) {
    for (std::size_t line = 0; line < count; ++line) {
        s_Logger->debug(kText);
        KeepLoop();
    }
}

void Delivered(std::size_t count) {
    for (std::size_t line = 0; line < count; ++line) {
        s_Logger->info(kText);
    }
}

void Close() {
    s_Logger.reset();
    spdlog::shutdown();
}

}  // namespace

Logger const kSpdlog{"spdlog, rotating_logger_mt, flush_on", Open, Filtered, Delivered, Close};

}  // namespace Bench
