#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace Support {

/// A record as writers and readers of a test check it: total length, writer, number, and bytes that follow
/// from both.
struct RecordHead {
    std::uint32_t length;
    std::uint32_t writer;
    std::uint32_t number;
};

inline std::string MakeRecord(std::uint32_t writer, std::uint32_t number) {
    std::uint32_t state = writer * 2654435761U + number;
    auto const size = static_cast<std::uint32_t>(sizeof(RecordHead)) + state % 97;
    RecordHead const head{size, writer, number};
    std::string record(size, '\0');
    std::memcpy(record.data(), &head, sizeof head);
    for (std::size_t i = sizeof head; i < size; ++i) {
        state = state * 1664525U + 1013904223U;
        record[i] = static_cast<char>(state >> 24U);
    }
    return record;
}

/// The head of the record at the front of `bytes` if that is whole and right in every byte; else a length of
/// 0.
inline RecordHead CheckRecord(std::string_view bytes) {
    RecordHead head{};
    if (bytes.size() < sizeof head) {
        return {};
    }
    std::memcpy(&head, bytes.data(), sizeof head);
    std::string const expected = MakeRecord(head.writer, head.number);
    return bytes.starts_with(expected) ? head : RecordHead{};
}

}  // namespace Support
