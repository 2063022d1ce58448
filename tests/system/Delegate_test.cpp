#include "corvalen/system/Delegate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>

#include "tests/support/ChildProcess.h"

namespace {

using System::CCommObject;
using System::CGenericNotify;

// Classes that hold CCommObject in all the ways that there are; each method says in `m_Got` who called it.
struct Listener : CCommObject {
    virtual bool OnVirtual(CCommObject* sender) { return Note(sender, false); }
    bool OnPlain(CCommObject* sender) { return Note(sender, m_Answer); }
    bool Note(CCommObject* sender, bool answer) {
        m_Got = sender;
        return answer;
    }

    CCommObject* m_Got = nullptr;
    bool m_Answer = true;
};

struct Overriding : Listener {
    bool OnVirtual(CCommObject* sender) override { return Note(sender, true); }
};

struct Ballast {
    virtual ~Ballast() = default;
    long m_Weight[3] = {};
};

struct Multiple : Ballast, Listener {
    bool OnMultiple(CCommObject* sender) { return Note(sender, m_Weight[2] == 0); }
};

struct Virtual : Ballast, virtual Listener {
    virtual bool OnShared(CCommObject* sender) { return Note(sender, m_Weight[2] == 0); }
};

struct Diamond : Virtual, virtual Listener {
    bool OnShared(CCommObject* sender) override { return Note(sender, true); }
};

struct Answering {
    bool OnAnswer(CCommObject* sender) {
        m_Asker = sender;
        return m_Yes;
    }

    CCommObject* m_Asker = nullptr;
    bool m_Yes = true;
};

struct Mixed : Listener, Answering {};

class Delegate : public testing::Test {
protected:
    void ExpectCall(Listener const& listener) {
        EXPECT_TRUE(m_Notify.IsValid());
        EXPECT_TRUE(m_Notify.Invoke());
        EXPECT_EQ(listener.m_Got, &m_Sender);
    }

    CCommObject m_Sender;
    CGenericNotify m_Notify{&m_Sender};
};

TEST_F(Delegate, CallsNothingUntilTargetAndMethodAreBound) {
    Listener listener;
    EXPECT_FALSE(m_Notify.IsValid() || m_Notify.Invoke());
    m_Notify.AddDelegate(&listener, nullptr);
    EXPECT_FALSE(m_Notify.IsValid() || m_Notify.Invoke());
    m_Notify.AddDelegate(static_cast<Listener*>(nullptr), &Listener::OnPlain);
    EXPECT_FALSE(m_Notify.IsValid() || m_Notify.Invoke());
    m_Notify.AddDelegate(nullptr, static_cast<CGenericNotify::Method>(&Listener::OnPlain));
    EXPECT_FALSE(m_Notify.IsValid() || m_Notify.Invoke());
    EXPECT_EQ(listener.m_Got, nullptr);
}

TEST_F(Delegate, ReturnsWhatTheListenerReturns) {
    Listener listener;
    listener.m_Answer = false;
    m_Notify.AddDelegate(&listener, static_cast<CGenericNotify::Method>(&Listener::OnPlain));
    EXPECT_FALSE(m_Notify.Invoke());
    EXPECT_TRUE(m_Notify.IsValid());
    EXPECT_EQ(listener.m_Got, &m_Sender);
    listener.m_Answer = true;
    ExpectCall(listener);
}

TEST_F(Delegate, ReachesMethodsThroughAnyInheritance) {
    Overriding overriding;
    m_Notify.AddDelegate(&overriding, static_cast<CGenericNotify::Method>(&Listener::OnVirtual));
    ExpectCall(overriding);
    Multiple multiple;
    m_Notify.AddDelegate(&multiple, static_cast<CGenericNotify::Method>(&Multiple::OnMultiple));
    ExpectCall(multiple);
    multiple.m_Got = nullptr;
    m_Notify.AddDelegate(&multiple, &Multiple::OnMultiple);
    ExpectCall(multiple);
    Virtual shared;
    m_Notify.AddDelegate(&shared, &Virtual::OnShared);
    ExpectCall(shared);
    Diamond diamond;
    m_Notify.AddDelegate(&diamond, &Virtual::OnShared);
    ExpectCall(diamond);
    Mixed mixed;
    m_Notify.AddDelegate(&mixed, &Mixed::OnAnswer);
    EXPECT_TRUE(m_Notify.Invoke());
    EXPECT_EQ(mixed.m_Asker, &m_Sender);
}

TEST_F(Delegate, HasRoomForOneBinding) {
    Multiple first;
    Listener second;
    m_Notify.AddDelegate(&first, &Multiple::OnMultiple);
    m_Notify.AddDelegate(&second, &Listener::OnPlain);
    ExpectCall(second);
    EXPECT_EQ(first.m_Got, nullptr);
}

// Takes its own binding away in the call, and fails in the one after.
struct Restless : Listener {
    bool OnCall(CCommObject*) {
        m_Notify->AddDelegate(this, &Restless::OnNext);
        return !m_Notify->Invoke();
    }
    bool OnNext(CCommObject*) {
        ++m_Calls;
        return false;
    }
    bool OnFailure(CCommObject*) { throw std::runtime_error("listener"); }

    CGenericNotify* m_Notify = nullptr;
    int m_Calls = 0;
};

TEST_F(Delegate, LetsItsMethodBindAndInvokeAgain) {
    Restless restless;
    restless.m_Notify = &m_Notify;
    m_Notify.AddDelegate(&restless, &Restless::OnCall);
    EXPECT_TRUE(m_Notify.Invoke());
    EXPECT_EQ(restless.m_Calls, 1);
}

TEST_F(Delegate, IsFreeForOtherThreadsBehindAnException) {
    Restless restless;
    m_Notify.AddDelegate(&restless, &Restless::OnFailure);
    EXPECT_THROW(m_Notify.Invoke(), std::runtime_error);
    m_Notify.AddDelegate(&restless, &Restless::OnNext);
    std::thread([&] { EXPECT_FALSE(m_Notify.Invoke()); }).join();
    EXPECT_EQ(restless.m_Calls, 1);
}

}  // namespace
