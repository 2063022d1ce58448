#include "platform/InboxFile.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>

namespace System::Platform {

namespace {

constexpr std::string_view kPrefix = ".inbox_";
constexpr int kNumberDigits = 5;
static_assert(kMaxInboxNumber <= 0xFFFFF);

}  // namespace

std::string FileNameOfNumber(std::string_view prefix, std::uint32_t number) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string name(prefix);
    for (int digit = kNumberDigits - 1; digit >= 0; --digit) {
        name += kDigits[number >> (4 * digit) & 0xF];
    }
    return name;
}

std::uint32_t NumberInFileName(std::string_view prefix, std::string_view name) {
    std::uint32_t number = 0;
    if (name.size() != prefix.size() + kNumberDigits || !name.starts_with(prefix)) {
        return 0;
    }
    auto const [end, error] =
        std::from_chars(name.data() + prefix.size(), name.data() + name.size(), number, 16);
    return error == std::errc() && end == name.data() + name.size() ? number : 0;
}

std::string InboxFileName(std::uint32_t number) {
    return FileNameOfNumber(kPrefix, number);
}

std::uint32_t NumberOfInboxFile(char const* name) {
    return NumberInFileName(kPrefix, name);
}

int InboxFile::Create(std::uint32_t number) {
    NamedObject object;
    int error = object.Open(SharedPlace(), InboxFileName(number), kInboxSize, kInboxPage, Kind::kInbox);
    if (error != 0) {
        return error;
    }
    if (!object.IsCreator()) {
        return EEXIST;
    }
    for (std::size_t const offset : {kSentOffset, kPostedOffset}) {
        error = object.ReserveRange(offset, kInboxPage);
        if (error != 0) {
            return error;
        }
    }
    auto& rec = *reinterpret_cast<InboxRec*>(object.Data());
    rec.head = {kInboxSignature, kInboxVersion, number, object.Participant(), 0};
    rec.posted.limit = kFirstLimit;
    rec.sent.limit = kFirstLimit;
    m_Object = std::move(object);
    return 0;
}

void InboxFile::RemoveName(std::uint32_t number) {
    std::string const path = SharedPlace().directory + "/" + InboxFileName(number);
    static_cast<void>(::unlink(path.c_str()));
}

int InboxFile::Open(std::uint32_t number) {
    NamedObject object;
    int const error = object.OpenExisting(SharedPlace(), InboxFileName(number), kInboxSize, Kind::kInbox);
    if (error != 0) {
        return error == ENOENT ? ESRCH : error;
    }
    auto& rec = *reinterpret_cast<InboxRec*>(object.Data());
    // The owner closes before it removes the file, so that a file without a head is one that is being made.
    if (rec.head.signature != kInboxSignature || rec.head.version != kInboxVersion) {
        return ESRCH;
    }
    // The number of an owner that died may be given out again, here to us. So that he does not pass for alive
    // for as long as we do, the inbox is closed in his name.
    if (std::atomic_ref(rec.head.owner).load(std::memory_order_relaxed) == object.Participant()) {
        std::atomic_ref(rec.owner.isClosed).store(1);
        return ESRCH;
    }
    m_Object = std::move(object);
    DisownShared(Rec().posted.lock, m_Object);
    DisownShared(Rec().sent.lock, m_Object);
    return 0;
}

}  // namespace System::Platform
