#include <cstdio>
#include <cstdlib>

#include "bench/text/Text.h"
#include "corvalen/text/NativeConv.h"

namespace Bench {

namespace {

using System::Text::NativeConv;

struct CodeSet {
    char const* name;
    char const* sentence;  // UTF-8 that it holds
};

constexpr CodeSet kCodeSets[] = {
    {"UTF-8", "Grüße aus Köln, à bientôt; 短信中心, 日本. "},
    {"ISO-8859-1", "Grüße aus Köln, à bientôt, mañana. "},
    {"ISO-8859-7", "Καλημέρα κόσμε, τι κάνεις; "},
    {"EUC-JP", "短信中心、日本。 SMS "},
    {"GB18030", "短信中心将文本转换为十六进制数字 SMS "},
};

void CompareSet(CodeSet const& set, std::size_t bytes, std::size_t calls) {
    ::setenv("LC_ALL", (std::string("x.") + set.name).c_str(), 1);
    NativeConv::Init();
    NativeConv const& native = *NativeConv::Instance();
    std::string utf8;
    while (utf8.size() < bytes) {
        utf8 += set.sentence;
    }
    std::string external(2 * utf8.size(), '\0');
    external.resize(MakeIconv(set.name, "UTF-8")(utf8, external));
    Conversion const from = [&](std::string const& in, std::string& out) {
        unsigned length = 0;
        native.FromUtf8(in.data(), static_cast<unsigned>(in.size()), out.data(),
                        static_cast<unsigned>(out.size()), &length);
        return std::size_t{length};
    };
    Conversion const to = [&](std::string const& in, std::string& out) {
        unsigned length = 0;
        native.ToUtf8(in.data(), static_cast<unsigned>(in.size()), out.data(),
                      static_cast<unsigned>(out.size()), &length);
        return std::size_t{length};
    };
    auto const ns = Measure({from, MakeIconv(set.name, "UTF-8"), to, MakeIconv("UTF-8", set.name)},
                            {&utf8, &utf8, &external, &external}, calls);
    for (std::size_t i = 0; i < ns.size(); i += 2) {
        std::printf("%-11s %-10s %8zu %12.0f %12.0f %8.1f  1x %s\n", set.name, i == 0 ? "FromUtf8" : "ToUtf8",
                    bytes, ns[i], ns[i + 1], ns[i + 1] / ns[i], ns[i + 1] >= ns[i] ? "met" : "MISSED");
    }
    NativeConv::Terminate();
}

}  // namespace

void CompareNative() {
    std::printf(
        "\nNativeConv beside a bare iconv call on an open descriptor\n%-11s %-10s %8s %12s %12s %8s\n",
        "code set", "way", "bytes", "ours ns", "iconv ns", "ratio");
    for (CodeSet const& set : kCodeSets) {
        CompareSet(set, 1 << 20, 1);
        CompareSet(set, 160, 200);
    }
}

}  // namespace Bench
