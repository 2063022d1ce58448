#include "corvalen/win32/RegistryKey.h"

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "corvalen/win32/Registry.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Unique.h"

namespace {

using namespace std::string_literals;

using Microsoft::Win32::Registry;
using Microsoft::Win32::RegistryKey;
using Support::LogCapture;
using Support::TemporaryFolder;
using Support::WriteFile;

using KeyPtr = std::unique_ptr<RegistryKey>;
using Names = std::vector<std::u16string>;

constexpr char kHeader[] = "Windows Registry Editor Version 5.00\n";

// Sets a variable of the environment for its lifetime.
class Variable {
public:
    Variable(char const* name, std::string const& value) : m_Name(name) {
        char const* const old = std::getenv(name);
        m_HadOld = old != nullptr;
        m_Old = m_HadOld ? old : "";
        Set(value);
    }
    ~Variable() {
        if (m_HadOld) {
            Set(m_Old);
        } else {
            ::unsetenv(m_Name);
        }
    }
    Variable(Variable const&) = delete;
    Variable& operator=(Variable const&) = delete;

    void Set(std::string const& value) { ASSERT_EQ(::setenv(m_Name, value.c_str(), 1), 0); }

private:
    char const* m_Name;
    std::string m_Old;
    bool m_HadOld;
};

class RegistryFiles : public testing::Test {
protected:
    RegistryFiles() {
        for (char const* base : {"machine", "more", "user"}) {
            std::filesystem::create_directories(Folder(base));
        }
    }

    std::string Folder(std::string const& base) const { return m_Root / base + "/corvalen/registry"; }
    std::string Write(std::string const& base, std::string const& name, std::string const& text) const {
        std::string path = Folder(base) + "/" + name;
        WriteFile(path, kHeader + text);
        return path;
    }

