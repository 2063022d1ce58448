#pragma once

// CORVALEN_API marks what the shared library exports; everything else in it is hidden.
#define CORVALEN_API __attribute__((visibility("default")))
