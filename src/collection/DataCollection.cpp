#include "corvalen/collection/DataCollection.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "collection/MonitorGuard.h"

namespace System::Collection {

FDataCollection::FDataCollection() = default;

FDataCollection::FDataCollection(unsigned char const* data, unsigned int length) {
    if (data != nullptr && length != 0) {
        m_Data = new unsigned char[length];
        m_Count = length;
        std::copy_n(data, length, m_Data);
    }
}

FDataCollection::~FDataCollection() {
    Clear();
}

unsigned int FDataCollection::Add(unsigned char const* data, unsigned int length) {
    MonitorGuard const guard(*this);
    if (length > std::numeric_limits<std::uint32_t>::max() - m_Count) {
        throw std::bad_alloc();
    }
    auto* const grown = new unsigned char[std::size_t{m_Count} + length];
    std::copy_n(data, length, std::copy_n(m_Data, m_Count, grown));
    // The old buffer goes last: `data` may point into it.
    delete[] std::exchange(m_Data, grown);
    m_Count += length;
    return m_Count;
}

bool FDataCollection::Clone(unsigned char*& buffer, unsigned int& length) {
    buffer = nullptr;
    length = 0;
    MonitorGuard const guard(*this);
    if (m_Data == nullptr || m_Count == 0) {
        return false;
    }
    buffer = new unsigned char[m_Count];
    length = m_Count;
    std::copy_n(m_Data, m_Count, buffer);
    return true;
}

FDataCollection* FDataCollection::Clone() {
    MonitorGuard const guard(*this);
    return new FDataCollection(m_Data, m_Count);
}

void FDataCollection::Clear() {
    MonitorGuard const guard(*this);
    m_Count = 0;
    delete[] std::exchange(m_Data, nullptr);
}

bool FDataCollection::get_At(unsigned int index, unsigned char& value) const {
    if (index >= m_Count) {
        return false;
    }
    value = m_Data[index];
    return true;
}

}  // namespace System::Collection
