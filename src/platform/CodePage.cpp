#include "platform/CodePage.h"

#include <iconv.h>
#include <langinfo.h>
#include <locale.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/CodePageUtf8.h"
#include "platform/StopDelay.h"
#include "platform/Utf16.h"

namespace System::Platform {

namespace {

constexpr char kAscii[] = "ASCII";
// What glibc's converters give by themselves: to any other form it takes a second one.
constexpr char kWideName[] = "WCHAR_T";
// Characters as iconv has them, of four bytes, on their way to or from units, of which one can need two.
constexpr std::size_t kWide = sizeof(std::uint32_t);
constexpr std::size_t kPair = 4;
constexpr std::size_t kChunk = 256;
using WideChunk = std::array<std::uint8_t, kWide * kChunk>;
// More than any character has bytes; with less room than this a call of iconv is hardly worth its while.
constexpr std::size_t kFewCharacters = 32;
constexpr std::uint8_t kQuestionMark[] = {'?', 0};

auto const kNone = reinterpret_cast<iconv_t>(-1);

class Descriptor {
public:
    Descriptor() = default;
    Descriptor(char const* to, char const* from) : m_Native(::iconv_open(to, from)) {}
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    ~Descriptor() { Close(); }

    void Open(char const* to, char const* from) {
        Close();
        m_Native = ::iconv_open(to, from);
        m_IsFresh = true;
    }

    void Close() {
        if (m_Native != kNone) {
            ::iconv_close(m_Native);  // can only fail for a descriptor that isn't one
            m_Native = kNone;
        }
    }

    [[nodiscard]] bool IsOpen() const { return m_Native != kNone; }
    // Nothing to do after a text that was converted to its end: what writes the last of the state resets it.
    void Reset() {
        if (!m_IsFresh) {
            ::iconv(m_Native, nullptr, nullptr, nullptr, nullptr);
            m_IsFresh = true;
        }
    }

    // 0, E2BIG, EILSEQ or EINVAL. A null `in` writes what the state still holds.
    int Convert(std::uint8_t const** in, std::size_t inLeft, std::uint8_t*& out, std::uint8_t* outEnd) {
        auto* source = in != nullptr ? const_cast<char*>(reinterpret_cast<char const*>(*in)) : nullptr;
        auto* target = reinterpret_cast<char*>(out);
        auto outLeft = static_cast<std::size_t>(outEnd - out);
        std::size_t const done =
            ::iconv(m_Native, in != nullptr ? &source : nullptr, &inLeft, &target, &outLeft);
        int const error = done == static_cast<std::size_t>(-1) ? errno : 0;
        m_IsFresh = in == nullptr && error == 0;
        if (in != nullptr) {
            *in = reinterpret_cast<std::uint8_t const*>(source);
        }
        out = reinterpret_cast<std::uint8_t*>(target);
        return error;
    }

private:
    iconv_t m_Native = kNone;
    bool m_IsFresh = true;
};

std::uint32_t LoadWide(std::uint8_t const* in) {
    std::uint32_t value;
    std::memcpy(&value, in, kWide);
    return value;
}

// U+FFFD for what is no character.
void StoreUnits(std::uint8_t const* wide, std::uint8_t const* wideEnd, std::uint8_t*& outPlace) {
    auto* out = outPlace;
    for (; wide != wideEnd; wide += kWide) {
        std::uint32_t const value = LoadWide(wide);
        if (value < kFirstSurrogate) [[likely]] {
            StoreUnit(out, value);
        } else {
            StoreCharacter(out, value < kBehindLast && !IsSurrogate(value) ? value : kReplacement);
        }
    }
    outPlace = out;
}

// Units as characters; gives the end of what it fills.
std::uint8_t* FillWide(std::uint8_t const*& inPlace, std::uint8_t const* inEnd, bool last, WideChunk& chunk) {
    auto const* in = inPlace;
    auto* out = chunk.data();
    while (in != inEnd && out != chunk.data() + chunk.size()) {
        auto const [value, length] = LoadCharacter(in, inEnd, last);
        if (length == 0) {
            break;
        }
        std::memcpy(out, &value, kWide);
        out += kWide;
        in += length;
    }
    inPlace = in;
    return out;
}

// The open conversions of one thread, for the code page that it used last.
struct ThreadConversions {
    std::uint64_t serial = 0;  // of that code page; no code page has 0
    Descriptor decode;
    Descriptor encode;

