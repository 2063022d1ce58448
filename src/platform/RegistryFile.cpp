#include "platform/RegistryFile.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/RegistryText.h"

namespace System::Platform {

namespace {

using Text = std::u16string_view;

constexpr Text kHeader = u"Windows Registry Editor Version 5.00";
constexpr std::uint32_t kBitsPerHexDigit = 4;
constexpr std::size_t kMaxHexDigits = 8;  // of a 32-bit number

constexpr std::array<std::pair<Text, RegistryRoot>, kRegistryRootCount> kRootNames = {{
    {u"HKEY_CLASSES_ROOT", RegistryRoot::kClassesRoot},
    {u"HKEY_CURRENT_USER", RegistryRoot::kCurrentUser},
    {u"HKEY_LOCAL_MACHINE", RegistryRoot::kLocalMachine},
    {u"HKEY_USERS", RegistryRoot::kUsers},
    {u"HKEY_CURRENT_CONFIG", RegistryRoot::kCurrentConfig},
}};

bool IsBlank(char16_t unit) {
    return unit == u' ' || unit == u'\t';
}

Text WithoutLeadingBlanks(Text text) {
    text.remove_prefix(static_cast<std::size_t>(std::ranges::find_if_not(text, IsBlank) - text.begin()));
    return text;
}

Text Trimmed(Text text) {
    while (!text.empty() && IsBlank(text.back())) {
        text.remove_suffix(1);
    }
    return WithoutLeadingBlanks(text);
}

bool Skip(Text& text, Text prefix) {
    bool const isThere = text.starts_with(prefix);
    text.remove_prefix(isThere ? prefix.size() : 0);
    return isThere;
}

// Takes the hexadecimal digits at the front, at least one and at most `limit`.
bool TakeHex(Text& text, std::size_t limit, std::uint32_t& number) {
    number = 0;
    std::size_t digits = 0;
    for (; digits < text.size(); ++digits) {
        char16_t const unit = FoldCase(text[digits]);
        bool const isDecimal = unit >= u'0' && unit <= u'9';
        if (!isDecimal && (unit < u'a' || unit > u'f')) {
            break;
        }
        number = number << kBitsPerHexDigit |
                 static_cast<std::uint32_t>(isDecimal ? unit - u'0' : unit - u'a' + 10);
        if (digits == limit) {
            return false;
        }
    }
    text.remove_prefix(digits);
    return digits != 0;
}

// Takes text in quotes, in which a backslash stands before each quote and backslash that is meant.
bool TakeQuoted(Text& text, std::u16string& content) {
    if (!Skip(text, u"\"")) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == u'"') {
            text.remove_prefix(i + 1);
            return true;
        }
        if (text[i] == u'\\' && (++i == text.size() || (text[i] != u'"' && text[i] != u'\\'))) {
            return false;
        }
        content.push_back(text[i]);
    }
    return false;
}

// Takes bytes as pairs of digits with commas between them; none at all is a value without data.
bool TakeBytes(Text& text, std::string& data) {
    constexpr std::size_t kDigitsPerByte = 2;
    text = WithoutLeadingBlanks(text);
    if (text.empty() || text.front() == u';') {
        return true;
    }
    do {
        std::uint32_t byte = 0;
        text = WithoutLeadingBlanks(text);
        if (!TakeHex(text, kDigitsPerByte, byte)) {
            return false;
        }
        data.push_back(static_cast<char>(byte));
        text = WithoutLeadingBlanks(text);
    } while (Skip(text, u","));
    return true;
}

void AppendLowByteFirst(std::string& data, std::uint32_t number, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes; ++i) {
        data.push_back(static_cast<char>(number >> 8U * i & 0xFFU));
    }
}

bool TakeString(Text& text, std::string& data) {
    std::u16string content;
    if (!TakeQuoted(text, content)) {
        return false;
    }
    content.push_back(u'\0');
    for (char16_t const unit : content) {
        AppendLowByteFirst(data, unit, sizeof unit);
    }
    return true;
}

bool TakeData(Text& text, std::uint32_t& type, std::string& data) {
    if (text.starts_with(u'"')) {
        type = kRegistryString;
        return TakeString(text, data);
    }
    if (Skip(text, u"dword:")) {
        std::uint32_t number = 0;
        type = kRegistryDword;
        bool const isNumber = TakeHex(text, kMaxHexDigits, number);
        AppendLowByteFirst(data, number, sizeof number);
        return isNumber;
    }
    if (!Skip(text, u"hex")) {
        return false;
    }
    type = kRegistryBinary;
    if (Skip(text, u"(") && (!TakeHex(text, kMaxHexDigits, type) || !Skip(text, u")"))) {
        return false;
    }
    return Skip(text, u":") && TakeBytes(text, data);
}

// Reads the text line by line and tells the sink what they say.
class Reader {
public:
    Reader(Text text, RegistryFileSink& sink) : m_Rest(text), m_Sink(sink) {}

    void Run();

private:
    // What the values that come now belong to.
    enum class Target { kNone, kKey, kUnknownKey };

