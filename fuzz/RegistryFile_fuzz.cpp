#include "platform/RegistryFile.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "platform/RegistryText.h"

namespace {

using System::Platform::kMaxRegistryDepth;
using System::Platform::RegistryNode;
using System::Platform::RegistryPath;
using System::Platform::RegistryRoot;
using System::Platform::RegistryTree;

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// Builds the tree as the registry does, and looks at what it is told.
class Sink : public System::Platform::RegistryFileSink {
public:
    void OnKey(RegistryRoot root, RegistryPath path) override {
        Check(path);
        m_Key = &m_Tree.Obtain(root, path, 0);
        Require(m_Tree.Find(root, path) == m_Key);
    }
    void OnDeletedKey(RegistryRoot root, RegistryPath path) override {
        Check(path);
        Require(!path.empty());
        m_Key = nullptr;
        m_Tree.Erase(root, path);
        Require(m_Tree.Find(root, path) == nullptr);
    }
    void OnValue(std::u16string name, std::uint32_t type, std::string data) override {
        Require(m_Key != nullptr);
        auto& value = m_Key->values.Obtain(name);
        value.type = type;
        value.data = std::move(data);
        Require(m_Key->values.Listed().size() == m_Key->values.Size());
    }
    void OnDeletedValue(std::u16string name) override {
        Require(m_Key != nullptr);
        m_Key->values.Erase(name);
        Require(m_Key->values.Find(name) == nullptr);
    }
    void OnMalformedLine(std::uint32_t number) override {
        Require(number > m_LastLine);
        m_LastLine = number;
    }
    void Finish() { m_Tree.AddViews(); }

private:
    static void Check(RegistryPath const& path) {
        Require(path.size() <= kMaxRegistryDepth);
        for (std::u16string const& name : path) {
            Require(!name.empty() && name.find(u'\\') == std::u16string::npos &&
                    name.find(System::Platform::kNotText) == std::u16string::npos);
        }
    }

    RegistryTree m_Tree;
    RegistryNode* m_Key = nullptr;
    std::uint32_t m_LastLine = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    constexpr std::size_t kMaxSize = 1U << 16U;
    if (size <= kMaxSize) {
        Sink sink;
        System::Platform::ParseRegistryFile({reinterpret_cast<char const*>(data), size}, sink);
        sink.Finish();
    }
    return 0;
}
