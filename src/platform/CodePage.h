#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace System::Platform {

/// Gives the name of the code set of the user's locale, as the environment says now: LC_ALL, LC_CTYPE, LANG.
/// "ASCII" if it names none. The locale of the process is neither read nor changed.
[[nodiscard]] std::string UserCodeSet();

/// One code set and its conversion to and from UTF-16 units, which lie in memory low byte first.
///
/// A text is converted in pieces: Begin, then Decode or Encode until they say kEnd. What the other side can't
/// hold is replaced: an undefined byte by U+FFFD, a unit that the code set doesn't have by its `?`.
///
/// Threads: any thread may convert; the state of a text belongs to its thread, so that a thread converts one
/// text at a time.
class CodePage {
public:
    enum class Stop {
        kEnd,     ///< the input is used up
        kFull,    ///< no room for the next character; go on with more room
        kFailed,  ///< no memory for the conversion
    };

    /// Takes `name`, or ASCII where the system doesn't know that name.
    explicit CodePage(std::string const& name);

    /// Whether 0x00 to 0x7F at the begin of a text, before any other byte, are the ASCII characters.
    [[nodiscard]] bool BeginsAsAscii() const { return m_BeginsAsAscii; }
    /// Whether they are so behind any character.
    [[nodiscard]] bool IsAsciiAnywhere() const { return m_BeginsAsAscii && m_Kind != Kind::kOther; }

    /// Starts a text in both directions.
    void Begin() const;
    /// Bytes to units; there has to be room for 64 units at least.
    Stop Decode(std::uint8_t const*& in, std::uint8_t const* inEnd, std::uint8_t*& out,
                std::uint8_t* outEnd) const;
    /// Units to bytes. Unless this is the `last` piece, one unit may be left at its end, the first half of a
    /// surrogate pair. After kFull the text can't be gone on with.
    Stop Encode(std::uint8_t const*& in, std::uint8_t const* inEnd, bool last, std::uint8_t*& out,
                std::uint8_t* outEnd) const;

private:
    enum class Kind {
        kUtf8,
        kBytes,  // each byte is a character, whatever stands before it
        kOther,  // iconv has to see all of it
    };

    void ReadByteTable();
    void BuildReverseTable();
    [[nodiscard]] int ByteOf(std::uint16_t unit) const;
    Stop DecodeBytes(std::uint8_t const*& in, std::uint8_t const* inEnd, std::uint8_t*& out,
                     std::uint8_t* outEnd) const;
    Stop EncodeBytes(std::uint8_t const*& in, std::uint8_t const* inEnd, std::uint8_t*& out,
                     std::uint8_t* outEnd) const;
    Stop DecodeOther(std::uint8_t const*& in, std::uint8_t const* inEnd, std::uint8_t*& out,
                     std::uint8_t* outEnd) const;
    Stop EncodeOther(std::uint8_t const*& in, std::uint8_t const* inEnd, bool last, std::uint8_t*& out,
                     std::uint8_t* outEnd) const;

    std::string m_Name;
    std::uint64_t m_Serial;
    Kind m_Kind = Kind::kOther;
    bool m_BeginsAsAscii = false;
    // For kBytes: the unit of each byte, and back: m_BytesOf[m_PageOf[unit / 256]][unit % 256], -1 for none.
    std::array<std::uint16_t, 256> m_UnitOf{};
    std::array<std::uint8_t, 256> m_PageOf{};
    std::vector<std::array<std::int16_t, 256>> m_BytesOf;
};

}  // namespace System::Platform
