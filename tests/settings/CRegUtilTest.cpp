#include "settings/CRegUtil.h"

#include "objects/LastFailure.h"
#include "settings/engine/SettingsStore.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/PrintText.h"
#include "tests/support/TestRegistry.h"
#include "text/Language.h"
#include "ui/CUserInterface.h"

namespace
{
using namespace tev::test;

constexpr unsigned long kAll = CRegUtil::kAllAccess;
constexpr const wchar_t* kBase = L"Software\\Maker\\Program";

class RegUtil : public testing::Test
{
protected:
    /// An object whose base is there.
    static std::unique_ptr<CRegUtil> Made(const wchar_t* path = kBase, unsigned long access = kAll)
    {
        auto made = std::make_unique<CRegUtil>(access);
        EXPECT_TRUE(made->SetPath(path, true)) << made->GetLastError();
        return made;
    }
    static std::vector<std::wstring> SubKeys(CRegUtil& registry)
    {
        std::vector<std::wstring> names;
        wchar_t name[300];
        EXPECT_TRUE(registry.StartSubKeyEnum());
        while (registry.GetNextSubKeyName(name, 300))
            names.emplace_back(name);
        EXPECT_EQ(registry.GetLastError(), 259);
        registry.EndSubKeyEnum();
        return names;
    }
    static std::vector<std::wstring> Values(CRegUtil& registry, const wchar_t* subkey)
    {
        std::vector<std::wstring> names;
        wchar_t name[300];
        EXPECT_TRUE(registry.StartValueSection(subkey));
        while (registry.GetNextValueName(name, 300))
            names.emplace_back(name);
        EXPECT_EQ(registry.GetLastError(), 259);
        registry.EndValueSection();
        return names;
    }

    TestRegistry m_registry;
};

TEST_F(RegUtil, PathsAreTakenApartAtEverySeparatorAndMayNameARoot)
{
    const struct
    {
        const wchar_t* m_path;
        const wchar_t* m_root;
        std::vector<std::wstring> m_components;
    } cases[] = {
        {L"HKEY_LOCAL_MACHINE\\Software//X", L"HKEY_LOCAL_MACHINE", {L"Software", L"X"}},
        {L"/a:b\\\\c/", L"HKEY_CURRENT_USER", {L"a", L"b", L"c"}},
        {L"hkey_users\\d", L"HKEY_CURRENT_USER", {L"hkey_users", L"d"}}, // the names of roots are exact
        {L"HKEY_CURRENT_CONFIG:e\\HKEY_USERS", L"HKEY_CURRENT_CONFIG", {L"e", L"HKEY_USERS"}},
    };
    for (const auto& row : cases)
    {
        SCOPED_TRACE(testing::PrintToString(std::wstring(row.m_path)));
        ASSERT_TRUE(Made(row.m_path)->WriteKeyInt(L"mark", 1));
        std::vector<const wchar_t*> components;
        for (const std::wstring& component : row.m_components)
            components.push_back(component.c_str());
        CRegUtil other(kAll);
        EXPECT_TRUE(other.SetPath(components.data(), static_cast<int>(components.size()),
                                  CRegUtil::StrToRootKey(row.m_root), false));
        EXPECT_TRUE(other.KeyExists(L"mark"));
    }
    CRegUtil kept(kAll);
    kept.SetPath(L"HKEY_USERS", false);
    ASSERT_TRUE(kept.SetPath(L"below", true));
    EXPECT_FALSE(CRegUtil(kAll).SetPath(L"below", false)) << "the root of the path before is kept";
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(CRegUtil::StrToRootKey(L"HKEY_DYN_DATA")), 0x80000006U);
    EXPECT_EQ(CRegUtil::StrToRootKey(L"HKEY_PERFORMANCE_DATA"), nullptr);
    EXPECT_EQ(CRegUtil::StrToRootKey(nullptr), nullptr);
}

