// What a query with an attribute test and the change of an attribute take in a document of 1 MB: CXmlUtils,
// and the document below it, beside libxml2. The query strings are those of a host: each names another
// element, and none is compiled beforehand. libxml2 shows two ways: the expression as it is, and one that
// asks for the first match alone, which lets it stop there.

#include "bench/services/XmlBench.h"

#include <cstdlib>

#include "corvalen/text/NativeConv.h"
#include "corvalen/text/UcsConv.h"
#include "corvalen/xml/XmlUtils.h"

#ifndef CORVALEN_BENCH_LIBXML2_FOUND
Bench::XmlPeers Bench::Libxml2Peers(XmlTask const&) {
    return {};
}
#endif

namespace {

using Bench::Contestant;
using Bench::XmlPeers;
using Bench::XmlTask;
using System::Platform::XmlDocument;
using System::Platform::XmlNode;
using System::XML::CXmlUtils;

constexpr std::size_t kDocumentSize = 1000000;
constexpr unsigned kQueries = 20;
constexpr unsigned kRounds = 15;

XmlTask MakeTask() {
    XmlTask task{"<phones>", {}, "state"};
    unsigned phones = 0;
    for (; task.document.size() < kDocumentSize; ++phones) {
        std::string const number = std::to_string(350000 + phones);
        task.document += "<phone imei=\"" + number + "\" state=\"idle\"><name>Phone " + number +
                         "</name><owner>somebody</owner></phone>\n";
    }
    task.document += "</phones>";
    for (unsigned i = 0; i < kQueries; ++i) {
        std::string const number = std::to_string(350000 + phones * (i + 1) / kQueries - 1);
        task.queries.push_back("//phone[@imei='" + number + "']");
    }
    return task;
}

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

XmlPeers OurSide(XmlTask const& task) {
    XmlDocument const document = XmlDocument::Load(task.document);
    XmlNode const element = document.DocumentElement().FirstChild();
    auto const nothing = [] {
    };
    return {{{"CXmlUtils", nothing,
              [&task, document] {
                  for (std::string const& query : task.queries) {
                      Require(CXmlUtils::IsElementExist(document, query));
                  }
              }}},
            {{"CXmlUtils", nothing,
              [&task, document] {
                  for (std::string const& query : task.queries) {
                      Require(CXmlUtils::ChangeAttributeValue(document, query, task.attribute, "busy"));
                  }
              }}},
            {{"XmlNode", nothing, [&task, element] {
                  std::u16string const name(task.attribute, task.attribute + 5);
                  for (unsigned i = 0; i < Bench::kSets; ++i) {
                      Require(element.ChangeAttribute(name, (i & 1) != 0 ? u"busy" : u"idle"));
                  }
              }}}};
}

void Compare(char const* title, std::vector<Contestant> contestants, std::vector<Contestant> const& peers) {
    contestants.insert(contestants.end(), peers.begin(), peers.end());
    Bench::Compare(title, kRounds, contestants);
}

}  // namespace

int main() {
    System::Text::UcsConv::Init();
    System::Text::NativeConv::Init();
    {
        XmlTask const task = MakeTask();
        XmlPeers const ours = OurSide(task);
        XmlPeers const peers = Bench::Libxml2Peers(task);
        Compare("20 queries with an attribute test, 1 MB", ours.query, peers.query);
        Compare("20 queries, each with the change of an attribute, 1 MB", ours.change, peers.change);
        Compare("10000 changes of an attribute of an element at hand", ours.setOnly, peers.setOnly);
    }
    System::Text::NativeConv::Terminate();
    System::Text::UcsConv::Terminate();
    return 0;
}
