#pragma once

#include <cstddef>
#include <string>

namespace Bench {

// The text of every line that is delivered.
constexpr char kText[] = "Handle 4A0012 of size 260 is purged because of its age; 1178 blocks are left";

// One way to log. `open` makes rotating files in `folder` that are flushed at each line; the other two hand
// over `count` lines that the level filters out, or that are delivered.
struct Logger {
    char const* name;
    void (*open)(std::string const& folder);
    void (*filtered)(std::size_t count);
    void (*delivered)(std::size_t count);
    void (*close)();
};

extern Logger const kSpdlog;
extern Logger const kGlog;

// The compiler must do what stands before it, and what stands behind it anew.
inline void KeepLoop() {
    asm volatile("" ::: "memory");
}

}  // namespace Bench
