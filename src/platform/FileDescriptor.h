#pragma once

#include <unistd.h>

#include <utility>

namespace System::Platform {

/// Owns one descriptor; closed exactly once, empty after a move.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : m_Descriptor(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : m_Descriptor(other.Release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    ~FileDescriptor() { Reset(); }

    [[nodiscard]] bool IsOpen() const { return m_Descriptor >= 0; }
    [[nodiscard]] int Get() const { return m_Descriptor; }
    /// Hands the descriptor to the caller, who closes it.
    [[nodiscard]] int Release() { return std::exchange(m_Descriptor, -1); }
    void Reset(int descriptor = -1) {
        int const old = std::exchange(m_Descriptor, descriptor);
        if (old >= 0) {
            // Nothing is left to do about a failed close: the descriptor is gone either way.
            static_cast<void>(::close(old));
        }
    }

private:
    int m_Descriptor = -1;
};

}  // namespace System::Platform
