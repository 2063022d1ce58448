#include <iconv.h>

#include <memory>

#include "bench/text/Text.h"

namespace Bench {

Conversion MakeIconv(char const* to, char const* from) {
    auto const none = reinterpret_cast<iconv_t>(-1);
    ::iconv_t const opened = ::iconv_open(to, from);
    if (opened == none) {
        return {};
    }
    std::shared_ptr<void> const descriptor(opened, [](void* cd) { ::iconv_close(cd); });
    return [descriptor](std::string const& in, std::string& out) {
        auto* source = const_cast<char*>(in.data());
        std::size_t inLeft = in.size();
        char* target = out.data();
        std::size_t outLeft = out.size();
        ::iconv(descriptor.get(), &source, &inLeft, &target, &outLeft);
        return out.size() - outLeft;
    };
}

Peer MakeIconv(Form form, Way way, bool isOneToOne) {
    char const* const name = form == Form::kUcs2 ? "UCS-2LE" : isOneToOne ? "ISO-8859-1" : "CP1252";
    if (form == Form::kHex || form == Form::kGsm) {
        return {"iconv", {}};
    }
    return {"iconv", way == Way::kFromUtf8 ? MakeIconv(name, "UTF-8") : MakeIconv("UTF-8", name)};
}

}  // namespace Bench
