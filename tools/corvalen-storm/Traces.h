#pragma once

#include <set>
#include <string>
#include <vector>

namespace Storm {

/// Tells what a storm has left in the library's shared directory. Run it alone: what another program's
/// process left there when it was killed meanwhile counts as well.
class Traces {
public:
    /// Notes what is there before.
    Traces();

    /// Files that bear the name `channel`, and inboxes that came since and that no process holds any more.
    [[nodiscard]] std::vector<std::string> Left(std::string const& channel) const;

private:
    std::set<std::string> m_Before;
};

}  // namespace Storm
