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

namespace System::Platform {

namespace {

constexpr char kAscii[] = "ASCII";
constexpr char kUnits[] = "UTF-16LE";
constexpr std::uint16_t kReplacement = 0xFFFD;
// More bytes than any character of any code set has, and more units than it gives; and so many that iconv
// isn't called for what is hardly worth a call.
constexpr std::ptrdiff_t kFewUnits = 128;
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

// The open conversions of one thread, for the code page that it used last.
struct ThreadConversions {
    std::uint64_t serial = 0;  // of that code page; no code page has 0
    Descriptor decode;
    Descriptor encode;
};

ThreadConversions& ConversionsOf(std::string const& name, std::uint64_t serial) {
    static thread_local ThreadConversions t_Conversions;
    if (t_Conversions.serial != serial) {
        // The end of a thread that is stopped by force closes them too: it must not find one closed already.
        StopDelay const stopDelay;
        t_Conversions.decode.Open(kUnits, name.c_str());
        t_Conversions.encode.Open(name.c_str(), kUnits);
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
    return Descriptor(kUnits, name.c_str()).IsOpen() && Descriptor(name.c_str(), kUnits).IsOpen();
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

std::uint16_t Load(std::uint8_t const* in) {
    return static_cast<std::uint16_t>(in[0] | in[1] << 8);
}

void Store(std::uint8_t*& out, std::uint16_t unit) {
    *out++ = static_cast<std::uint8_t>(unit);
    *out++ = static_cast<std::uint8_t>(unit >> 8);
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
    Descriptor decode(kUnits, m_Name.c_str());
    if (!decode.IsOpen()) {
        return;
    }
    bool isBytes = true;
    unsigned ascii = 0;
    for (unsigned value = 0; value < m_UnitOf.size(); ++value) {
        auto const byte = static_cast<std::uint8_t>(value);
        std::uint8_t const* in = &byte;
        std::uint8_t unit[8];
        std::uint8_t* out = unit;
        decode.Reset();
        int const error = decode.Convert(&in, 1, out, unit + sizeof unit);
        bool const isUnit = error == 0 && out == unit + 2;
        isBytes = isBytes && (isUnit || error == EILSEQ);
        m_UnitOf[value] = isUnit ? Load(unit) : kReplacement;
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
        Store(to, m_UnitOf[*from]);
    }
    in = from;
    out = to;
    return in == inEnd ? Stop::kEnd : Stop::kFull;
}

CodePage::Stop CodePage::EncodeBytes(std::uint8_t const*& in, std::uint8_t const* inEnd, std::uint8_t*& out,
                                     std::uint8_t* outEnd) const {
    int const substitute = ByteOf(Load(kQuestionMark));
    auto const* from = in;
    auto* to = out;
    for (; from != inEnd; from += 2) {
        int const known = ByteOf(Load(from));
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
    while (in != inEnd) {
        auto const room = (outEnd - out) / 2;
        if (room < kFewUnits) {
            return Stop::kFull;
        }
        // No more than what fits: iconv converts ahead, and again from the start when it finds no room for
        // that.
        auto const* const pieceEnd = in + std::min(inEnd - in, room);
        int const error = thread.decode.Convert(&in, static_cast<std::size_t>(pieceEnd - in), out, outEnd);
        if (error == E2BIG) {
            return Stop::kFull;
        }
        bool const isCut = error == EINVAL && pieceEnd != inEnd;
        if (error != 0 && !isCut) {
            // An undefined byte, or a character that the end of the text cuts off: begin behind its first
            // byte.
            if (outEnd - out < 2) {
                return Stop::kFull;
            }
            Store(out, kReplacement);
            ++in;
        }
    }
    return thread.decode.Convert(nullptr, 0, out, outEnd) == E2BIG ? Stop::kFull : Stop::kEnd;
}

CodePage::Stop CodePage::EncodeOther(std::uint8_t const*& in, std::uint8_t const* inEnd, bool last,
                                     std::uint8_t*& out, std::uint8_t* outEnd) const {
    ThreadConversions& thread = ConversionsOf(m_Name, m_Serial);
    if (thread.serial != m_Serial) {
        return Stop::kFailed;
    }
    while (in != inEnd) {
        int const error = thread.encode.Convert(&in, static_cast<std::size_t>(inEnd - in), out, outEnd);
        if (error == E2BIG) {
            return Stop::kFull;
        }
        if (error == EINVAL && !last) {
            return Stop::kEnd;
        }
        if (error != 0) {
            std::uint8_t const* substitute = kQuestionMark;
            if (thread.encode.Convert(&substitute, sizeof kQuestionMark, out, outEnd) == E2BIG) {
                return Stop::kFull;
            }
            in += 2;
        }
    }
    bool const isFull = last && thread.encode.Convert(nullptr, 0, out, outEnd) == E2BIG;
    return isFull ? Stop::kFull : Stop::kEnd;
}

}  // namespace System::Platform
