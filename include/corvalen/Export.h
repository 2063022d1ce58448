#pragma once

#if __cplusplus <= 201703L
#error "corvalen needs C++20: compile with -std=c++20"
#endif

// CORVALEN_API marks what the shared library exports; everything else in it is hidden.
#define CORVALEN_API __attribute__((visibility("default")))
