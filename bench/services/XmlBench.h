#pragma once

#include <string>
#include <vector>

#include "bench/services/Rounds.h"

namespace Bench {

/// What each contestant is to do with one document, all queries of a round after each other.
struct XmlTask {
    std::string document;
    std::vector<std::string> queries;  // each selects one element by an attribute test
    char const* attribute;             // which those elements have
};

/// Contestants of one question.
struct XmlPeers {
    std::vector<Contestant> query;    // find the element of each query
    std::vector<Contestant> change;   // find it, and set the attribute
    std::vector<Contestant> setOnly;  // set the attribute on one held element
};

constexpr unsigned kSets = 10000;

/// Those of libxml2; none where it is missing.
XmlPeers Libxml2Peers(XmlTask const& task);

}  // namespace Bench
