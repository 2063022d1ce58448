#include "corvalen/platform/XmlDocument.h"

#include <fcntl.h>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/FileDescriptor.h"
#include "platform/Retry.h"
#include "platform/StopDelay.h"
#include "platform/XmlText.h"
#include "platform/XmlTree.h"

namespace System::Platform {

namespace {

constexpr std::size_t kReadBytes = 65536;
constexpr mode_t kNewFileMode = 0666;
constexpr mode_t kModeBits = 07777;

// XPath has a decimal point whatever the locale of the process says.
class NeutralNumbers {
public:
    NeutralNumbers() : m_Before(::uselocale(Neutral())) {}
    ~NeutralNumbers() { ::uselocale(m_Before); }
    NeutralNumbers(NeutralNumbers const&) = delete;
    NeutralNumbers& operator=(NeutralNumbers const&) = delete;

private:
    static locale_t Neutral() {
        // A thread stopped in the initialisation would keep all others from it.
        StopDelay const stopDelay;
        static locale_t const s_Neutral = ::newlocale(LC_ALL_MASK, "C", nullptr);
        return s_Neutral;
    }

    locale_t m_Before;
};

// Collects what is written. A carriage return leaves as a reference, since a bare one would be read as a
// line end; all that may hold one is text.
class StringWriter : public pugi::xml_writer {
public:
    void write(void const* data, std::size_t size) override {
        std::string_view piece(static_cast<char const*>(data), size);
        for (std::size_t at = piece.find('\r'); at != std::string_view::npos; at = piece.find('\r')) {
            m_Text.append(piece.substr(0, at)).append("&#13;");
            piece.remove_prefix(at + 1);
        }
        m_Text.append(piece);
    }
    std::string Take() { return std::move(m_Text); }

private:
    std::string m_Text;
};

XmlNodeState& RequireDocument(std::shared_ptr<XmlNodeState> const& state) {
    if (state == nullptr) {
        throw XmlError(XmlError::kPointer);
    }
    return *state;
}

std::string RequireName(std::u16string_view name) {
    std::string text = Utf8Of(name);
    if (!IsXmlName(text)) {
        throw XmlError(XmlError::kInvalidArgument);
    }
    return text;
}

// Reads a whole file; 0 or an errno value.
int ReadAll(char const* path, std::string& bytes) {
    FileDescriptor const file(RetryOnInterrupt([&] { return ::open(path, O_RDONLY | O_CLOEXEC); }));
    if (!file.IsOpen()) {
        return errno;
    }
    for (std::size_t length = 0;;) {
        bytes.resize(length + kReadBytes);
        ssize_t const got =
            RetryOnInterrupt([&] { return ::read(file.Get(), bytes.data() + length, kReadBytes); });
        if (got < 0) {
            return errno;
        }
        length += static_cast<std::size_t>(got);
        if (got == 0) {
            bytes.resize(length);
            return 0;
        }
    }
}

int WriteAll(FileDescriptor const& file, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t const written =
            RetryOnInterrupt([&] { return ::write(file.Get(), bytes.data(), bytes.size()); });
        if (written < 0) {
            return errno;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return ::fsync(file.Get()) == 0 ? 0 : errno;
}

// A name beside `path` that no other save uses at the same time.
std::string NameBeside(std::string const& path) {
    static std::atomic<unsigned> s_Count{0};
    return path + "." + std::to_string(::getpid()) + "_" + std::to_string(++s_Count) + ".new";
}

int Replace(std::string const& path, std::string_view bytes) {
    std::string const newPath = NameBeside(path);
    FileDescriptor const file(RetryOnInterrupt([&] {
        return ::open(newPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kNewFileMode);
    }));
    if (!file.IsOpen()) {
        return errno;
    }
    struct stat old {};
    bool const isNew = ::stat(path.c_str(), &old) != 0;
    int failure = isNew || ::fchmod(file.Get(), old.st_mode & kModeBits) == 0 ? 0 : errno;
    failure = failure != 0 ? failure : WriteAll(file, bytes);
    if (failure == 0 && ::rename(newPath.c_str(), path.c_str()) != 0) {
        failure = errno;
    }
    if (failure != 0) {
        // Only tidying up: the failure that is reported came before.
        static_cast<void>(::unlink(newPath.c_str()));
    }
    return failure;
}

// The file that a link leads to, so that the link itself stays; `path` if there is no such file yet.
std::string FileBehind(char const* path) {
    char* const resolved = ::realpath(path, nullptr);
    std::string file = resolved != nullptr ? resolved : path;
    std::free(resolved);
    return file;
}

void Tell(std::string* error, std::string const& text) {
    if (error != nullptr) {
        *error = text;
    }
}

}  // namespace

XmlDocument XmlDocument::Create() {
    auto const tree = std::make_shared<XmlTree>(true);
    return XmlDocument(tree->StateOf(tree->document));
}

XmlDocument XmlDocument::Load(std::string_view bytes, std::string* error) {
    auto const tree = std::make_shared<XmlTree>(true);
    std::string const fault = Parse(*tree, bytes, kMaxDepth);
    if (!fault.empty()) {
        Tell(error, "load XML: " + fault);
        return {};
    }
    return XmlDocument(tree->StateOf(tree->document));
}

XmlDocument XmlDocument::LoadFile(char const* path, std::string* error) {
    std::string bytes;
    if (int const failure = ReadAll(path, bytes); failure != 0) {
        char reason[128];
        Tell(error, std::string("load '") + path + "': " + ::strerror_r(failure, reason, sizeof reason) +
                        " (" + std::to_string(failure) + ")");
        return {};
    }
    std::string fault;
    XmlDocument document = Load(bytes, &fault);
    if (!document) {
        Tell(error, std::string("load '") + path + "': " + fault);
    }
    return document;
}

std::string XmlDocument::Save() const {
    StringWriter writer;
    RequireDocument(m_State).tree->document.save(writer, "", pugi::format_raw | pugi::format_no_declaration,
                                                 pugi::encoding_utf8);
    return writer.Take();
}

int XmlDocument::SaveFile(char const* path) const {
    return Replace(FileBehind(path), Save());
}

XmlNode XmlDocument::DocumentElement() const {
    XmlTree& tree = *RequireDocument(m_State).tree;
    return XmlNode(tree.StateOf(tree.document.document_element()));
}

XmlNode XmlDocument::CreateElement(std::u16string_view name) const {
    RequireDocument(m_State);
    std::string const text = RequireName(name);
    auto const tree = std::make_shared<XmlTree>(false);
    pugi::xml_node element = tree->document.append_child(pugi::node_element);
    if (!element.set_name(text.c_str())) {
        throw std::bad_alloc();
    }
    return XmlNode(tree->StateOf(element));
}

XmlNode XmlDocument::CreateAttribute(std::u16string_view name) const {
    RequireDocument(m_State);
    std::string const text = RequireName(name);
    auto const tree = std::make_shared<XmlTree>(false);
    pugi::xml_node element = tree->document.append_child(pugi::node_element);
    pugi::xml_attribute const attribute = element.append_attribute(text.c_str());
    if (!attribute) {
        throw std::bad_alloc();
    }
    return XmlNode(tree->StateOf(element, attribute));
}

XmlNode XmlDocument::SelectSingleNode(std::u16string_view query) const {
    XmlTree& tree = *RequireDocument(m_State).tree;
    NeutralNumbers const numbers;
    std::string const text = Utf8Of(query);
    pugi::xpath_query const* const compiled =
        text.find('\0') == std::string::npos ? tree.queries.Find(text) : nullptr;
    if (compiled == nullptr) {
        throw XmlError(XmlError::kInvalidArgument);
    }
    pugi::xpath_node const found = compiled->evaluate_node(tree.document);
    return XmlNode(found.attribute() ? tree.StateOf(found.parent(), found.attribute())
                                     : tree.StateOf(found.node()));
}

}  // namespace System::Platform
