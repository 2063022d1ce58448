// How fast is each converter, beside what a user would call instead, and how far from a plain copy?

#include "bench/text/Text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "bench/support/Contest.h"
#include "corvalen/text/GsmConv.h"
#include "corvalen/text/Latin1Conv.h"
#include "corvalen/text/UcsConv.h"
#include "corvalen/text/UcsHexConv.h"

namespace Bench {

namespace {

using namespace System::Text;

struct Sample {
    char const* name;
    char const* sentence;
    double target;  // times as fast as the faster peer, on a large text
};

constexpr Sample kAscii{"ASCII", "The quick brown fox jumps over 12 lazy dogs, again. ", 5};
constexpr Sample kAscii10{"ASCII", "The quick brown fox jumps over 12 lazy dogs, again. ", 10};
constexpr Sample kWestern{"Western", "Grüße aus Köln, à bientôt, mañana; señor Müller à l'été. ", 2};
constexpr Sample kGreek{"Greek", "Καλημέρα κόσμε, τι κάνεις σήμερα; ", 2};
constexpr Sample kCyrillic{"Cyrillic", "Съешь же ещё этих мягких французских булок. ", 2};
constexpr Sample kCjk{"CJK", "短信中心将文本转换为十六进制数字，并回复给客户端。", 1.5};
constexpr Sample kGsmSigns{"GreekGSM", "ΔΦΓΛΩΠΨΣΘΞ [x] {y} €5 ΔΦΓ ~ ΛΩΠ | ΨΣΘ ", 4};
constexpr double kMessageTarget = 3;

struct Subject {
    char const* name;
    Form form;
    Utf8Converter const* converter;
    std::vector<Sample> samples;
};

std::string TextOf(Sample const& sample, std::size_t bytes, std::size_t characters) {
    std::string text;
    std::size_t count = 0;
    for (std::size_t i = 0;; ++i) {
        char const byte = sample.sentence[i % std::strlen(sample.sentence)];
        bool const begins = (byte & 0xC0) != 0x80;
        if (begins && (text.size() >= bytes || count == characters)) {
            return text;
        }
        count += begins ? 1 : 0;
        text += byte;
    }
}

Conversion Ours(Utf8Converter const& converter, Way way) {
    return [&converter, way](std::string const& in, std::string& out) {
        unsigned length = 0;
        auto const size = static_cast<unsigned>(in.size());
        auto const room = static_cast<unsigned>(out.size());
        way == Way::kFromUtf8 ? converter.FromUtf8(in.data(), size, out.data(), room, &length)
                              : converter.ToUtf8(in.data(), size, out.data(), room, &length);
        return std::size_t{length};
    };
}

std::size_t Copy(std::string const& in, std::string& out) {
    std::memcpy(out.data(), in.data(), in.size());
    return in.size();
}

void Compare(Subject const& subject, Sample const& sample, Way way, bool isMessage) {
    constexpr std::size_t kLarge = 1 << 20;
    constexpr std::size_t kMessage = 160;
    std::string const utf8 =
        TextOf(sample, isMessage ? ~std::size_t{0} : kLarge, isMessage ? kMessage : ~std::size_t{0});
    std::string external(4 * utf8.size(), '\0');
    external.resize(Ours(*subject.converter, Way::kFromUtf8)(utf8, external));
    std::string const& in = way == Way::kFromUtf8 ? utf8 : external;
    bool const isAscii = std::strcmp(sample.name, "ASCII") == 0;
    std::vector<Conversion> all{Ours(*subject.converter, way), Copy};
    for (Peer const& peer : {
             MakeIconv(subject.form, way, true),
#if defined(CORVALEN_BENCH_ICU_FOUND)
                 MakeIcu(subject.form, way)
#endif
         }) {
        if (peer.conversion) {
            all.push_back(peer.conversion);
        }
    }
    auto const ns = Measure(all, std::vector<std::string const*>(all.size(), &in), isMessage ? 200 : 1);
    double const copyRatio = ns[1] / ns[0];
    std::printf("%-10s %-9s %-9s %-8s %11.0f", subject.name, way == Way::kFromUtf8 ? "FromUtf8" : "ToUtf8",
                sample.name, isMessage ? "message" : "1 MiB", ns[0]);
    if (ns.size() > 2) {
        double const best = *std::min_element(ns.begin() + 2, ns.end());
        double const target = isMessage ? kMessageTarget : sample.target;
        std::printf(" %11.0f %7.1f  %4.1f %-6s", best, best / ns[0], target,
                    best >= target * ns[0] ? "met" : "MISSED");
    }
    bool const isCopyTarget = subject.form == Form::kLatin1 && isAscii && !isMessage;
    std::printf(" %5.2f of memcpy%s\n", copyRatio,
                !isCopyTarget       ? ""
                : copyRatio >= 0.25 ? " met"
                                    : " MISSED");
}

}  // namespace

std::vector<double> Measure(std::vector<Conversion> const& all, std::vector<std::string const*> const& inputs,
                            std::size_t calls) {
    constexpr int kRounds = 41;
    std::vector<std::vector<double>> times(all.size());
    std::size_t longest = 0;
    for (std::string const* const in : inputs) {
        longest = std::max(longest, in->size());
    }
    std::string out(4 * longest + 64, '\0');
    for (int round = 0; round < kRounds; ++round) {
        for (std::size_t i = 0; i < all.size(); ++i) {
            times[i].push_back(NsEach(calls, [&](std::size_t count) {
                for (std::size_t call = 0; call < count; ++call) {
                    all[i](*inputs[i], out);
                }
            }));
        }
    }
    std::vector<double> medians;
    for (auto const& each : times) {
        medians.push_back(MedianOf(each));
    }
    return medians;
}

}  // namespace Bench

int main() {
    using namespace Bench;
    UcsConv::Init();
    UcsHexConv::Init();
    GsmConv::Init();
    Latin1Conv::Init();
    Subject const subjects[] = {
        {"UcsConv", Form::kUcs2, UcsConv::Instance(), {kAscii, kWestern, kGreek, kCyrillic, kCjk}},
        {"UcsHexConv", Form::kHex, UcsHexConv::Instance(), {kAscii, kWestern, kGreek, kCyrillic, kCjk}},
        {"GsmConv", Form::kGsm, GsmConv::Instance(), {kAscii10, kGsmSigns}},
        {"Latin1Conv", Form::kLatin1, Latin1Conv::Instance(), {kAscii, kWestern}},
    };
    std::printf("%-10s %-9s %-9s %-8s %11s %11s %7s  %s\n", "converter", "way", "text", "size", "ours ns",
                "best peer", "ratio", "target");
    for (Subject const& subject : subjects) {
        for (Sample const& sample : subject.samples) {
            for (Way const way : {Way::kFromUtf8, Way::kToUtf8}) {
                Compare(subject, sample, way, false);
                Compare(subject, sample, way, true);
            }
        }
    }
    CompareNative();
    Latin1Conv::Terminate();
    GsmConv::Terminate();
    UcsHexConv::Terminate();
    UcsConv::Terminate();
    return 0;
}
