#include "platform/RegistryStore.h"

#include <pthread.h>

#include <cerrno>
#include <functional>
#include <system_error>
#include <utility>

#include "platform/RegistryFile.h"
#include "platform/StopDelay.h"

namespace System::Platform {

namespace {

constexpr std::uint32_t kMaxToldLines = 1000;  // of one file, one by one

std::optional<RegistryRoot> RootOf(RegistryHandle key) {
    switch (key) {
        case RegistryStore::kClassesRoot:
            return RegistryRoot::kClassesRoot;
        case RegistryStore::kCurrentUser:
            return RegistryRoot::kCurrentUser;
        case RegistryStore::kLocalMachine:
            return RegistryRoot::kLocalMachine;
        case RegistryStore::kUsers:
            return RegistryRoot::kUsers;
        case RegistryStore::kCurrentConfig:
            return RegistryRoot::kCurrentConfig;
        default:
            return std::nullopt;
    }
}

// Puts what a file says into the tree.
class TreeBuilder : public RegistryFileSink {
public:
    TreeBuilder(RegistryTree& tree, std::size_t file) : m_Tree(tree), m_File(file) {}

    void OnKey(RegistryRoot root, RegistryPath path) override { m_Key = &m_Tree.Obtain(root, path, m_File); }
    void OnDeletedKey(RegistryRoot root, RegistryPath path) override { m_Tree.Erase(root, path); }
    void OnValue(std::u16string name, std::uint32_t type, std::string data) override {
        RegistryValue& value = m_Key->values.Obtain(name);
        value.type = type;
        value.data = std::move(data);
    }
    void OnDeletedValue(std::u16string name) override { m_Key->values.Erase(name); }
    void OnMalformedLine(std::uint32_t number) override {
        ++malformedCount;
        if (malformedLines.size() < kMaxToldLines) {
            malformedLines.push_back(number);
        }
    }

    std::vector<std::uint32_t> malformedLines;
    std::size_t malformedCount = 0;

private:
    RegistryTree& m_Tree;
    std::size_t m_File;
    RegistryNode* m_Key = nullptr;
};

void Complain(std::vector<std::string>& complaints, std::string const& path, TreeBuilder const& builder) {
    std::string const start = "read registry file '" + path + "': ";
    for (std::uint32_t const line : builder.malformedLines) {
        complaints.push_back(start + "line " + std::to_string(line) + " is malformed and left out");
    }
    if (std::size_t const more = builder.malformedCount - builder.malformedLines.size(); more != 0) {
        complaints.push_back(start + std::to_string(more) + " more lines are malformed and left out");
    }
}

void Complain(std::vector<std::string>& complaints, std::string const& path, int error) {
    complaints.push_back("read registry file '" + path + "': " + std::generic_category().message(error) +
                         " (" + std::to_string(error) + ")");
}

}  // namespace

// Holds the lock, and puts off a forced stop of the thread that would leave it behind.
class RegistryStore::Guard {
public:
    explicit Guard(RegistryStore& store) : m_Guard(store.m_Lock) {}

private:
    StopDelay m_Delay;
    std::lock_guard<std::mutex> m_Guard;
};

RegistryStore& RegistryStore::Instance() {
    StopDelay const delay;
    // Never destroyed: a key of the host may be closed after any destructor of ours.
    static auto* const s_Store = MakeInstance();
    return *s_Store;
}

// A fork waits until no thread is in here: the child has nobody to finish a change or to give the lock back.
RegistryStore* RegistryStore::MakeInstance() {
    auto* const store = new RegistryStore;
    // Want of memory is its only failure, and takes only this from the child.
    static_cast<void>(::pthread_atfork([] { Instance().m_Lock.lock(); }, [] { Instance().m_Lock.unlock(); },
                                       [] { Instance().m_Lock.unlock(); }));
    return store;
}

void RegistryStore::ReadFile(RegistryFileState const& state, RegistryTree& tree, Told& told) {
    std::string bytes;
    int const error = state.error != 0 ? state.error : ReadRegistryFile(state.path, bytes);
    if (error == ENOENT) {
        return;  // deleted since the survey; the next one will know
    }
    TreeBuilder builder(tree, tree.files.size());
    tree.files.push_back(state.path);
    ParseRegistryFile(bytes, builder);
    std::size_t const content =
        error != 0 ? static_cast<std::size_t>(error) : std::hash<std::string>{}(bytes);
    told[state.path] = content;
    if (auto const before = m_Told.find(state.path); before != m_Told.end() && before->second == content) {
        return;
    }
    if (error != 0) {
        Complain(m_Complaints, state.path, error);
    } else {
        Complain(m_Complaints, state.path, builder);
    }
}

void RegistryStore::Refresh() {
    RegistrySurvey survey = SurveyRegistryFiles();
    if (m_Tree != nullptr && m_Survey.isSettled && survey.files == m_Survey.files) {
        return;
    }
    auto const tree = std::make_shared<RegistryTree>();
    Told told;
    for (RegistryFileState const& state : survey.files) {
        ReadFile(state, *tree, told);
    }
    tree->AddViews();
    m_Tree = tree;
    m_Survey = std::move(survey);
    m_Told = std::move(told);
}

std::optional<RegistryStore::OpenKey> RegistryStore::Resolve(RegistryHandle key) const {
    if (auto const root = RootOf(key)) {
        return OpenKey{*root, {}, nullptr};
    }
    auto const found = m_Open.find(key);
    return found == m_Open.end() ? std::nullopt : std::optional(found->second);
}

RegistryView RegistryStore::View(RegistryHandle key) {
    Guard const guard(*this);
    if (auto const root = RootOf(key)) {
        Refresh();
        return {m_Tree, m_Tree->Find(*root, {})};
    }
    auto const found = m_Open.find(key);
    return found == m_Open.end() ? nullptr : found->second.view;
}

RegistryHandle RegistryStore::Open(RegistryHandle parent, std::u16string_view path, bool isToWrite) {
    Guard const guard(*this);
    std::optional<OpenKey> key = Resolve(parent);
    RegistryPath below;
    if (!key || !SplitRegistryPath(path, below)) {
        return 0;
    }
    key->path.insert(key->path.end(), below.begin(), below.end());
    Refresh();
    RegistryNode const* const node = m_Tree->Find(key->root, key->path);
    if (node == nullptr) {
        return 0;
    }
    if (isToWrite && (node->file >= m_Tree->files.size() || !IsWritableFile(m_Tree->files[node->file]))) {
        return 0;
    }
    key->view = RegistryView(m_Tree, node);
    do {
        // Numbers of roots have the highest bit.
        m_LastHandle = m_LastHandle % (kClassesRoot - 1) + 1;
    } while (m_Open.contains(m_LastHandle));
    m_Open.emplace(m_LastHandle, std::move(*key));
    return m_LastHandle;
}

void RegistryStore::Close(RegistryHandle key) {
    Guard const guard(*this);
    m_Open.erase(key);
}

std::vector<std::string> RegistryStore::TakeComplaints() {
    Guard const guard(*this);
    return std::exchange(m_Complaints, {});
}

}  // namespace System::Platform