TEST_F(RegUtil, NothingIsMadeUntilItIsAskedFor)
{
    CRegUtil registry(kAll);
    EXPECT_EQ(ErrorOf(registry, registry.SetPath(kBase, false)), 2);
    EXPECT_FALSE(registry.WriteKeyInt(L"a", 1));
    EXPECT_EQ(registry.GetSubKeyInt(L"sub", L"a", -7), -7);
    EXPECT_EQ(registry.GetSubKeyString(L"sub", L"a", L"default", true), L"default");
    EXPECT_FALSE(registry.SetRelPath(L"sub", false)) << "kept though it is not there";
    CRegUtil root(kAll);
    EXPECT_TRUE(root.OpenBase(false)) << "a root is always there";
    EXPECT_TRUE(SubKeys(root).empty());
    EXPECT_FALSE(m_registry.m_folder.Exists("user.db"));
    EXPECT_TRUE(root.WriteKeyInt(L"a", 1));
    EXPECT_TRUE(m_registry.m_folder.Exists("user.db"));
}

TEST_F(RegUtil, PathsContinueAndAreCopied)
{
    CRegUtil registry(CRegUtil::kRead);
    EXPECT_FALSE(registry.SetRelPath(L"X", true)) << "there is nothing to be relative to";
    ASSERT_TRUE(registry.SetPath(L"HKEY_USERS/a", true));
    ASSERT_TRUE(registry.SetRelPath(L"b:c", true));
    EXPECT_TRUE(CRegUtil(kAll).SetPath(L"HKEY_USERS\\a\\b\\c", false));

    CRegUtil copy(registry);
    EXPECT_EQ(copy.GetLastError(), 0);
    EXPECT_TRUE(copy.OpenBase(false));
    EXPECT_EQ(ErrorOf(copy, copy.WriteKeyInt(L"a", 1)), 5) << "rights are copied";

    const wchar_t* components[] = {L"d", L"e"};
    ASSERT_TRUE(registry.SetPath(components, 2, CRegUtil::StrToRootKey(L"HKEY_USERS"), true));
    CRegUtil lost(registry);
    EXPECT_EQ(lost.GetLastError(), 2) << "a root that the path does not name becomes HKEY_CURRENT_USER";
    EXPECT_TRUE(registry.SetRelPath(L"f", true)) << "but here it is kept";
    EXPECT_TRUE(CRegUtil(kAll).SetPath(L"HKEY_USERS\\d\\e\\f", false));

    EXPECT_TRUE(registry.SetPath(nullptr, 0, nullptr, true));
    EXPECT_EQ(ErrorOf(registry, registry.SetPath(nullptr, 1, nullptr, true)), 87);
    EXPECT_EQ(ErrorOf(registry, registry.SetPath(components, 2, reinterpret_cast<HKEY>(std::uintptr_t{4711}), true)),
              6);
}

class Host : public CUserInterface
{
public:
    void ShowMessage(Severity, const CXTString<wchar_t>& text) override { m_text = text; }
    CXTString<wchar_t> m_text;
};

TEST_F(RegUtil, TheDefaultPathNeedsTheNameOfTheApplication)
{
    const XLanguage language = XGetLanguage();
    XSetLanguage(XLanguage::English);
    Host host;
    CUserInterface* const before = XSetUserInterface(&host);
    CRegUtil nameless(kAll);
    EXPECT_EQ(nameless.GetLastError(), 0);
    EXPECT_FALSE(nameless.SetPath());
    XSetUserInterface(before);
    XSetLanguage(language);
    EXPECT_EQ(host.m_text, L"Default form of SetPath requires you to specify the appname in the constructor.");

    CRegUtil named(L"Viewer", kAll);
    EXPECT_EQ(named.GetLastError(), 21);
    EXPECT_TRUE(named.SetPath());
    EXPECT_EQ(named.GetLastError(), 0);
    EXPECT_TRUE(CRegUtil(kAll).SetPath(L"HKEY_CURRENT_USER\\Software\\Test\\Viewer", false));
}

