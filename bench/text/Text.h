#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Bench {

// One conversion of a whole text, ready to be called again and again: gives the bytes written.
using Conversion = std::function<std::size_t(std::string const& in, std::string& out)>;

// The external forms, as a peer knows them.
enum class Form { kUcs2, kHex, kGsm, kLatin1 };
enum class Way { kFromUtf8, kToUtf8 };

struct Peer {
    char const* name;
    Conversion conversion;  // empty where the peer does not have it
};

Peer MakeIconv(Form form, Way way, bool isOneToOne);
// Between two named code sets.
Conversion MakeIconv(char const* to, char const* from);
Peer MakeIcu(Form form, Way way);

// NativeConv beside a bare call of an open iconv descriptor, in some code sets.
void CompareNative();

// Nanoseconds of one call of each, in turns: the median of several rounds.
std::vector<double> Measure(std::vector<Conversion> const& all, std::vector<std::string const*> const& inputs,
                            std::size_t calls);

}  // namespace Bench
