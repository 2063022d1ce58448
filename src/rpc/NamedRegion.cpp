#include "corvalen/rpc/NamedRegion.h"

#include <cerrno>
#include <memory>
#include <string_view>

#include "diagnostics/Report.h"
#include "platform/NamedMutex.h"
#include "platform/NamedObject.h"

namespace System::RPC {

using Diagnostics::Gravity;
using Diagnostics::Verify;
using Platform::Deadline;
using Platform::Kind;
using Platform::NamedMutex;
using Platform::NamedObject;
using Platform::Place;

namespace {

constexpr std::int64_t kForever = -1;

}  // namespace

NamedRegion::NamedRegion(Home home, char16_t const* name, std::uint32_t size, std::uint32_t minSize,
                         char const* source)
    : m_Size(size), m_Source(source) {
    if (name != nullptr) {
        std::u16string_view(name).substr(0, kMaxName).copy(m_Name, kMaxName);
    }
    m_LastError = size >= minSize ? OpenBlock(home) : EINVAL;
    if (m_LastError == 0) {
        OpenMutex(home);
    }
}

NamedRegion::~NamedRegion() {
    Verify(m_LockedCount == 0, Gravity::kSerious, "m_LockedCount == 0", m_Source);
    delete m_Mapping;
    delete m_Mutex;
}

int NamedRegion::OpenBlock(Home home) {
    bool const isOfMachine = home == Home::kMachine;
    Kind const kind = isOfMachine ? Kind::kRegion : Kind::kStream;
    std::string const fileName = NamedObject::FileNameOf(m_Name, kind);
    if (fileName.empty()) {
        return EINVAL;
    }
    auto mapping = std::make_unique<NamedObject>();
    Place const place = isOfMachine ? Platform::SharedPlace() : Platform::UserPlace();
    if (int const error = mapping->Open(place, fileName, m_Size, m_Size, kind); error != 0) {
        return error;
    }
    m_Data = mapping->Data();
    m_File = mapping->IsCreator() ? mapping.get() : nullptr;
    m_Mapping = mapping.release();
    return 0;
}

void NamedRegion::OpenMutex(Home home) {
    auto mutex = std::make_unique<NamedMutex>();
    Place const place = home == Home::kMachine ? Platform::SharedPlace() : Platform::UserPlace();
    // A region without a lock stays valid; that is told nowhere, and Lock then only counts.
    if (mutex->Open(place, m_Name) == 0) {
        m_Mutex = mutex.release();
    }
}

void NamedRegion::Lock() {
    if (m_Mutex != nullptr) {
        // A lock that a dead process left behind counts as taken. If it was a thread of ours that was ended
        // by force, its levels went with it.
        if (m_Mutex->Lock(Deadline(kForever)) == Platform::LockResult::kAbandoned) {
            m_LockedCount = 0;
        }
    }
    ++m_LockedCount;
}

void NamedRegion::Unlock() {
    Verify(m_LockedCount > 0, Gravity::kSerious, "m_LockedCount > 0", m_Source);
    --m_LockedCount;
    if (m_Mutex != nullptr) {
        m_Mutex->Unlock();
    }
}

}  // namespace System::RPC