TEST_F(RegUtil, ValuesComeBackAndKeepTheirTypes)
{
    const auto registry = Made();
    unsigned long number = 0;
    unsigned long type = 99;
    BinaryData data;
    ASSERT_TRUE(registry->WriteKeyInt(L"int", static_cast<unsigned long>(-2)));
    ASSERT_TRUE(registry->GetKeyInt(L"INT", number));
    EXPECT_EQ(number, 0xFFFFFFFEU) << "32 bits on every platform";
    EXPECT_TRUE(registry->ReadValue(L"int", type, data) && type == 4 && data == (BinaryData{0xFE, 0xFF, 0xFF, 0xFF}));

    ASSERT_TRUE(registry->WriteKeyString(L"text", L"h\u00E9 \U0001F600"));
    EXPECT_EQ(registry->GetKeyString(L"text", false), L"h\u00E9 \U0001F600");
    EXPECT_TRUE(registry->ReadValue(L"text", type, data) && type == 1);
    EXPECT_EQ(data, (BinaryData{'h', 0, 0xE9, 0, ' ', 0, 0x3D, 0xD8, 0, 0xDE, 0, 0})) << "UTF-16 with its terminator";
    ASSERT_TRUE(registry->WriteKeyString(L"null", nullptr));
    EXPECT_TRUE(registry->ReadValue(L"null", type, data) && type == 1 && data.empty());

    unsigned long size = 3;
    unsigned char block[3] = {};
    ASSERT_TRUE(registry->WriteKeyBin(L"bin", "\1\2\3", 3));
    EXPECT_TRUE(registry->GetKeyBin(L"bin", block, size) && size == 3 && block[2] == 3);
    size = 2;
    EXPECT_FALSE(registry->GetKeyBin(L"bin", block, size));
    EXPECT_EQ(size, 3U);
    EXPECT_EQ(registry->GetLastError(), 234);
    EXPECT_TRUE(registry->GetKeyInt(L"bin", number) && number == 0x030201);
    EXPECT_FALSE(registry->GetKeyInt(L"text", number)) << "more than 4 bytes";
    EXPECT_EQ(number, 0x030201U);
    EXPECT_TRUE(registry->GetKeyString(L"bin", false).IsEmpty()) << "no text";

    ASSERT_TRUE(registry->WriteRegNoneKey(L"none"));
    EXPECT_TRUE(registry->ReadValue(L"none", type, data) && type == 0 && data.empty());
    EXPECT_FALSE(registry->KeyExists(L"none")) << "no data";
    EXPECT_TRUE(registry->KeyExists(L"bin"));
    EXPECT_EQ(ErrorOf(*registry, registry->KeyExists(L"missing")), 2);

    ASSERT_TRUE(registry->WriteKeyString(nullptr, L"the default value"));
    EXPECT_EQ(registry->GetKeyString(L"", false), L"the default value");
    ASSERT_TRUE(registry->WriteKeyInt(L"text", 5));
    EXPECT_TRUE(registry->ReadValue(L"TEXT", type, data) && type == 4) << "another type takes its place";
    EXPECT_EQ(Values(*registry, nullptr), (std::vector<std::wstring>{L"", L"bin", L"int", L"none", L"null", L"text"}));
}

TEST_F(RegUtil, LookUpsThatFindNothingAreNoFailures)
{
    const auto registry = Made();
    unsigned long number = 0;
    wchar_t name[16];
    XClearLastFailure();
    EXPECT_FALSE(registry->GetKeyInt(L"none", number));
    EXPECT_TRUE(registry->GetKeyString(L"none", true).IsEmpty());
    EXPECT_FALSE(registry->KeyExists(L"none"));
    EXPECT_EQ(registry->GetSubKeyInt(L"none", L"none", 7), 7);
    EXPECT_EQ(registry->GetSubKeyString(L"none", L"none", L"text", false), L"text");
    EXPECT_TRUE(registry->StartSubKeyEnum());
    EXPECT_FALSE(registry->GetNextSubKeyName(name, 16));
    EXPECT_EQ(XLastFailure().GetKind(), XFailureKind::kNone);
    EXPECT_FALSE(Made(kBase, CRegUtil::kRead)->WriteKeyInt(L"a", 1));
    EXPECT_EQ(XLastFailure().GetSystemError(), 5U);
    EXPECT_STREQ(XLastFailure().GetOperation(), "CRegUtil::WriteKeyInt");
    EXPECT_TRUE(registry->WriteKeyInt(L"a", 1));
    EXPECT_EQ(XLastFailure().GetSystemError(), 5U) << "what succeeds leaves it as it is";
}

