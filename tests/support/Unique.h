#pragma once

#include <string>

namespace Support {

/// A short name (below 24 characters of a-z, 0-9, '_') that no other test, run or process uses.
std::string UniqueName(char const* prefix = "t");
std::u16string UniqueWideName(char const* prefix = "t");

/// A new empty folder, removed with all that is in it at the end.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(TemporaryFolder const&) = delete;
    TemporaryFolder& operator=(TemporaryFolder const&) = delete;

    /// Absolute, without a separator at the end.
    [[nodiscard]] std::string const& Path() const { return m_Path; }
    [[nodiscard]] std::string operator/(std::string const& name) const { return m_Path + "/" + name; }

private:
    std::string m_Path;
};

/// The whole content of a file; empty if there is none.
std::string ReadFile(std::string const& path);
void WriteFile(std::string const& path, std::string const& bytes);

}  // namespace Support