    // Writes `?` for each unit of a character that the code set doesn't have, or nothing where it doesn't
    // have that either. False if there is no room.
    bool Substitute(std::uint32_t value, std::uint8_t*& out, std::uint8_t* outEnd) {
        std::uint32_t const questionMark = '?';
        for (int left = value < kFirstBeyondUnits ? 1 : 2; left != 0; --left) {
            auto const* in = reinterpret_cast<std::uint8_t const*>(&questionMark);
            if (encode.Convert(&in, kWide, out, outEnd) == E2BIG) {
                return false;
            }
        }
        return true;
    }
};

ThreadConversions& ConversionsOf(std::string const& name, std::uint64_t serial) {
    static thread_local ThreadConversions t_Conversions;
    if (t_Conversions.serial != serial) {
        // The end of a thread that is stopped by force closes them too: it must not find one closed already.
        StopDelay const stopDelay;
        t_Conversions.decode.Open(kWideName, name.c_str());
        t_Conversions.encode.Open(name.c_str(), kWideName);
        bool const isOpen = t_Conversions.decode.IsOpen() && t_Conversions.encode.IsOpen();
        t_Conversions.serial = isOpen ? serial : 0;
    }
    return t_Conversions;
}

std::uint64_t NextSerial() {
    static std::atomic<std::uint64_t> s_Last{0};
    return s_Last.fetch_add(1, std::memory_order_relaxed) + 1;
}

bool IsKnown(std::string const& name) {
    return Descriptor(kWideName, name.c_str()).IsOpen() && Descriptor(name.c_str(), kWideName).IsOpen();
}

char const* UserLocale() {
    for (char const* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        char const* const value = std::getenv(variable);
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    return "C";
}

// "de_DE.ISO-8859-15@euro" says its code set, also on a machine where that locale is not installed.
std::string WrittenCodeSet(std::string const& locale) {
    auto const dot = locale.find('.');
    return dot == std::string::npos ? kAscii : locale.substr(dot + 1, locale.find('@', dot) - dot - 1);
}

}  // namespace

std::string UserCodeSet() {
    std::string const name = UserLocale();
    ::locale_t const locale = ::newlocale(LC_CTYPE_MASK, name.c_str(), nullptr);
    if (locale == nullptr) {
        return WrittenCodeSet(name);
    }
    std::string const codeSet = ::nl_langinfo_l(CODESET, locale);
    ::freelocale(locale);
    return codeSet;
}

CodePage::CodePage(std::string const& name)
    : m_Name(!name.empty() && IsKnown(name) ? name : kAscii), m_Serial(NextSerial()) {
    if (IsUtf8Name(m_Name)) {
        m_Kind = Kind::kUtf8;
        m_BeginsAsAscii = true;
    } else {
        ReadByteTable();
    }
}

// Asks iconv what each byte is by itself. One that gives nothing, or more than a unit, or waits for more,
// shows that the code set has longer characters or a state.
void CodePage::ReadByteTable() {
    Descriptor decode(kWideName, m_Name.c_str());
    if (!decode.IsOpen()) {
        return;
    }
    bool isBytes = true;
    unsigned ascii = 0;
    for (unsigned value = 0; value < m_UnitOf.size(); ++value) {
        auto const byte = static_cast<std::uint8_t>(value);
        std::uint8_t const* in = &byte;
        std::uint8_t wide[2 * kWide];
        std::uint8_t* out = wide;
        decode.Reset();
        int const error = decode.Convert(&in, 1, out, wide + sizeof wide);
        bool const isUnit = error == 0 && out == wide + kWide && LoadWide(wide) < kFirstBeyondUnits;
        isBytes = isBytes && (isUnit || error == EILSEQ);
        m_UnitOf[value] =
            isUnit ? static_cast<std::uint16_t>(LoadWide(wide)) : static_cast<std::uint16_t>(kReplacement);
        ascii += value < 0x80 && isUnit && m_UnitOf[value] == value;
    }
    m_BeginsAsAscii = ascii == 0x80;
    if (isBytes) {
        m_Kind = Kind::kBytes;
        BuildReverseTable();
    }
}

void CodePage::BuildReverseTable() {
    m_BytesOf.emplace_back().fill(-1);
    for (unsigned byte = 0; byte < m_UnitOf.size(); ++byte) {
        std::uint16_t const unit = m_UnitOf[byte];
        if (unit == kReplacement) {
            continue;
        }
        std::uint8_t& page = m_PageOf[unit >> 8];
        if (page == 0) {
            page = static_cast<std::uint8_t>(m_BytesOf.size());
            m_BytesOf.emplace_back().fill(-1);
        }
        m_BytesOf[page][unit & 0xFF] = static_cast<std::int16_t>(byte);
    }
}

int CodePage::ByteOf(std::uint16_t unit) const {
    return m_BytesOf[m_PageOf[unit >> 8]][unit & 0xFF];
}

void CodePage::Begin() const {
    if (m_Kind != Kind::kOther) {
        return;
    }
    ThreadConversions& thread = ConversionsOf(m_Name, m_Serial);
    if (thread.serial == m_Serial) {
        thread.decode.Reset();
        thread.encode.Reset();
    }
}

CodePage::Stop CodePage::Decode(std::uint8_t const*& in, std::uint8_t const* inEnd, std::uint8_t*& out,
                                std::uint8_t* outEnd) const {
    switch (m_Kind) {
        case Kind::kUtf8:
            return DecodeUtf8(in, inEnd, out, outEnd) ? Stop::kEnd : Stop::kFull;
        case Kind::kBytes:
            return DecodeBytes(in, inEnd, out, outEnd);
        default:
            return DecodeOther(in, inEnd, out, outEnd);
    }
}

CodePage::Stop CodePage::Encode(std::uint8_t const*& in, std::uint8_t const* inEnd, bool last,
                                std::uint8_t*& out, std::uint8_t* outEnd) const {
    switch (m_Kind) {
        case Kind::kUtf8:
            return EncodeUtf8(in, inEnd, last, out, outEnd) ? Stop::kEnd : Stop::kFull;
        case Kind::kBytes:
            return EncodeBytes(in, inEnd, out, outEnd);
        default:
            return EncodeOther(in, inEnd, last, out, outEnd);
    }
}

// The loops keep their places in variables of their own: a byte stored could change what a reference names.
CodePage::Stop CodePage::DecodeBytes(std::uint8_t const*& in, std::uint8_t const* inEnd, std::uint8_t*& out,
                                     std::uint8_t* outEnd) const {
    auto const* from = in;
    auto* to = out;
    for (auto const* const end = from + std::min(inEnd - from, (outEnd - to) / 2); from != end; ++from) {
        StoreUnit(to, m_UnitOf[*from]);
    }
    in = from;
    out = to;
    return in == inEnd ? Stop::kEnd : Stop::kFull;
}

CodePage::Stop CodePage::EncodeBytes(std::uint8_t const*& in, std::uint8_t const* inEnd, std::uint8_t*& out,
                                     std::uint8_t* outEnd) const {
    int const substitute = ByteOf(LoadUnit(kQuestionMark));
    auto const* from = in;
    auto* to = out;
    for (; from != inEnd; from += 2) {
        int const known = ByteOf(LoadUnit(from));
        int const byte = known >= 0 ? known : substitute;
        if (byte >= 0) {
            if (to == outEnd) {
                break;
            }
            *to++ = static_cast<std::uint8_t>(byte);
        }
    }
    in = from;
    out = to;
    return from == inEnd ? Stop::kEnd : Stop::kFull;
}

CodePage::Stop CodePage::DecodeOther(std::uint8_t const*& in, std::uint8_t const* inEnd, std::uint8_t*& out,
                                     std::uint8_t* outEnd) const {
    ThreadConversions& thread = ConversionsOf(m_Name, m_Serial);
    if (thread.serial != m_Serial) {
        return Stop::kFailed;
    }
    WideChunk chunk;
    for (;;) {
        std::size_t const room = std::min(kChunk, static_cast<std::size_t>(outEnd - out) / kPair);
        if (room < kFewCharacters) {
            return Stop::kFull;
        }
        // At the end of the text come the characters that iconv has held back. One place is kept free for a
        // replacement.
        bool const isEnd = in == inEnd;
        std::uint8_t* filled = chunk.data();
        int const error = thread.decode.Convert(isEnd ? nullptr : &in, static_cast<std::size_t>(inEnd - in),
                                                filled, chunk.data() + kWide * (room - 1));
        StoreUnits(chunk.data(), filled, out);
        if (error != E2BIG) {
            if (isEnd) {
                return Stop::kEnd;
            }
            if (error != 0) {
                // An undefined byte, or a character that the end of the text cuts off: begin behind its first
                // byte.
                StoreUnit(out, kReplacement);
                ++in;
            }
        }
    }
}

CodePage::Stop CodePage::EncodeOther(std::uint8_t const*& in, std::uint8_t const* inEnd, bool last,
                                     std::uint8_t*& out, std::uint8_t* outEnd) const {
    ThreadConversions& thread = ConversionsOf(m_Name, m_Serial);
    if (thread.serial != m_Serial) {
        return Stop::kFailed;
    }
    WideChunk chunk;
    while (in != inEnd) {
        std::uint8_t const* next = chunk.data();
        auto const* const filled = FillWide(in, inEnd, last, chunk);
        if (filled == next) {
            return Stop::kEnd;
        }
        while (next != filled) {
            int const error =
                thread.encode.Convert(&next, static_cast<std::size_t>(filled - next), out, outEnd);
            if (error == E2BIG || (error != 0 && !thread.Substitute(LoadWide(next), out, outEnd))) {
                return Stop::kFull;
            }
            next += error != 0 ? kWide : 0;
        }
    }
    bool const isFull = last && thread.encode.Convert(nullptr, 0, out, outEnd) == E2BIG;
    return isFull ? Stop::kFull : Stop::kEnd;
}

}  // namespace System::Platform