TEST_F(RegUtil, TextsEndAtTheFirstNulAndAreExpanded)
{
    const auto registry = Made();
    const EnvironmentVariable place("TEV_TEST_PLACE", "h\xC3\xA9");
    const EnvironmentVariable empty("TEV_TEST_EMPTY", "");
    const auto write = [&](unsigned long type, const std::wstring& text, unsigned long odd = 0) {
        BinaryData bytes;
        for (const wchar_t c : text)
            bytes.insert(bytes.end(), {static_cast<unsigned char>(c), static_cast<unsigned char>(c >> 8)});
        bytes.resize(bytes.size() + odd, 'x');
        return registry->WriteValue(L"t", type, bytes.data(), static_cast<unsigned long>(bytes.size()));
    };
    const struct
    {
        unsigned long m_type;
        std::wstring m_stored;
        const wchar_t* m_expanded;
    } cases[] = {
        {7, L"one\0two\0\0"s, L"one"},
        {1, L"without end", L"without end"},
        {1, L"%TEV_TEST_PLACE%", L"%TEV_TEST_PLACE%"}, // not of that type
        {2, L"%TEV_TEST_PLACE%/%TEV_TEST_PLACE%"s, L"h\u00E9/h\u00E9"},
        {2, L"100%TEV_TEST_PLACE%%%TEV_TEST_NONE%TEV_TEST_PLACE%"s, L"100h\u00E9%%TEV_TEST_NONEh\u00E9"},
        {2, L"[%TEV_TEST_EMPTY%]%"s, L"[]%"},
        {2, std::wstring(257, L'a') + L"%TEV_TEST_PLACE%", nullptr}, // 259 characters and the terminator
        {2, L"%TEV_TEST_PLACE%" + std::wstring(258, L'a'), L""},     // one too many
    };
    for (const auto& row : cases)
    {
        SCOPED_TRACE(testing::PrintToString(row.m_stored));
        ASSERT_TRUE(write(row.m_type, row.m_stored, 1));
        std::wstring expected = row.m_expanded == nullptr ? std::wstring(257, L'a') + L"h\u00E9" : row.m_expanded;
        expected = expected.empty() ? row.m_stored : expected;
        EXPECT_EQ(registry->GetKeyString(L"t", true), expected.c_str());
        EXPECT_EQ(registry->GetKeyString(L"t", false), row.m_stored.c_str());
    }
}

TEST_F(RegUtil, SubKeysAreMadeByWritingOnly)
{
    const auto registry = Made(kBase, CRegUtil::kRead);
    EXPECT_FALSE(registry->DeleteValue(L"no", L"a"));
    EXPECT_TRUE(SubKeys(*registry).empty());
    EXPECT_EQ(ErrorOf(*registry, registry->WriteKeyInt(L"a", 1)), 5) << "no right to set values of the base";
    ASSERT_TRUE(registry->WriteSubKeyInt(L"Sub\\deep/er", L"a", static_cast<unsigned long>(-5)));
    EXPECT_EQ(registry->GetSubKeyInt(L"sub:DEEP:er", L"A", 0), -5);
    EXPECT_EQ(registry->GetSubKeyInt(L"sub", L"a", 3), 3);
    ASSERT_TRUE(registry->WriteSubKeyString(L"Sub", L"t", L"text"));
    EXPECT_EQ(registry->GetSubKeyString(L"Sub", L"t", L"default", false), L"text");
    EXPECT_EQ(registry->GetSubKeyInt(L"Sub", L"t", 3), 3) << "more than 4 bytes";
    ASSERT_TRUE(Made(L"Software\\Maker\\Program\\Sub")->WriteKeyBin(L"short", "\1\2\3", 3));
    EXPECT_EQ(registry->GetSubKeyInt(L"Sub", L"short", 9), 9) << "less than 4 bytes";
    EXPECT_EQ(registry->GetSubKeyString(L"Sub\\deep\\er", L"a", L"default", false), L"default") << "no text";
    EXPECT_TRUE(registry->DeleteValue(L"Sub", L"T"));
    EXPECT_EQ(ErrorOf(*registry, registry->DeleteValue(L"Sub", L"T")), 2);
    EXPECT_EQ(registry->GetSubKeyInt(L"other", L"a", 4), 4);
    EXPECT_EQ(registry->GetSubKeyString(L"other", L"a", L"default", false), L"default");
    EXPECT_FALSE(registry->DeleteValue(L"other", L"a"));
    wchar_t name[16];
    EXPECT_EQ(ErrorOf(*registry, registry->GetNextSubKeyName(name, 16)), 6) << "the base is closed between operations";
    EXPECT_EQ(SubKeys(*registry), std::vector<std::wstring>{L"Sub"}) << "in the first spelling";
}

