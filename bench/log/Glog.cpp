#include <glog/logging.h>

#include "bench/log/Logger.h"

namespace Bench {

namespace {

constexpr unsigned kLimitMegabytes = 10;

void Open(std::string const& folder) {
    FLAGS_logtostderr = false;
    FLAGS_stderrthreshold = google::FATAL;
    FLAGS_logbuflevel = -1;
    FLAGS_max_log_size = kLimitMegabytes;
    google::SetLogDestination(google::INFO, (folder + "/glog_").c_str());
    google::InitGoogleLogging("log");
}

void Filtered(std::size_t count) {
    for (std::size_t line = 0; line < count; ++line) {
        VLOG(1) << kText;
        KeepLoop();
    }
}

void Delivered(std::size_t count) {
    for (std::size_t line = 0; line < count; ++line) {
        LOG(INFO) << kText;
    }
}

void Close() {
    google::ShutdownGoogleLogging();
}

}  // namespace

Logger const kGlog{"glog, flush at each line", Open, Filtered, Delivered, Close};

}  // namespace Bench
