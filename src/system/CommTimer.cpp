#include "corvalen/system/CommTimer.h"

#include <cstdio>

#include "corvalen/platform/MessageQueue.h"
#include "platform/Clock.h"

namespace System {

using Platform::Message;
using Platform::MessageQueue;
using Platform::Clock::TickCount;

namespace {

constexpr std::uint32_t kPeriodMs = 100;

void OnTick(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t) {
    // A standard output that takes nothing is no matter of the timer's.
    static_cast<void>(std::fputs("tick\n", stdout));
    static_cast<void>(std::fflush(stdout));
}

}  // namespace

unsigned int const CCommTimer::TIMEOUT_1SEC = 10;
unsigned int const CCommTimer::TIMEOUT_2SEC = 20;
unsigned int const CCommTimer::TIMEOUT_3SEC = 30;
unsigned int const CCommTimer::TIMEOUT_5SEC = 50;
unsigned int const CCommTimer::TIMEOUT_7SEC = 70;
unsigned int const CCommTimer::TIMEOUT_10SEC = 100;
unsigned int const CCommTimer::TIMEOUT_20SEC = 200;
unsigned int const CCommTimer::TIMEOUT_30SEC = 300;
unsigned int const CCommTimer::TIMEOUT_1MIN = 600;
unsigned int const CCommTimer::TIMEOUT_2MIN = 1200;
unsigned int const CCommTimer::TIMEOUT_3MIN = 1800;
unsigned int const CCommTimer::TIMEOUT_4MIN = 2400;
unsigned int const CCommTimer::TIMEOUT_5MIN = 3000;

CCommTimer::CCommTimer() : m_TimerId(MessageQueue::Current().SetTimer(kPeriodMs, OnTick)) {}

CCommTimer::~CCommTimer() {
    if (m_TimerId != 0) {
        MessageQueue::Current().KillTimer(m_TimerId);
    }
}

void CCommTimer::Change(unsigned int time, int flag) {
    m_Time = time;
    m_TimedOut = flag;
}

int CCommTimer::IsTimeOut() const {
    return m_TimedOut;
}

void CCommTimer::myDelay(unsigned int milliseconds, int pump) {
    if (milliseconds == 0) {
        return;
    }
    std::uint32_t const start = TickCount();
    while (TickCount() - start < milliseconds) {
        Message message;
        if (pump != 0 && MessageQueue::Current().Peek(message)) {
            MessageQueue::Current().Dispatch(message);
        }
    }
}

}  // namespace System
