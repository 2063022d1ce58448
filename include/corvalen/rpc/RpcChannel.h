#pragma once

#include <cstdint>

#include "corvalen/Export.h"

namespace System::RPC {

class MemoryPool;
class SharedMemory;

/// An endpoint for messages between processes of one machine. All endpoints of one channel name share a heap
/// of handles; a message is a handle, and its data is never copied. A request waits for an answer, with a
/// time limit, and the answer is another handle; a notification does not wait. Derive from it and implement
/// OnRequest and OnNotify; they run on the thread that opened the channel, while it takes its messages
/// (Platform::MessageQueue).
///
///     client                                              server, in OnRequest(sender, handle)
///     h = NewHandle(n); fill HandleData(h)
///     Request(FindServer(u"name"), h, &reply, 1000)  -->  read HandleData(handle), HandleSize(handle)
///     read HandleData(reply); DisposeHandle(reply)   <--  return NewHandle(m), filled; or 0
///
/// Ownership of a handle: the sender's until its message is accepted, then the receiver's until its handler
/// returns (the library disposes of it there), and an answer is the requester's. After a failed Request or
/// Notify the handle is no longer the sender's: it is gone, or at ETIMEDOUT still the handler's that is at
/// it. What nobody will dispose of any more, an answer that came too late or what a dead process held,
/// PurgeHandles finds.
///
/// Threads: open and close on one thread. Handle operations, Request and Notify on any. While Request waits
/// it serves requests to channels of its own thread, so two endpoints may ask each other at the same time.
/// Processes: the server opens first and formats the heap; a server that opens again makes all handles
/// invalid, so HandleData may give null for a handle that was good a moment ago. A name has one server at a
/// time: a second one, whatever its title, would do the same to the first. A process has at most one endpoint
/// of a name in its life, also after Close. Every user of the machine may open a channel: check what a
/// handle holds. Who dies, whenever, leaves the others working; a caller that waits for him is free within
/// some milliseconds. A child made by fork can't use its parent's channel. Errors: 0, kNotOpen, kOpenAlready
/// or an errno value: ESRCH no such living endpoint, ECONNRESET it died while it handled the request,
/// ETIMEDOUT, EAGAIN its inbox is full, EADDRINUSE this process has had an endpoint of that name, EBADMSG the
/// region holds no heap of this channel, EINVAL no usable name or the heap is smaller than this endpoint's,
/// ENOSPC no shared memory left. Nothing throws but a failed allocation.
class CORVALEN_API RpcChannel {
public:
    static constexpr unsigned kRequestMessage = 1024;
    static constexpr unsigned kNotifyMessage = 1025;
    static constexpr int kNotOpen = -1;
    static constexpr int kOpenAlready = 17;
    /// Characters of a channel's name that count. The first 31 of them name the region.
    static constexpr unsigned kMaxName = 63;

    /// A closed channel.
    explicit RpcChannel(char16_t const* name);
    /// Does not close: a derived class calls Close before it goes. A channel that is still open is reported,
    /// and what it holds is left behind: its endpoint stays, and leaves what it gets unhandled.
    virtual ~RpcChannel();
    RpcChannel(RpcChannel const&) = delete;
    RpcChannel& operator=(RpcChannel const&) = delete;

    /// Handles a request of `sender` and returns the handle of the answer, or 0 for none. `handle`, 0 if the
    /// peer sent no data, may be read until this returns, and must not be disposed of. No lock is held.
    /// What it throws comes out of the call that took the message; the sender then gets ESRCH.
    virtual std::uint32_t OnRequest(std::uint32_t sender, std::uint32_t handle) = 0;
    /// Handles a notification; the same rules.
    virtual void OnNotify(std::uint32_t sender, std::uint32_t handle) = 0;

