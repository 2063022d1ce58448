#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace Bench {

/// One line of the table; what a measurement does not tell stays empty.
struct Row {
    char const* what;
    char const* transport;
    char const* waiting;
    char const* placement;
    std::size_t bytes = 0;
    /// Median of round trips, mean of notifications.
    std::optional<double> us;
    std::optional<double> p99Us;
    std::optional<double> p999Us;
    /// Microseconds for each message, or percent of a processor when idle.
    std::optional<double> processor;
    /// How many times ours `us` is.
    std::optional<double> ratio;
};

/// The table on standard output, and with commas in a file.
class Table {
public:
    /// Writes no file if `csv` is empty.
    explicit Table(std::string const& csv);

    /// False if a file was wanted and cannot be written.
    [[nodiscard]] bool IsValid() const { return m_IsValid; }
    void Add(Row const& row) const;

private:
    struct Closing {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    std::unique_ptr<std::FILE, Closing> m_Csv;
    bool m_IsValid;
};

}  // namespace Bench