TEST_F(RegUtil, KeysAreDeletedAloneOrAsAWhole)
{
    const auto registry = Made();
    ASSERT_TRUE(registry->WriteSubKeyInt(L"a\\b\\c", L"v", 1));
    CRegUtil below(kAll);
    ASSERT_TRUE(below.SetPath(L"Software\\Maker\\Program\\a\\b", false) && below.OpenBase(false));
    EXPECT_FALSE(registry->DeleteKey(nullptr, true));
    EXPECT_EQ(ErrorOf(*registry, registry->DeleteKey(L"a", false)), 5) << "there are keys below";
    EXPECT_TRUE(registry->DeleteKey(L"a\\b\\c", false)) << "values do not keep it";
    EXPECT_TRUE(registry->DeleteKey(L"A", true));
    EXPECT_EQ(ErrorOf(*registry, registry->DeleteKey(L"a", true)), 2);

    ASSERT_TRUE(registry->WriteSubKeyInt(L"a\\b", L"v", 1));
    EXPECT_EQ(ErrorOf(below, below.WriteKeyInt(L"w", 1)), 1018)
        << "another key of the name does not become that of the handle";
    EXPECT_EQ(ErrorOf(below, below.KeyExists(L"v")), 1018);
    CRegUtil root(kAll);
    EXPECT_FALSE(root.DeleteKey(L"", true)) << "roots stay";
}

TEST_F(RegUtil, EnumerationsLeaveNothingOutWhileNamesGo)
{
    const auto registry = Made();
    std::vector<std::wstring> all;
    for (int i = 0; i < 100; ++i)
    {
        all.push_back((i < 10 ? L"v0" : L"V") + std::to_wstring(i));
        ASSERT_TRUE(registry->WriteSubKeyInt(L"sub", all.back().c_str(), 1));
        ASSERT_TRUE(registry->WriteSubKeyInt(all.back().c_str(), L"x", 1));
    }
    EXPECT_EQ(SubKeys(*registry), [&] {
        auto names = all;
        names.insert(names.begin(), L"sub");
        return names;
    }());

    const auto other = Made();
    std::vector<std::wstring> seen;
    wchar_t name[16];
    ASSERT_TRUE(registry->StartValueSection(L"sub"));
    while (registry->GetNextValueName(name, 16))
    {
        seen.emplace_back(name);
        ASSERT_TRUE(other->DeleteValue(L"sub", name));
        ASSERT_TRUE(other->WriteSubKeyInt(L"sub", L"a new one in front", 1));
    }
    registry->EndValueSection();
    EXPECT_EQ(seen, all);

    seen.clear();
    ASSERT_TRUE(registry->StartSubKeyEnum());
    while (registry->GetNextSubKeyName(name, 16))
    {
        seen.emplace_back(name);
        ASSERT_TRUE(registry->DeleteKey(name, true)) << "the base is open, and takes operations";
    }
    EXPECT_FALSE(registry->GetNextSubKeyName(name, 16)) << "the end stays the end";
    registry->EndSubKeyEnum();
    all.insert(all.begin(), L"sub");
    EXPECT_EQ(seen, all);
    EXPECT_EQ(ErrorOf(*registry, registry->GetNextSubKeyName(name, 16)), 6) << "nothing is open";

    CRegUtil root(kAll);
    ASSERT_TRUE(root.SetPath(L"HKEY_USERS", false));
    for (const wchar_t* const key : {L"a", L"b", L"c"})
        ASSERT_TRUE(root.WriteSubKeyInt(key, L"x", 1));
    ASSERT_TRUE(root.StartSubKeyEnum());
    while (root.GetNextSubKeyName(name, 16))
        EXPECT_TRUE(root.DeleteKey(name, true));
    root.EndSubKeyEnum();
    EXPECT_TRUE(SubKeys(root).empty());
}

