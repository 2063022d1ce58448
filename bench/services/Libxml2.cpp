#include <libxml/parser.h>
#include <libxml/xpath.h>

#include <cstdlib>
#include <memory>

#include "bench/services/XmlBench.h"

namespace Bench {

namespace {

using Document = std::shared_ptr<xmlDoc>;

xmlChar const* Text(char const* text) {
    return reinterpret_cast<xmlChar const*>(text);
}

// The first element that `query` selects; there has to be one.
xmlNode* Select(Document const& document, std::string const& query) {
    xmlXPathContext* const context = xmlXPathNewContext(document.get());
    xmlXPathObject* const result = xmlXPathEvalExpression(Text(query.c_str()), context);
    if (result == nullptr || xmlXPathNodeSetIsEmpty(result->nodesetval)) {
        std::abort();
    }
    xmlNode* const node = result->nodesetval->nodeTab[0];
    xmlXPathFreeObject(result);
    xmlXPathFreeContext(context);
    return node;
}

std::vector<std::string> FirstOnly(std::vector<std::string> queries) {
    for (std::string& query : queries) {
        query = "(" + query + ")[1]";
    }
    return queries;
}

}  // namespace

XmlPeers Libxml2Peers(XmlTask const& task) {
    Document const document(
        xmlReadMemory(task.document.data(), static_cast<int>(task.document.size()), "", nullptr, 0),
        xmlFreeDoc);
    auto const nothing = [] {
    };
    auto const query = [document](std::vector<std::string> const& queries) {
        return [document, queries] {
            for (std::string const& one : queries) {
                static_cast<void>(Select(document, one));
            }
        };
    };
    auto const change = [document, &task](std::vector<std::string> const& queries) {
        return [document, queries, &task] {
            for (std::string const& one : queries) {
                xmlSetProp(Select(document, one), Text(task.attribute), Text("busy"));
            }
        };
    };
    xmlNode* const element = xmlDocGetRootElement(document.get())->children;
    return {{{"libxml2", nothing, query(task.queries)},
             {"libxml2, first only", nothing, query(FirstOnly(task.queries))}},
            {{"libxml2", nothing, change(task.queries)},
             {"libxml2, first only", nothing, change(FirstOnly(task.queries))}},
            {{"libxml2", nothing, [document, element, &task] {
                  for (unsigned i = 0; i < kSets; ++i) {
                      xmlSetProp(element, Text(task.attribute), Text((i & 1) != 0 ? "busy" : "idle"));
                  }
              }}}};
}

}  // namespace Bench
