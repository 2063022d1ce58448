#include "corvalen/win32/RegistryKey.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "diagnostics/Report.h"
#include "platform/RegistryFile.h"
#include "platform/RegistryStore.h"

namespace Microsoft::Win32 {

using System::Platform::RegistryStore;
using System::Platform::RegistryValue;
using System::Platform::RegistryView;

static_assert(HKEY_CLASSES_ROOT == RegistryStore::kClassesRoot &&
              HKEY_CURRENT_USER == RegistryStore::kCurrentUser &&
              HKEY_LOCAL_MACHINE == RegistryStore::kLocalMachine && HKEY_USERS == RegistryStore::kUsers &&
              HKEY_CURRENT_CONFIG == RegistryStore::kCurrentConfig);

namespace {

std::u16string_view TextOf(char16_t const* text) {
    return text == nullptr ? std::u16string_view() : std::u16string_view(text);
}

void LogComplaints() {
    for (std::string const& complaint : RegistryStore::Instance().TakeComplaints()) {
        System::Diagnostics::LogWarning("%s", complaint.c_str());
    }
}

RegistryView ViewOf(HKEY key) {
    RegistryView view = RegistryStore::Instance().View(key);
    LogComplaints();
    return view;
}

// Hands out the names of `items`, those that fit `limit` characters with their terminator.
template <typename Items>
void GiveNames(Items const& items, std::size_t limit, char16_t**& names, unsigned int& count) {
    if (items.empty()) {
        return;
    }
    names = new char16_t*[items.size()]();
    count = static_cast<unsigned int>(items.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        std::u16string const& name = items[i]->name;
        if (name.size() < limit) {
            names[i] = new char16_t[limit]();
            std::copy(name.begin(), name.end(), names[i]);
        }
    }
}

}  // namespace

RegistryKey::RegistryKey(HKEY key, char16_t const* name) : m_Key(key) {
    TextOf(name).copy(m_Name, kNameSize - 1);
}

RegistryKey::~RegistryKey() {
    Flush();
    Close();
}

int RegistryKey::get_SubKeyCount() {
    RegistryView const view = ViewOf(m_Key);
    return view == nullptr ? 0 : static_cast<int>(view->keys.Size());
}

int RegistryKey::get_ValueCount() {
    RegistryView const view = ViewOf(m_Key);
    return view == nullptr ? 0 : static_cast<int>(view->values.Size());
}

void RegistryKey::GetSubKeyNames(char16_t**& names, unsigned int& count) {
    names = nullptr;
    count = 0;
    if (RegistryView const view = ViewOf(m_Key)) {
        GiveNames(view->keys.Listed(), MAX_KEY_LENGTH, names, count);
    }
}

void RegistryKey::GetValueNames(char16_t**& names, unsigned int& count) {
    names = nullptr;
    count = 0;
    if (RegistryView const view = ViewOf(m_Key)) {
        GiveNames(view->values.Listed(), MAX_VALUE_NAME, names, count);
    }
}

bool RegistryKey::GetValue(char16_t const* name, char16_t* output, unsigned int size) {
    RegistryView const view = ViewOf(m_Key);
    RegistryValue const* const value = view == nullptr ? nullptr : view->values.Find(TextOf(name));
    if (value == nullptr || value->type != System::Platform::kRegistryString ||
        value->data.size() > MAX_VALUE) {
        return false;
    }
    // Data given in digits may lack the terminator or end in half a character.
    std::u16string text(value->data.size() / sizeof(char16_t), u'\0');
    std::memcpy(text.data(), value->data.data(), text.size() * sizeof(char16_t));
    std::memset(output, 0, size);
    if (std::size_t const room = size / sizeof(char16_t); room != 0) {
        TextOf(text.c_str()).copy(output, room - 1);
    }
    return true;
}

RegistryKey* RegistryKey::OpenSubKey(char16_t const* path) {
    return OpenSubKey(path, false);
}

RegistryKey* RegistryKey::OpenSubKey(char16_t const* path, bool isWritable) {
    auto key = std::make_unique<RegistryKey>(0, path);
    key->m_Key = RegistryStore::Instance().Open(m_Key, TextOf(path), isWritable);
    LogComplaints();
    return key->m_Key == 0 ? nullptr : key.release();
}

// No operation changes a key.
void RegistryKey::Flush() {}

void RegistryKey::Close() {
    RegistryStore::Instance().Close(std::exchange(m_Key, 0));
}

}  // namespace Microsoft::Win32
