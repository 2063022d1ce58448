#pragma once

#include <cstdint>

#include "corvalen/Export.h"
#include "corvalen/threading/Monitor.h"

namespace System::Collection {

/// A byte array in one piece that only grows, and is its own lock.
///
/// The buffer has exactly as many bytes as were added: each Add replaces it. A reader on another thread holds
/// the lock around the accessors:
///
///     collection.Lock();
///     Use(collection.get_Data(), collection.get_Count());
///     collection.Unlock();
///
/// Threads: Add, Clone, Clear and the destructor take the lock (recursive, of CMonitor); get_Count, get_At
/// and get_Data do not. Errors: nothing throws but a failed allocation (std::bad_alloc), also for more than
/// 2^32 - 1 bytes; it leaves the collection as it was.
class CORVALEN_API FDataCollection : public System::Threading::CMonitor {
public:
    /// Empty, without a buffer.
    FDataCollection();
    /// With a copy of the `length` bytes at `data`; empty if `data` is null or `length` is 0.
    FDataCollection(unsigned char const* data, unsigned int length);
    ~FDataCollection() override;
    FDataCollection(FDataCollection const&) = delete;
    FDataCollection& operator=(FDataCollection const&) = delete;

    /// Appends a copy of the `length` bytes at `data` and returns the new count. `data` may point into this
    /// collection's own buffer. A length of 0 replaces the buffer too, and gives an empty collection one.
    /// Requires: `data` is set unless `length` is 0.
    unsigned int Add(unsigned char const* data, unsigned int length);
    /// A copy of the bytes, which the caller releases with `delete[]`. False, with `buffer` null and `length`
    /// 0, if there are none.
    bool Clone(unsigned char*& buffer, unsigned int& length);
    /// A new collection with a copy of the bytes, which the caller deletes; never null.
    [[nodiscard]] FDataCollection* Clone();
    /// Empties the collection and frees its buffer.
    void Clear();

    /// Bytes in the buffer, and the buffer itself: null if there is none, good until the next Add or Clear.
    [[nodiscard]] unsigned int get_Count() const { return m_Count; }
    [[nodiscard]] unsigned char const* get_Data() const { return m_Data; }
    /// Gives the byte at `index`; false, with `value` untouched, at the count and above.
    bool get_At(unsigned int index, unsigned char& value) const;

private:
    std::uint32_t m_Count = 0;
    unsigned char* m_Data = nullptr;
};

}  // namespace System::Collection
