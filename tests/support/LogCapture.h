#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "corvalen/diagnostics/Log.h"

namespace Support {

/// Starts the log, keeps every line that reaches its procedures, and stops the log again.
class LogCapture {
public:
    struct Line {
        unsigned severity;
        std::uint64_t component;
        std::string name;
        unsigned threadId;
        long time;
        std::string context;
        std::string text;
    };

    LogCapture();
    ~LogCapture();
    LogCapture(LogCapture const&) = delete;
    LogCapture& operator=(LogCapture const&) = delete;

    [[nodiscard]] std::vector<Line> const& Lines() const { return m_Lines; }
    /// How many lines contain `part` in their text.
    [[nodiscard]] unsigned Count(std::string const& part) const;
    /// How often the assertion `expression` of source `source` was reported at `severity`.
    [[nodiscard]] unsigned Asserted(unsigned severity, std::string const& expression,
                                    std::string const& source) const;
    void Clear() { m_Lines.clear(); }

private:
    static void Keep(void* user, unsigned severity, std::uint64_t component, char const* name,
                     unsigned threadId, long time, char const* context, char const* text);

    std::vector<Line> m_Lines;
};

}  // namespace Support
