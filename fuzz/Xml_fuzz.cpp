// A query on the first line, a document behind it: load, query, change, save and load again.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "corvalen/platform/XmlDocument.h"
#include "corvalen/text/NativeConv.h"
#include "corvalen/text/UcsConv.h"
#include "corvalen/xml/XmlUtils.h"

namespace {

using System::Platform::XmlDocument;
using System::Platform::XmlNode;
using System::XML::CXmlUtils;

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

void StartConverters() {
    static bool const s_Started = [] {
        System::Text::UcsConv::Init();
        System::Text::NativeConv::Init();
        return true;
    }();
    Require(s_Started);
}

// What was saved has to be the document still.
void RequireSameAfterLoading(XmlDocument const& document) {
    std::string const saved = document.Save();
    XmlDocument const again = XmlDocument::Load(saved);
    Require(static_cast<bool>(again));
    Require(again.Save() == saved);
}

void Change(XmlDocument const& document, std::string const& query) {
    bool const exists = CXmlUtils::IsElementExist(document, query);
    XmlNode const held = exists ? document.SelectSingleNode(u"//*[last()]") : XmlNode();
    std::string const before = document.Save();
    bool const isAdded = CXmlUtils::AddNewElement(document, query, "added", 5);
    Require(!(exists && isAdded) || document.Save() != before);
    CXmlUtils::ChangeAttributeValue(document, query, "changed", query);
    RequireSameAfterLoading(document);
    XmlNode const root = document.DocumentElement();
    CXmlUtils::RemoveNode(document, query);
    if (document.DocumentElement()) {
        RequireSameAfterLoading(document);
    }
    Require(!root.Name().empty());
    Require(!held || !held.Name().empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    constexpr std::size_t kMaxSize = 1U << 14U;
    constexpr std::size_t kMaxQuery = 64;
    StartConverters();
    std::string_view const input(reinterpret_cast<char const*>(data), size < kMaxSize ? size : kMaxSize);
    std::size_t const end = input.find('\n');
    if (end == std::string_view::npos || end > kMaxQuery) {
        return 0;
    }
    if (XmlDocument const document = XmlDocument::Load(input.substr(end + 1))) {
        RequireSameAfterLoading(document);
        Change(document, std::string(input.substr(0, end)));
    }
    return 0;
}
