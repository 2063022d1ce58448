#include "bench/rpc/Table.h"

namespace Bench {

namespace {

std::string Text(std::optional<double> value, char const* none) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", value.value_or(0));
    return value ? text : none;
}

}  // namespace

Table::Table(std::string const& csv)
    : m_Csv(csv.empty() ? nullptr : std::fopen(csv.c_str(), "w")),
      m_IsValid(csv.empty() || m_Csv != nullptr) {
    std::puts(
        "us: median of round trips, mean of notifications; cpu: us for each message, percent when idle");
    std::printf("%-12s %-15s %-8s %-14s %6s %11s %11s %11s %9s %8s\n", "what", "transport", "waiting",
                "placement", "bytes", "us", "p99 us", "p99.9 us", "cpu", "ratio");
    if (m_Csv != nullptr) {
        std::fputs("what,transport,waiting,placement,bytes,us,p99,p999,cpu,ratio\n", m_Csv.get());
    }
}

void Table::Add(Row const& row) const {
    std::printf("%-12s %-15s %-8s %-14s %6zu %11s %11s %11s %9s %8s\n", row.what, row.transport, row.waiting,
                row.placement, row.bytes, Text(row.us, "-").c_str(), Text(row.p99Us, "-").c_str(),
                Text(row.p999Us, "-").c_str(), Text(row.processor, "-").c_str(),
                Text(row.ratio, "-").c_str());
    std::fflush(stdout);
    if (m_Csv != nullptr) {
        std::fprintf(m_Csv.get(), "%s,%s,%s,%s,%zu,%s,%s,%s,%s,%s\n", row.what, row.transport, row.waiting,
                     row.placement, row.bytes, Text(row.us, "").c_str(), Text(row.p99Us, "").c_str(),
                     Text(row.p999Us, "").c_str(), Text(row.processor, "").c_str(),
                     Text(row.ratio, "").c_str());
    }
}

}  // namespace Bench
