#pragma once

#include <atomic>
#include <concepts>
#include <cstring>

#include "corvalen/Export.h"
#include "corvalen/threading/Monitor.h"

namespace System {

/// Root of the objects that take part in notifications, which can be destroyed through it.
class CORVALEN_API CCommObject {
public:
    virtual ~CCommObject();
};

/// Ties one member function of one target to a fixed sender, and calls it on request.
///
/// Threads: AddDelegate and Invoke exclude one another; the method runs with that lock held and may call both
/// of them on its own thread. IsValid takes no lock.
/// Ownership: target and sender stay the caller's. The target has to outlive the binding, which ends with an
/// AddDelegate of null.
/// Errors: none. What the method throws passes through Invoke, which gives the lock back.
template <typename TTarget, typename TSender>
class CSimpleDelegate {
public:
    using Method = bool (TTarget::*)(TSender*);

    /// `sender` is what the method will get; it may be null.
    explicit CSimpleDelegate(TSender* sender);
    virtual ~CSimpleDelegate();
    CSimpleDelegate(CSimpleDelegate const&) = delete;
    CSimpleDelegate& operator=(CSimpleDelegate const&) = delete;

    /// Replaces the binding; null for either ends it.
    void AddDelegate(TTarget* target, Method method);
    /// The same for a method of a derived class or of another base of the target's class, named without a
    /// cast, and with any inheritance: no pointer to a member of TTarget can hold a method of a class that
    /// has TTarget as a virtual base.
    template <typename TObject, typename TClass>
    requires std::derived_from<TObject, TClass> && std::derived_from<TObject, TTarget> &&
        (!std::same_as<TClass, TTarget>)void AddDelegate(TObject* target, bool (TClass::*method)(TSender*)) {
        DerivedMethod derived;
        if (target != nullptr && method != nullptr) {
            static_assert(sizeof method <= sizeof derived.method);
            derived.object = static_cast<TClass*>(target);
            std::memcpy(derived.method, &method, sizeof method);
            derived.call = CallDerived<TClass>;
        }
        Bind(target, nullptr, derived);
    }

    /// Calls the method on the target and returns its result; false if none is bound.
    bool Invoke();
    /// Whether a target and a method are bound.
    [[nodiscard]] bool IsValid() const;

private:
    // A method whose class is known to `call` alone.
    struct DerivedMethod {
        void* object = nullptr;
        unsigned char method[2 * sizeof(void*)] = {};
        bool (*call)(DerivedMethod const& derived, TSender* sender) = nullptr;
    };

    template <typename TClass>
    static bool CallDerived(DerivedMethod const& derived, TSender* sender) {
        bool (TClass::*method)(TSender*) = nullptr;
        std::memcpy(&method, derived.method, sizeof method);
        return (static_cast<TClass*>(derived.object)->*method)(sender);
    }

    void Bind(TTarget* target, Method method, DerivedMethod const& derived);

    Threading::CMonitor m_Monitor;
    TTarget* m_Target = nullptr;
    TSender* m_Sender;
    Method m_Method = nullptr;
    DerivedMethod m_Derived;
    std::atomic<bool> m_IsBound{false};
};

extern template class CORVALEN_API CSimpleDelegate<CCommObject, CCommObject>;

/// A notification of one listener by the object that holds it, the sender.
///
///     notify.AddDelegate(&listener, &Listener::OnChange);   // bool Listener::OnChange(CCommObject* sender)
///     notify.Invoke();
class CORVALEN_API CGenericNotify : public CSimpleDelegate<CCommObject, CCommObject> {
public:
    explicit CGenericNotify(CCommObject* sender);
    ~CGenericNotify() override;
};

}  // namespace System
