#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/InboxRing.h"
#include "platform/NamedObject.h"

namespace System::Platform {

/// The file names of inboxes and of what belongs to them: `prefix` and the number in five hexadecimal digits.
std::string FileNameOfNumber(std::string_view prefix, std::uint32_t number);
/// The number behind `prefix` in such a name; 0 if `name` is not one.
std::uint32_t NumberInFileName(std::string_view prefix, std::string_view name);

std::string InboxFileName(std::uint32_t number);
/// The number in the name of an inbox file; 0 if `name` is not one.
std::uint32_t NumberOfInboxFile(char const* name);

/// An inbox file that this process has open, and where its areas are.
class InboxFile {
public:
    /// Makes the inbox `number`; EEXIST if there is one.
    int Create(std::uint32_t number);
    /// Opens the inbox `number` of a living owner; ESRCH if there is none.
    int Open(std::uint32_t number);
    void Close() { m_Object.Close(); }
    /// Takes the owner's file out of its directory, so that nobody finds it any more.
    static void RemoveName(std::uint32_t number);

    [[nodiscard]] bool IsOpen() const { return m_Object.IsOpen(); }
    [[nodiscard]] NamedObject& Object() { return m_Object; }
    [[nodiscard]] NamedObject const& Object() const { return m_Object; }
    [[nodiscard]] InboxRec& Rec() const { return *reinterpret_cast<InboxRec*>(m_Object.Data()); }
    [[nodiscard]] SlotRec* PostedSlots() const { return SlotsAt(kPostedOffset); }
    [[nodiscard]] SlotRec* SentSlots() const { return SlotsAt(kSentOffset); }
    [[nodiscard]] WindowRec* Windows() const {
        return reinterpret_cast<WindowRec*>(m_Object.Data() + kWindowsOffset);
    }

private:
    [[nodiscard]] SlotRec* SlotsAt(std::size_t offset) const {
        return reinterpret_cast<SlotRec*>(m_Object.Data() + offset);
    }

    NamedObject m_Object;
};

/// Gives memory to the slots of one ring of an inbox.
class RingMemory final : public SlotMemory {
public:
    RingMemory(NamedObject& object, std::size_t offset) : m_Object(object), m_Offset(offset) {}
    bool Reserve(std::uint32_t count) override {
        return m_Object.ReserveRange(m_Offset, count * sizeof(SlotRec)) == 0;
    }

private:
    NamedObject& m_Object;
    std::size_t m_Offset;
};

}  // namespace System::Platform
