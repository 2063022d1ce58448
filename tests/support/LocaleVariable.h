#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace Support {

/// Sets LC_ALL for as long as this lives. For tests of one thread.
class LocaleVariable {
public:
    explicit LocaleVariable(char const* locale) {
        if (char const* const before = std::getenv("LC_ALL")) {
            m_Before = before;
        }
        ::setenv("LC_ALL", locale, 1);
    }
    ~LocaleVariable() {
        if (m_Before) {
            ::setenv("LC_ALL", m_Before->c_str(), 1);
        } else {
            ::unsetenv("LC_ALL");
        }
    }
    LocaleVariable(LocaleVariable const&) = delete;
    LocaleVariable& operator=(LocaleVariable const&) = delete;

private:
    std::optional<std::string> m_Before;
};

}  // namespace Support