TEST_F(RegUtil, ABufferThatIsTooSmallGetsTheNameAtTheNextTry)
{
    const auto registry = Made();
    for (const wchar_t* const name : {L"abc", L"abcd", L"b"})
        ASSERT_TRUE(registry->WriteKeyInt(name, 1));
    wchar_t name[5] = {L'#'};
    ASSERT_TRUE(registry->StartValueSection(L""));
    EXPECT_TRUE(registry->GetNextValueName(name, 4));
    EXPECT_EQ(ErrorOf(*registry, registry->GetNextValueName(name, 4)), 234);
    EXPECT_EQ(std::wstring(name), L"abc") << "nothing was written";
    EXPECT_EQ(ErrorOf(*registry, registry->GetNextValueName(nullptr, 9)), 87);
    ASSERT_TRUE(Made()->DeleteValue(L"", L"abc")) << "the same name all the same";
    EXPECT_TRUE(registry->GetNextValueName(name, 5));
    EXPECT_EQ(std::wstring(name), L"abcd");
    registry->EndValueSection();
}

TEST_F(RegUtil, EachRightIsAskedFor)
{
    ASSERT_TRUE(Made()->WriteKeyInt(L"v", 1));
    const std::tuple<unsigned long, bool, bool, bool> cases[] = {
        {0x1, true, false, false},
        {0x2, false, true, false},
        {0x8, false, false, false},
        {0x9, true, false, true},
        {0xB, true, true, true},
        {CRegUtil::kRead, true, false, true},
        {CRegUtil::kReadWrite, true, true, true},
        {0x80000000, true, false, true},
        {0x10000000, true, true, true},
        {0x40000000, false, true, false},
    };
    for (const auto& [access, reads, writes, enumerates] : cases)
    {
        SCOPED_TRACE(access);
        const auto registry = Made(kBase, access);
        wchar_t name[16];
        unsigned long number = 0;
        EXPECT_EQ(registry->GetKeyInt(L"v", number), reads);
        EXPECT_EQ(registry->GetLastError(), reads ? 0 : 5);
        EXPECT_EQ(registry->WriteKeyInt(L"v", 1), writes);
        EXPECT_EQ(registry->GetLastError(), writes ? 0 : 5);
        EXPECT_EQ(registry->StartSubKeyEnum() &&
                      (registry->GetNextSubKeyName(name, 16), registry->GetLastError() == 259),
                  enumerates);
        registry->EndSubKeyEnum();
    }
}
TEST_F(RegUtil, NoKeyStaysOpenAlsoWhenMemoryIsShort)
{
    const auto closed = Made(); // between its operations
    ASSERT_TRUE(closed->WriteKeyInt(L"v", 1));
    CRegUtil first(kAll);
    ASSERT_TRUE(first.OpenBase(false));
    const unsigned allocations = FailEachAllocation([](FailingAllocations& failing) {
        CRegUtil registry(kAll);
        failing.Run([&] {
            unsigned long value = 0;
            registry.SetPath(L"HKEY_CURRENT_USER\\Software\\Maker\\Program", true);
            registry.GetKeyInt(L"v", value);
            registry.GetSubKeyInt(L"", L"v", 0);
            if (registry.OpenBase(false))
            {
                EXPECT_TRUE(registry.OpenBase(false)) << "open already";
            }
            registry.StartValueSection(L"");
            registry.EndValueSection();
        });
    });
    EXPECT_GT(allocations, 10U);
    // Handles are numbers in the order in which they were opened, none of which is used twice.
    tev::SettingsKey next = nullptr;
    ASSERT_EQ(tev::OpenSettingsKey(tev::RootKey(tev::kCurrentUser), L"", 1, next), 0U);
    int open = 0;
    for (auto number = std::uintptr_t{0xFFFFFFFF} + 1; number < reinterpret_cast<std::uintptr_t>(next); ++number)
        open += tev::CloseSettingsKey(reinterpret_cast<tev::SettingsKey>(number)) == 0 ? 1 : 0;
    EXPECT_EQ(open, 1) << "the first object's";
    tev::CloseSettingsKey(next);
    unsigned long value = 0;
    EXPECT_TRUE(Made()->GetKeyInt(L"v", value) && value == 1);
}
} // namespace
