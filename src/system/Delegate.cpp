#include "corvalen/system/Delegate.h"

#include "platform/StopDelay.h"

namespace System {

namespace {

// Given back by an exception of the method as well.
class Held {
public:
    explicit Held(Threading::CMonitor& monitor) : m_Monitor(monitor) { m_Monitor.Lock(); }
    ~Held() { m_Monitor.Unlock(); }
    Held(Held const&) = delete;
    Held& operator=(Held const&) = delete;

private:
    Threading::CMonitor& m_Monitor;
};

// The sanitizer looks for a CCommObject where the method's own class begins, and that may be elsewhere.
__attribute__((no_sanitize("vptr"))) bool Call(CCommObject* target, CGenericNotify::Method method,
                                               CCommObject* sender) {
    return (target->*method)(sender);
}

}  // namespace

CCommObject::~CCommObject() = default;

template <typename TTarget, typename TSender>
CSimpleDelegate<TTarget, TSender>::CSimpleDelegate(TSender* sender) : m_Sender(sender) {}

template <typename TTarget, typename TSender>
CSimpleDelegate<TTarget, TSender>::~CSimpleDelegate() = default;

template <typename TTarget, typename TSender>
void CSimpleDelegate<TTarget, TSender>::AddDelegate(TTarget* target, Method method) {
    Bind(target, method, {});
}

template <typename TTarget, typename TSender>
void CSimpleDelegate<TTarget, TSender>::Bind(TTarget* target, Method method, DerivedMethod const& derived) {
    Held const held(m_Monitor);
    // A target with the method of another would be called.
    Platform::StopDelay const delay;
    m_Target = target;
    m_Method = method;
    m_Derived = derived;
    m_IsBound = target != nullptr && (method != nullptr || derived.call != nullptr);
}

template <typename TTarget, typename TSender>
bool CSimpleDelegate<TTarget, TSender>::Invoke() {
    Held const held(m_Monitor);
    if (!m_IsBound) {
        return false;
    }
    if (m_Derived.call != nullptr) {
        return m_Derived.call(m_Derived, m_Sender);
    }
    return Call(m_Target, m_Method, m_Sender);
}

template <typename TTarget, typename TSender>
bool CSimpleDelegate<TTarget, TSender>::IsValid() const {
    return m_IsBound;
}

template class CSimpleDelegate<CCommObject, CCommObject>;

CGenericNotify::CGenericNotify(CCommObject* sender) : CSimpleDelegate(sender) {}

CGenericNotify::~CGenericNotify() = default;

}  // namespace System
