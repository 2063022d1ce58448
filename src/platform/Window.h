#pragma once

#include <cstdint>
#include <string_view>

namespace System::Platform {

// Windows as addresses of messages. A window belongs to the thread that made it, whose queue gets its
// messages; its id is valid on the whole machine, never 0, and not soon used again.
//
// Errors: errno values.

/// Gets each message of a window on its thread; returns the result of a message that was sent.
using WindowProc = long (*)(std::uint32_t window, unsigned message, unsigned wParam, long lParam);

/// Registers a class of windows for this process, once: EADDRINUSE at the second time.
int RegisterWindowClass(std::u16string_view className, WindowProc proc);

/// Makes a window of a registered class (EINVAL if it is not) with a title of at most 255 characters, and
/// keeps `userData` with it.
int CreateMessageWindow(std::u16string_view className, std::u16string_view title, void* userData,
                        std::uint32_t& window);
/// Ends a window of the calling thread; ESRCH if it is none. Messages that wait for it are dropped.
int DestroyMessageWindow(std::uint32_t window);
/// What was given to CreateMessageWindow; null if `window` is not a window of the calling thread.
void* UserDataOf(std::uint32_t window);
/// From now on it is null, if `window` is one of the calling thread.
void ForgetUserData(std::uint32_t window);

/// The first living window with this class and title, 0 if there is none. Looks at all of the machine.
std::uint32_t FindMessageWindow(std::u16string_view className, std::u16string_view title);
/// Whether `window` lives and is of this class.
bool IsWindowOfClass(std::uint32_t window, std::u16string_view className);

/// Puts a message into the queue of the window's thread and returns at once: 0, ESRCH if there is no such
/// living window, EAGAIN if its inbox is full. An owner that died within the last milliseconds may still be
/// thought alive.
int PostToWindow(std::uint32_t window, unsigned message, unsigned wParam, long lParam);

struct SendOutcome {
    int error = 0;
    std::uint32_t result = 0;
    /// After an error: the receiver had taken the message, lives, and may still handle it.
    bool isStillHandled = false;
};

/// Has the window's thread handle a message and waits for the result, at most `timeoutMs` milliseconds,
/// serving what is sent to windows of the calling thread meanwhile. A window of the calling thread is called
/// directly. Errors: ESRCH no such living window, ECONNRESET its owner died while it handled the message,
/// ETIMEDOUT, EAGAIN.
SendOutcome SendToWindow(std::uint32_t window, unsigned message, unsigned wParam, long lParam,
                         std::int64_t timeoutMs);

}  // namespace System::Platform
