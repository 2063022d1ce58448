#include "corvalen/io/Directory.h"

#include <cstdlib>
#include <memory>

#include "corvalen/text/TextUtils.h"
#include "platform/FileSystem.h"

namespace System::IO {

namespace {

using Platform::FileSystem::RemoveFile;
using Platform::FileSystem::RemoveTree;
using Text::CTextUtils;

constexpr unsigned kLongestPath = 259;

struct Free {
    void operator()(char16_t* block) const { std::free(block); }
};
using WideBlock = std::unique_ptr<char16_t, Free>;

// The wide form of all of `path`; null if a part of it got lost on the way, or the block is not to be had.
WideBlock WideOf(std::string const& path) {
    char16_t* units = nullptr;
    CTextUtils::ConvertUTF8toWCHAR_NF(path, units);
    WideBlock wide(units);
    std::string back;
    if (wide) {
        CTextUtils::ConvertWCHARtoUTF8(wide.get(), back);
    }
    return back == path ? std::move(wide) : nullptr;
}

std::string CutPath(char16_t const* path) {
    std::u16string const cut = std::u16string(path).substr(0, kLongestPath);
    std::string bytes;
    CTextUtils::ConvertWCHARtoUTF8(cut.c_str(), bytes);
    return bytes;
}

}  // namespace

bool FDirectory::Delete(std::string const& path, bool recursive) {
    WideBlock const wide = WideOf(path);
    if (!wide) {
        return false;
    }
    return recursive ? DeleteT(wide.get()) : RemoveFile(CutPath(wide.get()).c_str());
}

bool FDirectory::DeleteT(char16_t const* path) {
    return RemoveTree(CutPath(path).c_str(), kLongestPath);
}

}  // namespace System::IO
