#pragma once

#include <cstdint>

#include "corvalen/Export.h"

namespace System {

/// Keeps a time and a time-out flag for its owner, and holds a timer of 100 ms on the thread that made it.
/// Nothing runs out by itself: IsTimeOut gives back what Change has set. While the thread takes its messages,
/// each object writes the line "tick" to the standard output ten times a second.
///
/// Threads: constructor and destructor run on the same thread. Change and IsTimeOut are the owner's to
/// serialise.
/// Errors: nothing throws but a failed allocation. Without a timer to be had the object works and never
/// ticks.
class CORVALEN_API CCommTimer {
public:
    /// Times in ticks of 100 ms.
    static unsigned int const TIMEOUT_1SEC;
    static unsigned int const TIMEOUT_2SEC;
    static unsigned int const TIMEOUT_3SEC;
    static unsigned int const TIMEOUT_5SEC;
    static unsigned int const TIMEOUT_7SEC;
    static unsigned int const TIMEOUT_10SEC;
    static unsigned int const TIMEOUT_20SEC;
    static unsigned int const TIMEOUT_30SEC;
    static unsigned int const TIMEOUT_1MIN;
    static unsigned int const TIMEOUT_2MIN;
    static unsigned int const TIMEOUT_3MIN;
    static unsigned int const TIMEOUT_4MIN;
    static unsigned int const TIMEOUT_5MIN;

    CCommTimer();
    ~CCommTimer();
    CCommTimer(CCommTimer const&) = delete;
    CCommTimer& operator=(CCommTimer const&) = delete;

    /// Keeps `time`, and `flag` for IsTimeOut.
    void Change(unsigned int time, int flag);
    /// The flag of the last Change, 0 before.
    [[nodiscard]] int IsTimeOut() const;

    /// Returns after `milliseconds`, and keeps the processor busy until then. Meanwhile takes and dispatches
    /// the messages of the calling thread unless `pump` is 0; a message handler that runs long delays the
    /// return.
    static void myDelay(unsigned int milliseconds, int pump);

private:
    std::int32_t m_TimedOut = 0;
    std::uint32_t m_Time = 0;
    std::uint32_t m_TimerId;
};

}  // namespace System