    Text TakeLine();
    std::u16string TakeContinued(Text line);
    bool ReadHeader(Text line);
    bool ReadKey(Text line);
    bool ReadValue(Text line);
    void TellMalformed(std::uint32_t number);

    Text m_Rest;
    RegistryFileSink& m_Sink;
    std::uint32_t m_Line = 0;
    std::uint32_t m_LastTold = 0;
    Target m_Target = Target::kNone;
    bool m_IsHeaderDue = true;
};

// The next line without its end and the blanks around it.
Text Reader::TakeLine() {
    std::size_t const end = std::min(m_Rest.find(u'\n'), m_Rest.size());
    Text line = m_Rest.substr(0, end);
    m_Rest.remove_prefix(std::min(end + 1, m_Rest.size()));
    if (line.ends_with(u'\r')) {
        line.remove_suffix(1);
    }
    ++m_Line;
    return Trimmed(line);
}

// Adds the lines that continue a value. One that begins like a line of its own doesn't, so that a value which
// was cut off takes nothing with it.
std::u16string Reader::TakeContinued(Text line) {
    constexpr Text kStarts = u"[\"@;\r\n";
    std::u16string whole(line);
    while (whole.ends_with(u'\\')) {
        Text const next = WithoutLeadingBlanks(m_Rest);
        if (next.empty() || kStarts.find(next.front()) != Text::npos) {
            break;
        }
        whole.pop_back();
        whole += TakeLine();
    }
    return whole;
}

// True if the line was the header, which is the first one that says anything.
bool Reader::ReadHeader(Text line) {
    if (!std::exchange(m_IsHeaderDue, false)) {
        return false;
    }
    if (line == kHeader) {
        return true;
    }
    TellMalformed(m_Line);
    return !line.starts_with(u'[');
}

bool Reader::ReadKey(Text line) {
    m_Target = Target::kUnknownKey;
    if (line.find(kNotText) != Text::npos || !line.ends_with(u']')) {
        return false;
    }
    Text name = line.substr(1, line.size() - 2);
    bool const isDeleted = Skip(name, u"-");
    Text const rootName = name.substr(0, name.find(u'\\'));
    auto const* const root = std::ranges::find(kRootNames, FoldCase(rootName),
                                               [](auto const& known) { return FoldCase(known.first); });
    name.remove_prefix(std::min(rootName.size() + 1, name.size()));
    RegistryPath path;
    if (root == kRootNames.end() || !SplitRegistryPath(name, path) || (isDeleted && path.empty())) {
        return false;
    }
    if (isDeleted) {
        m_Target = Target::kNone;
        m_Sink.OnDeletedKey(root->second, std::move(path));
    } else {
        m_Target = Target::kKey;
        m_Sink.OnKey(root->second, std::move(path));
    }
    return true;
}

bool Reader::ReadValue(Text line) {
    if (m_Target == Target::kUnknownKey) {
        return true;  // told with the key's line
    }
    std::u16string name;
    if (m_Target == Target::kNone || line.find(kNotText) != Text::npos ||
        (!Skip(line, u"@") && !TakeQuoted(line, name))) {
        return false;
    }
    line = WithoutLeadingBlanks(line);
    if (!Skip(line, u"=")) {
        return false;
    }
    line = WithoutLeadingBlanks(line);
    std::uint32_t type = 0;
    std::string data;
    bool const isDeleted = Skip(line, u"-");
    if (!isDeleted && !TakeData(line, type, data)) {
        return false;
    }
    line = WithoutLeadingBlanks(line);
    if (!line.empty() && line.front() != u';') {
        return false;
    }
    if (isDeleted) {
        m_Sink.OnDeletedValue(std::move(name));
    } else {
        m_Sink.OnValue(std::move(name), type, std::move(data));
    }
    return true;
}

// Once for each line.
void Reader::TellMalformed(std::uint32_t number) {
    if (std::exchange(m_LastTold, number) != number) {
        m_Sink.OnMalformedLine(number);
    }
}

void Reader::Run() {
    while (!m_Rest.empty()) {
        Text const line = TakeLine();
        if (line.empty() || line.front() == u';' || ReadHeader(line)) {
            continue;
        }
        std::uint32_t const number = m_Line;
        bool const isSense = line.front() == u'[' ? ReadKey(line) : ReadValue(TakeContinued(line));
        if (!isSense) {
            TellMalformed(number);
        }
    }
}

}  // namespace

bool SplitRegistryPath(std::u16string_view text, RegistryPath& path) {
    path.clear();
    while (!text.empty()) {
        Text const name = text.substr(0, text.find(u'\\'));
        if (name.empty() || path.size() == kMaxRegistryDepth) {
            return false;
        }
        path.emplace_back(name);
        text.remove_prefix(std::min(name.size() + 1, text.size()));
    }
    return true;
}

void ParseRegistryFile(std::string_view bytes, RegistryFileSink& sink) {
    std::u16string const text = DecodeRegistryText(bytes);
    Reader(text, sink).Run();
}

}  // namespace System::Platform
