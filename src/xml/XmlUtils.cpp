#include "corvalen/xml/XmlUtils.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <string_view>
#include <vector>

#include "corvalen/platform/Bstr.h"
#include "corvalen/text/TextUtils.h"

namespace System::XML {

namespace {

using Platform::XmlDocument;
using Platform::XmlError;
using Platform::XmlNode;
using Text::CTextUtils;

constexpr char kSeparator = ';';

struct Free {
    void operator()(char16_t* block) const { std::free(block); }
};
using WideBlock = std::unique_ptr<char16_t, Free>;

WideBlock Require(char16_t* text) {
    if (text == nullptr) {
        throw XmlError(XmlError::kOutOfMemory);
    }
    return WideBlock(text);
}

WideBlock WideOf(std::string const& text) {
    char16_t* wide = nullptr;
    CTextUtils::ConvertUTF8toWCHAR_NF(text, wide);
    return Require(wide);
}

// An attribute's name comes in the local code page.
WideBlock WideOfName(char const* name) {
    if (name == nullptr) {
        throw XmlError(XmlError::kInvalidArgument);
    }
    char16_t* wide = nullptr;
    CTextUtils::ConvertLOCALCPtoWCHAR_NF(name, static_cast<unsigned int>(std::strlen(name)), wide);
    return Require(wide);
}

XmlNode Select(XmlDocument const& document, std::string const& path) {
    return document.SelectSingleNode(WideOf(path).get());
}

// What `set` gives, which sets a value. A refusal of characters that XML does not have is not the caller's
// concern, and counts as done.
template <typename Set>
bool SetIfPossible(Set&& set) {
    try {
        return set();
    } catch (XmlError const& error) {
        if (error.Status() != XmlError::kInvalidArgument) {
            throw;
        }
        return true;
    }
}

// Whether `node` has the attribute, which then has the value.
bool ChangeExisting(XmlNode const& node, char16_t const* name, std::string const& value) {
    WideBlock const wide = WideOf(value);
    return SetIfPossible([&] { return node.ChangeAttribute(name, wide.get()); });
}

// What `work` gives, or false if it fails in whatever way.
template <typename Work>
bool Succeeds(Work&& work) {
    try {
        return work();
    } catch (std::exception const&) {
        return false;
    }
}

std::vector<std::string_view> PiecesOf(std::string_view text) {
    std::vector<std::string_view> pieces;
    while (!text.empty()) {
        std::size_t const length = std::min(text.find(kSeparator), text.size());
        if (length > 0) {
            pieces.push_back(text.substr(0, length));
        }
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    return pieces;
}

}  // namespace

void CXmlUtils::ConvertUTF8toBSTR(std::string const& text, char16_t*& out) {
    char16_t* wide = nullptr;
    CTextUtils::ConvertUTF8toWCHAR_NF(text, wide);
    WideBlock const owner(wide);
    if (wide != nullptr) {
        out = SysAllocString(wide);
    }
}

void CXmlUtils::ConvertBSTRtoUTF8(char16_t const* text, std::string& out) {
    CTextUtils::ConvertWCHARtoUTF8(text, out);
}

bool CXmlUtils::CmpBSTRwithSTR(char16_t const* text, std::string const& other) {
    std::string utf8;
    if (text != nullptr) {
        CTextUtils::ConvertWCHARtoUTF8(text, utf8);
    }
    return text != nullptr && utf8 == other;
}

void CXmlUtils::ConvertBSTRtoTCHAR(char16_t const* text, char16_t* buffer, unsigned int size) {
    if (size == 0) {
        return;
    }
    std::memset(buffer, 0, size);
    std::size_t const room = size / sizeof(char16_t);
    if (room > 0) {
        std::size_t const length = std::char_traits<char16_t>::length(text);
        std::char_traits<char16_t>::copy(buffer, text, std::min(length, room - 1));
    }
}

bool CXmlUtils::GetAttribute(XmlNode node, char const* name, std::string& value) {
    value.clear();
    return Succeeds([&] {
        if (XmlNode const attribute = node.Attribute(WideOfName(name).get())) {
            CTextUtils::ConvertWCHARtoUTF8(attribute.Value().c_str(), value);
        }
        return true;
    });
}

bool CXmlUtils::IsElementExist(XmlDocument document, std::string const& path) {
    return Succeeds([&] { return static_cast<bool>(Select(document, path)); });
}

bool CXmlUtils::AddNewElement(XmlDocument document, std::string const& path, char const* name,
                              unsigned int nameLength) {
    return Succeeds([&] {
        char16_t* wide = nullptr;
        CTextUtils::ConvertUTF8toWCHAR_NF(name, nameLength, wide);
        WideBlock const elementName = Require(wide);
        if (XmlNode const parent = Select(document, path)) {
            parent.AppendChild(document.CreateElement(elementName.get()));
        }
        return true;
    });
}

bool CXmlUtils::ChangeAttributeValue(XmlDocument document, std::string const& path, char const* name,
                                     std::string const& value) {
    return Succeeds([&] {
        XmlNode const node = Select(document, path);
        if (!node) {
            return true;
        }
        if (!ChangeExisting(node, WideOfName(name).get(), value)) {
            CreateAttribute(document, node, name, value);
        }
        return true;
    });
}

bool CXmlUtils::RemoveNode(XmlDocument document, std::string const& path) {
    return Succeeds([&] {
        XmlNode const node = Select(document, path);
        if (!node) {
            return true;
        }
        XmlNode const parent = node.Parent();
        if (parent) {
            parent.RemoveChild(node);
        }
        return static_cast<bool>(parent);
    });
}

bool CXmlUtils::CreateAttribute(XmlDocument document, XmlNode node, char const* name,
                                std::string const& value) {
    if (!document || !node || name == nullptr) {
        return false;
    }
    XmlNode const attribute = document.CreateAttribute(WideOfName(name).get());
    WideBlock const wide = WideOf(value);
    // The value first: without memory for it the element keeps what it has.
    bool const isSet = SetIfPossible([&] {
        attribute.SetValue(wide.get());
        return true;
    });
    node.SetAttribute(attribute);
    return isSet;
}

bool CXmlUtils::Tokenize(std::string const& text, char&, std::string*& tokens, unsigned int& count) {
    if (text.empty()) {
        return false;
    }
    std::vector<std::string_view> const pieces = PiecesOf(text);
    auto array = std::make_unique<std::string[]>(pieces.size());
    std::copy(pieces.begin(), pieces.end(), array.get());
    count = static_cast<unsigned int>(pieces.size());
    tokens = array.release();
    return true;
}

}  // namespace System::XML
