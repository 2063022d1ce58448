#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Bench {

/// One way of bytes from a writer's process to a reader's. Both ends open the road of the same kind: the
/// writer by what Address() of the reader's end says.
class Road {
public:
    virtual ~Road() = default;
    /// What the writer's process needs to open its end.
    [[nodiscard]] virtual std::string Address() const = 0;
    /// Takes the bytes, waiting for room.
    virtual void Write(std::span<std::byte const> record) = 0;
    /// Appends what is there, at least one byte, to `bytes`.
    virtual void Read(std::vector<std::byte>& bytes) = 0;
};

/// The kinds: "shared stream", "pipe", "unix socket".
std::vector<std::string> RoadKinds();
/// The reader's end of a new road, or with an address the writer's end of an old one.
std::unique_ptr<Road> OpenRoad(std::string const& kind, std::string const& address = {});

/// Bytes that a road can hold: what a pipe has.
constexpr std::size_t kCapacity = 65536;

}  // namespace Bench
