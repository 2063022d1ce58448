#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace System::Platform {

/// A directory for named objects, and the mode of their files. A mode that admits other users makes the place
/// a shared one, whose directory is created if it is missing; in any other place only files of the process's
/// own user are opened.
struct Place {
    std::string directory;
    mode_t mode;
};

/// Where all processes of the machine meet: "/dev/shm/Corvalen/Temp", 0666.
[[nodiscard]] Place SharedPlace();
/// The user's own place: $XDG_RUNTIME_DIR, else $TMPDIR, else "/tmp", 0600.
[[nodiscard]] Place UserPlace();

/// What a named object is. Objects of different kinds never meet: while one kind holds a file name, every
/// other kind is refused with EEXIST.
enum class Kind : std::uint8_t { kRegion, kMutex, kStream, kInbox };

/// A file of shared memory under one name, seen by all processes that open it. The first to open it is told
/// that it created it and finds zeros; the last to close it removes the file. Every holder has a participant
/// number (1 to kMaxParticipant) that no other living holder has, and all can ask whether a number is alive.
///
/// Processes: a holder that dies holds nothing any more at that moment; a file left without a holder is
/// emptied and used anew by the next Open. A child made by fork holds nothing: there IsOpen() is false,
/// Participant() is 0, and Data() stays mapped until Close. Threads: Participant, IsAlive and ReserveUpTo may
/// be called on any thread while the object is open; the rest by one thread at a time. Errors: errno values.
/// EAGAIN: a process was stopped inside its own opening or closing for some seconds.
class NamedObject {
public:
    static constexpr unsigned kMaxParticipant = 65534;

    NamedObject();
    ~NamedObject();
    NamedObject(NamedObject&& other) noexcept;
    NamedObject& operator=(NamedObject&& other) noexcept;

    /// Opens or creates `place`/`fileName` with `size` bytes and maps them; the first `reserve` of them have
    /// memory behind them from now on, the others only after ReserveUpTo. Returns 0, or EINVAL (bad name,
    /// size 0, or the existing object is smaller), ENAMETOOLONG, EEXIST (other kind), ENOSPC, EACCES, EAGAIN,
    /// ...
    [[nodiscard]] int Open(Place const& place, std::string_view fileName, std::uint64_t size,
                           std::uint64_t reserve, Kind kind = Kind::kRegion);
    /// The same for an object that somebody holds, mapped whole: never creates. ENOENT if there is none or no
    /// holder is alive (then the leftover file is removed), EINVAL if it has fewer than `minSize` bytes.
    [[nodiscard]] int OpenExisting(Place const& place, std::string_view fileName, std::uint64_t minSize,
                                   Kind kind = Kind::kRegion);
    /// Unmaps and lets go; removes the file if nobody else holds it.
    void Close();

    [[nodiscard]] bool IsOpen() const { return Participant() != 0; }
    [[nodiscard]] bool IsCreator() const { return m_IsCreator; }
    [[nodiscard]] std::byte* Data() const { return m_Data; }
    [[nodiscard]] std::uint64_t Size() const { return m_Size; }
    /// Puts memory behind the first `bytes` bytes, at most Size(). 0 or ENOSPC, ENOMEM, EBADF in a forked
    /// child.
    [[nodiscard]] int ReserveUpTo(std::uint64_t bytes) {
        return ReserveRange(0, bytes < m_Size ? bytes : m_Size);
    }
    /// The same for `bytes` bytes from `offset` on; EINVAL if they lie outside.
    [[nodiscard]] int ReserveRange(std::uint64_t offset, std::uint64_t bytes);

    /// The number of this holder; 0 if not open.
    [[nodiscard]] unsigned Participant() const { return m_State != nullptr ? m_State->participant : 0; }
    /// Whether a holder with this number lives; the own one does. One system call.
    [[nodiscard]] bool IsAlive(unsigned participant) const;

    /// The file name for an object called `name`: letters, digits, '_', '-' and '.' as they are, anything
    /// else, and a dot at the front, escaped as %XX or %uXXXX; kMutex adds "_mtx". So no two names share a
    /// file, and none leaves its directory or meets one that begins with a dot. Empty for "", "." and "..",
    /// and if the result would be longer than a file name can be.
    [[nodiscard]] static std::string FileNameOf(std::u16string_view name, Kind kind);

private:
    friend struct HolderList;
    struct State {
        int descriptor = -1;
        unsigned participant = 0;
        Kind kind = Kind::kRegion;
        std::string path;
        State* next = nullptr;
        State* previous = nullptr;
    };
    struct Request {
        Place const& place;
        std::uint64_t size;
        std::uint64_t reserve;
        bool mayCreate;
    };

    int Attach(Request const& request, std::string_view fileName, Kind kind);
    int AttachOnce(Request const& request, std::int64_t untilNs);
    int OpenFile(Request const& request);
    int JoinLocked(Request const& request);
    int SizeLocked(Request const& request, std::uint64_t existing);
    int TakeParticipant();
    int Map(std::uint64_t size);
    void Unmap();
    void LeaveFile();
    bool HasOtherHolders(bool ofOtherKinds) const;
    void RemoveFileLocked();

    std::unique_ptr<State> m_State;
    std::byte* m_Data = nullptr;
    std::uint64_t m_Size = 0;
    bool m_IsCreator = false;
};

}  // namespace System::Platform