    LogCapture m_Log;

private:
    TemporaryFolder m_Root;
    Variable m_Directories{"XDG_CONFIG_DIRS", (m_Root / "machine") + ":relative::" + (m_Root / "more")};
    Variable m_Home{"XDG_CONFIG_HOME", m_Root / "user"};
};

KeyPtr Open(char16_t const* path, RegistryKey* (*root)() = Registry::LocalMachine) {
    return KeyPtr(KeyPtr(root())->OpenSubKey(path));
}

// The text of a value, or "none".
std::u16string ValueOf(KeyPtr const& key, char16_t const* name) {
    char16_t text[9000];
    return key != nullptr && key->GetValue(name, text, sizeof text) ? text : u"none";
}

Names TakeNames(char16_t** names, unsigned count) {
    Names taken;
    for (unsigned i = 0; i < count; ++i) {
        taken.emplace_back(names[i] == nullptr ? u"(null)" : names[i]);
        delete[] names[i];
    }
    delete[] names;
    return taken;
}

Names KeysOf(RegistryKey& key) {
    char16_t** names = nullptr;
    unsigned count = 77;
    key.GetSubKeyNames(names, count);
    EXPECT_EQ(names == nullptr, count == 0);
    return TakeNames(names, count);
}

Names ValuesOf(RegistryKey& key) {
    char16_t** names = nullptr;
    unsigned count = 77;
    key.GetValueNames(names, count);
    EXPECT_EQ(names == nullptr, count == 0);
    return TakeNames(names, count);
}

TEST_F(RegistryFiles, ReadTheExampleForAdministrators) {
    Write("machine", "early.reg", "[HKEY_LOCAL_MACHINE\\Software\\Corvalen\\Example\\Obsolete]\n");
    std::filesystem::copy(CORVALEN_SOURCE_ROOT "/examples/registry/example.reg",
                          Folder("machine") + "/example.reg");
    KeyPtr const key = Open(u"SOFTWARE\\corvalen\\example");
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(ValueOf(key, u""), u"The default value of the key");
    EXPECT_EQ(ValueOf(key, nullptr), u"The default value of the key");
    EXPECT_EQ(ValueOf(key, u"greeting"), u"Say \"hello\" in C:\\Temp");
    for (char16_t const* name : {u"Port", u"Limit", u"Path", u"Names", u"Key", u"Obsolete"}) {
        EXPECT_EQ(ValueOf(key, name), u"none");
    }
    EXPECT_EQ(ValuesOf(*key), (Names{u"", u"Greeting", u"Port", u"Limit", u"Path", u"Names", u"Key"}));
    EXPECT_EQ(KeysOf(*key), Names{u"Größe"});
    EXPECT_EQ(ValueOf(KeyPtr(key->OpenSubKey(u"GRÖßE")), u"überschrift"), u"Ж");
    EXPECT_EQ(ValueOf(Open(u".note", Registry::ClassesRoot), u""), u"Corvalen.Note");
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(RegistryFiles, GiveRootsOfTheirOwnToEachCaller) {
    KeyPtr const first(Registry::LocalMachine());
    KeyPtr const second(Registry::LocalMachine());
    EXPECT_NE(first, second);
    std::pair<RegistryKey* (*)(), char16_t const*> const roots[] = {
        {Registry::ClassesRoot, u"HKEY_CLASSES_ROOT"},
        {Registry::CurrentUser, u"HKEY_CURRENT_USER"},
        {Registry::LocalMachine, u"HKEY_LOCAL_MACHINE"},
        {Registry::Users, u"HKEY_USERS"},
        {Registry::CurrentConfig, u"HKEY_CURRENT_CONFIG"}};
    for (auto const& [root, name] : roots) {
        KeyPtr const key(root());
        EXPECT_EQ(std::u16string(key->get_Name()), name);
        EXPECT_EQ(key->get_SubKeyCount(), 0);
        EXPECT_EQ(key->get_ValueCount(), 0);
        EXPECT_EQ(KeysOf(*key), Names{});
        EXPECT_EQ(ValuesOf(*key), Names{});
    }
}

TEST_F(RegistryFiles, GoOverEachOtherInTheirOrder) {
    Write("more", "z.reg",
          "[HKEY_USERS\\a]\n\"1\"=\"more\"\n\"2\"=\"more\"\n\"3\"=\"more\"\n\"4\"=\"more\"\n[HKEY_USERS\\x]");
    Write("machine", "a.reg", "[HKEY_USERS\\A]\n\"2\"=\"a\"\n\"3\"=\"a\"\n\"4\"=\"a\"\n[-HKEY_USERS\\X]");
    Write("machine", "b.reg", "[HKEY_USERS\\a]\n\"3\"=\"b\"\n\"4\"=\"b\"\n");
    Write("user", "a.reg", "[HKEY_USERS\\a]\n\"4\"=\"user\"\n\"1\"=-\n");
    Write("user", ".hidden.reg", "[HKEY_USERS\\b]\n");
    Write("user", "other.txt", "[HKEY_USERS\\b]\n");
    KeyPtr const users(Registry::Users());
    EXPECT_EQ(KeysOf(*users), Names{u"a"});
    KeyPtr const key(users->OpenSubKey(u"a"));
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(ValuesOf(*key), (Names{u"2", u"3", u"4"}));
    EXPECT_EQ(ValueOf(key, u"2"), u"a");
    EXPECT_EQ(ValueOf(key, u"3"), u"b");
    EXPECT_EQ(ValueOf(key, u"4"), u"user");
}

TEST_F(RegistryFiles, ShowClassesAndConfigurationAsViews) {
    Write("machine", "a.reg",
          "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes\\.a]\n@=\"machine\"\n\"m\"=\"1\"\n[HKEY_LOCAL_"
          "MACHINE\\SOFTWARE\\Classes\\.b\\c]\n"
          "[HKEY_CURRENT_USER\\Software\\Classes\\.A]\n@=\"user\"\n"
          "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current\\d]\n");
    KeyPtr const classes(Registry::ClassesRoot());
    EXPECT_EQ(KeysOf(*classes), (Names{u".a", u".b"}));
    KeyPtr const key(classes->OpenSubKey(u".a"));
    EXPECT_EQ(ValueOf(key, u""), u"user");
    EXPECT_EQ(ValueOf(key, u"m"), u"1");
    EXPECT_NE(KeyPtr(classes->OpenSubKey(u".b\\c", true)), nullptr);
    EXPECT_EQ(KeysOf(*KeyPtr(Registry::CurrentConfig())), Names{u"d"});
    Write("user", "a.reg", "[HKEY_CLASSES_ROOT\\.x]\n[HKEY_CURRENT_CONFIG\\y]\n");
    EXPECT_EQ(KeysOf(*classes), Names{u".x"});
    EXPECT_EQ(KeysOf(*KeyPtr(Registry::CurrentConfig())), Names{u"y"});
}

TEST_F(RegistryFiles, MayChangeUnderAnOpenKeyThatKeepsWhatItSaw) {
    std::string const path = Write("user", "a.reg", "[HKEY_LOCAL_MACHINE\\a]\n@=\"1\"\n");
    KeyPtr const first = Open(u"a");
    Write("user", "a.reg", "[HKEY_LOCAL_MACHINE\\a]\n@=\"2\"\n");
    KeyPtr const second = Open(u"a");
    EXPECT_EQ(ValueOf(KeyPtr(first->OpenSubKey(u"")), u""), u"2");
    Write("user", "b.reg", "[HKEY_LOCAL_MACHINE\\a\\b]\n@=\"3\"\n");
    EXPECT_EQ(first->get_SubKeyCount(), 0);
    EXPECT_EQ(ValueOf(KeyPtr(first->OpenSubKey(u"b")), u""), u"3");
    std::filesystem::remove(path);
    EXPECT_EQ(ValueOf(Open(u"a"), u""), u"none");
    std::filesystem::remove(Folder("user") + "/b.reg");
    EXPECT_EQ(Open(u"a"), nullptr);
    EXPECT_EQ(ValueOf(first, u""), u"1");
    EXPECT_EQ(ValueOf(second, u""), u"2");
    EXPECT_EQ(first->OpenSubKey(u"b"), nullptr);
}

TEST_F(RegistryFiles, WarnOnceForEachMalformedLine) {
    std::string const path = Write("user", "a.reg", "[HKEY_USERS\\a]\noops\n@=\"x\"\n@=dword:z\n");
    KeyPtr const users(Registry::Users());
    for (int look = 0; look < 3; ++look) {
        EXPECT_EQ(ValueOf(KeyPtr(users->OpenSubKey(u"a")), u""), u"x");
    }
    ASSERT_EQ(m_Log.Lines().size(), 2U);
    EXPECT_EQ(m_Log.Lines()[0].severity, 1U);
    EXPECT_EQ(m_Log.Count(path + "': line 3 "), 1U);
    EXPECT_EQ(m_Log.Count(path + "': line 5 "), 1U);
    Write("user", "b.reg", "");
    EXPECT_EQ(users->get_SubKeyCount(), 1);
    EXPECT_EQ(m_Log.Lines().size(), 2U);
    Write("user", "a.reg", "oops\n");
    EXPECT_EQ(users->get_SubKeyCount(), 0);
    EXPECT_EQ(m_Log.Lines().size(), 3U);
}

TEST_F(RegistryFiles, ThatCannotBeReadAreToldOnceAndStopNothing) {
    Write("machine", "a.reg", "[HKEY_USERS\\a]\n");
    ASSERT_EQ(::mkfifo((Folder("machine") + "/pipe.reg").c_str(), 0600), 0);
    std::filesystem::create_directory(Folder("machine") + "/folder.reg");
    std::filesystem::create_symlink("nowhere", Folder("machine") + "/lost.reg");
    Write("machine", "large.reg", std::string((8U << 20U) + 1, '\n'));
    std::string lines = "[HKEY_USERS\\b]\n";
    for (int i = 0; i < 1500; ++i) {
        lines += "oops\n";
    }
    Write("machine", "z.reg", lines);
    KeyPtr const users(Registry::Users());
    EXPECT_EQ(KeysOf(*users), (Names{u"a", u"b"}));
    EXPECT_EQ(KeysOf(*users), (Names{u"a", u"b"}));
    for (char const* name : {"pipe.reg': ", "folder.reg': ", "large.reg': ", "500 more lines"}) {
        EXPECT_EQ(m_Log.Count(name), 1U) << name;
    }
    EXPECT_EQ(m_Log.Lines().size(), 3U + 1000U + 1U);
}

TEST_F(RegistryFiles, GiveNullEntriesForNamesThatDoNotFit) {
    std::string const fits(254, 'k');
    std::string const valueFits(16382, 'v');
    Write("user", "a.reg",
          "[HKEY_USERS\\" + fits + "]\n[HKEY_USERS\\" + fits + "k]\n[HKEY_USERS]\n\"" + valueFits +
              "\"=\"1\"\n\"" + valueFits + "v\"=\"2\"\n");
    KeyPtr const users(Registry::Users());
    EXPECT_EQ(KeysOf(*users), (Names{std::u16string(254, u'k'), u"(null)"}));
    EXPECT_EQ(ValuesOf(*users), (Names{std::u16string(16382, u'v'), u"(null)"}));
    EXPECT_EQ(users->get_SubKeyCount(), 2);
    EXPECT_NE(KeyPtr(users->OpenSubKey(std::u16string(255, u'k').c_str())), nullptr);
}

TEST_F(RegistryFiles, GiveStringsThatFitAndCutThem) {
    Write(
        "user", "a.reg",
        "[HKEY_USERS\\a]\n\"s\"=\"abcdef\"\n\"d\"=dword:1\n\"open\"=hex(1):61,00,62,00,63\n\"none\"=hex(1):\n"
        "\"longest\"=\"" +
            std::string(8149, 'x') + "\"\n\"long\"=\"" + std::string(8150, 'x') + "\"\n");
    KeyPtr const key = Open(u"a", Registry::Users);
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(ValueOf(key, u"open"), u"ab");
    EXPECT_EQ(ValueOf(key, u"none"), u"");
    EXPECT_EQ(ValueOf(key, u"longest").size(), 8149U);
    EXPECT_EQ(ValueOf(key, u"long"), u"none");

    struct {
        unsigned size;
        std::u16string expected;
    } const sizes[] = {{0, u"########"},    {1, u"\uFF00#######"},   {2, u"\0#######"s},
                       {8, u"abc\0####"s},  {9, u"abc\0\uFF00###"s}, {14, u"abcdef\0#"s},
                       {16, u"abcdef\0\0"s}};
    for (auto const& [size, expected] : sizes) {
        char16_t text[8] = {};
        std::fill_n(text, 8, u'#');
        if (size % 2 != 0) {
            text[size / 2] = u'\uFFFF';
        }
        EXPECT_TRUE(key->GetValue(u"s", text, size));
        EXPECT_EQ(std::u16string(text, 8), expected) << size;
        EXPECT_FALSE(key->GetValue(u"d", text, sizeof text));
        EXPECT_EQ(std::u16string(text, 8), expected) << size;
    }
}

TEST_F(RegistryFiles, OpenKeysByPath) {
    Write("user", "a.reg", "[HKEY_USERS\\a\\b]\n");
    KeyPtr const users(Registry::Users());
    KeyPtr const key(users->OpenSubKey(u"A\\b"));
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(std::u16string(key->get_Name()), u"A\\b");
    EXPECT_EQ(KeyPtr(users->OpenSubKey(u"a\\c")), nullptr);
    EXPECT_EQ(KeyPtr(users->OpenSubKey(u"\\a")), nullptr);
    EXPECT_EQ(KeyPtr(users->OpenSubKey(u"a\\\\b")), nullptr);
    EXPECT_NE(KeyPtr(users->OpenSubKey(u"a\\b\\")), nullptr);
    EXPECT_NE(KeyPtr(users->OpenSubKey(nullptr)), nullptr);
    std::u16string const label(3000, u'x');
    EXPECT_EQ(std::u16string(RegistryKey(0, label.c_str()).get_Name()), label.substr(0, 2047));
}

TEST_F(RegistryFiles, AreOutOfReachOfAClosedKey) {
    Write("user", "a.reg", "[HKEY_USERS\\a\\b]\n[HKEY_USERS\\a]\n@=\"1\"\n");
    KeyPtr const users(Registry::Users());
    KeyPtr const key(users->OpenSubKey(u"a"));
    KeyPtr const other(users->OpenSubKey(u"a"));
    for (RegistryKey* closed : {key.get(), users.get()}) {
        closed->Close();
        closed->Close();
        closed->Flush();
        EXPECT_EQ(closed->get_SubKeyCount(), 0);
        EXPECT_EQ(closed->get_ValueCount(), 0);
        EXPECT_EQ(KeysOf(*closed), Names{});
        EXPECT_EQ(ValuesOf(*closed), Names{});
        EXPECT_EQ(KeyPtr(closed->OpenSubKey(u"")), nullptr);
    }
    EXPECT_EQ(ValueOf(key, u""), u"none");
    EXPECT_EQ(ValueOf(other, u""), u"1");
}

// Runs on a thread that gives up its privileges, since root may write every file. The system call changes the
// calling thread alone.
TEST_F(RegistryFiles, AreWritableAsKeysIfTheProcessMayWriteThem) {
    std::string const readable = Write("machine", "a.reg", "[HKEY_USERS\\a\\b]\n");
    Write("user", "b.reg", "[HKEY_USERS\\a]\n");
    ASSERT_EQ(::chmod(readable.c_str(), 0444), 0);
    KeyPtr const users(Registry::Users());
    std::jthread([&] {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct const none[_LINUX_CAPABILITY_U32S_3] = {};
        ASSERT_EQ(::syscall(SYS_capset, &header, none), 0);
        EXPECT_NE(KeyPtr(users->OpenSubKey(u"a", true)), nullptr);
        EXPECT_EQ(KeyPtr(users->OpenSubKey(u"a\\b", true)), nullptr);
        EXPECT_NE(KeyPtr(users->OpenSubKey(u"a\\b", false)), nullptr);
        EXPECT_EQ(KeyPtr(users->OpenSubKey(u"", true)), nullptr);
    }).join();
}

TEST_F(RegistryFiles, MayBeReadByManyThreadsWhileTheyChange) {
    Write("user", "a.reg", "[HKEY_USERS\\a]\n@=\"1\"\n");
    std::vector<std::jthread> readers;
    for (int reader = 0; reader < 3; ++reader) {
        readers.emplace_back([] {
            for (int i = 0; i < 100; ++i) {
                EXPECT_EQ(ValueOf(Open(u"a", Registry::Users), u""), u"1");
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        Write("user", "b.reg", "[HKEY_USERS\\b" + std::to_string(i) + "]\n");
    }
}

}  // namespace