    /// Opens as the server that clients find by `serverName` (255 characters at most), on the calling thread,
    /// and formats the heap.
    int OpenServer(char16_t const* serverName);
    /// Opens as a client, on the calling thread. EBADMSG, and two lines of the log, until a server of this
    /// name has opened: then try again.
    int OpenClient();
    /// Closes what was opened, on the thread that opened it. If handles live on in the channel, whoever has
    /// them, a line of the log tells how many.
    void Close();
    [[nodiscard]] bool IsOpen() const { return m_Ref != 0; }
    /// The endpoint by which others reach this channel; 0 while it is closed.
    [[nodiscard]] std::uint32_t LocalEndPoint() const { return m_Ref; }

    /// The living endpoint of this channel's name that was opened as `serverName`; 0 if there is none. Needs
    /// no open channel.
    [[nodiscard]] std::uint32_t FindServer(char16_t const* serverName) const;
    /// Whether `ref` is a living endpoint of this channel's name.
    [[nodiscard]] bool IsRefValid(std::uint32_t ref) const;

    /// Allocates `size` bytes in the heap; 0 if it has no free run of blocks that is long enough. The bytes
    /// are not cleared.
    [[nodiscard]] std::uint32_t NewHandle(std::uint32_t size);
    /// Frees; an invalid handle is ignored.
    void DisposeHandle(std::uint32_t handle);
    /// The size in bytes that was asked for; 0 for an invalid handle.
    [[nodiscard]] std::uint32_t HandleSize(std::uint32_t handle);
    /// The caller's bytes; null for an invalid handle.
    [[nodiscard]] void* HandleData(std::uint32_t handle);
    [[nodiscard]] bool IsValidHandle(std::uint32_t handle);

    /// Sends `handle` (or 0) to the endpoint `target` and waits at most `timeout` milliseconds for the
    /// answer, which goes to `*reply`: a handle that the caller disposes of, or 0. After an error `*reply` is
    /// 0 and the handle no longer the caller's; with kNotOpen both are untouched. There is no wait without
    /// limit. Requires: `reply` is not null.
    int Request(std::uint32_t target, std::uint32_t handle, std::uint32_t* reply, std::uint32_t timeout);
    /// Posts `handle` (or 0) to `target`. After an error the handle is gone, but with kNotOpen.
    int Notify(std::uint32_t target, std::uint32_t handle);

    /// Disposes of handles that were last sent at least `age` / 1000 + 2 seconds ago (`age` in milliseconds,
    /// 0: of any age; a handle that was never sent is older than any age) or that were last sent to
    /// `endpoint` (0: to none), and returns how many. Two lines of the log tell of each. Takes no lock: a
    /// derived class holds the channel's around it.
    std::uint32_t PurgeHandles(std::uint32_t age, std::uint32_t endpoint);

protected:
    int Open(char16_t const* serverName);
    int CreateRpcWindow(char16_t const* title);
    void CloseRpcWindow();

    /// The channel's lock: recursive within a thread, between threads and processes, without a time limit.
    /// Hold it for short, and send nothing under it. On a closed channel they are reported and do nothing.
    void Lock();
    void Unlock();
    /// Notes in a handle's header that it is sent now, to `endpoint`.
    void TagHandle(std::uint32_t handle, std::uint32_t endpoint);

    static long MessageWindProc(std::uint32_t window, unsigned message, unsigned wParam, long lParam);

    char16_t m_Name[kMaxName + 1] = {};
    std::uint32_t m_Ref = 0;
    /// The shape of the heap, 1 MiB of blocks; a handle takes whole ones, for its size and 16 bytes more. A
    /// derived class may set others before it opens, 65535 each at most and less than 4 GiB in all, the same
    /// for all endpoints of the name.
    std::uint32_t m_BlockSize = 256;
    std::uint32_t m_BlockCount = 4096;
    MemoryPool* m_MemPool = nullptr;
    SharedMemory* m_SharedMem = nullptr;

private:
    class Guard;
    class Received;

    int OpenPool(bool isServer);
    void ClosePool();
    void DisposeAfterHandler(std::uint32_t handle);
    bool CanUsePool();
    bool CanSend();
    [[nodiscard]] bool IsOfThisProcess() const;
    [[nodiscard]] std::uint16_t LockTag() const;

    std::uint32_t m_Epoch = 0;  // of the process that opened it
};

}  // namespace System::RPC
