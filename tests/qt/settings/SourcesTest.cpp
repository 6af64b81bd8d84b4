#include "qt/settings/EditHistory.h"
#include "tests/qt/settings/SettingsTesting.h"
#include "text/TextEncoding.h"

#include <filesystem>
#include <functional>

namespace
{
using namespace tev::browser;
using namespace tev::browser::test;
using testing::ElementsAre;

constexpr unsigned __int64 kAll = 1 << 20;
constexpr unsigned kAcme = 0x41434D45;

Place StorePlace(std::initializer_list<const wchar_t*> below = {})
{
    Place place{L"41434d4500000002"};
    place.insert(place.end(), below.begin(), below.end());
    return place;
}

ValueEdit Edit(const Place& place, const std::wstring& id, std::optional<Value> before, std::optional<Value> after)
{
    return {place, {{id, std::move(before), std::move(after), false}}};
}

TEST(PreferenceSource, ShowsStoresByTheirKeysAndStoresWithinThemAndValues)
{
    const PreferenceFolder folder;
    CCustomData within;
    within.SetInt(9, 4);
    CCustomData nested;
    nested.SetCustomData(0x50414745, within);
    nested.SetBool(2, 1);
    ASSERT_TRUE(folder.Save(kAcme, 2, [&](CCustomData& store) {
        store.SetInt(10, -5);
        store.SetCustomData(3, nested);
        store.SetString(2, L"Roof");
    }));
    ASSERT_TRUE(folder.Save(1, 2, [](CCustomData& store) { store.SetInt(1, 1); }));
    PreferenceSource source(folder.m_file);
    EXPECT_THAT(TextsOf(*source.ListNodes({})), ElementsAre(u"1 2", u"'ACME' 2+"));
    EXPECT_THAT(TextsOf(*source.ListNodes(StorePlace())), ElementsAre(u"3+"));
    EXPECT_THAT(TextsOf(*source.ListNodes(StorePlace({L"00000003"}))), ElementsAre(u"'PAGE'"));
    EXPECT_THAT(TextsOf(*source.ListValues(StorePlace())), ElementsAre(u"2", u"3", u"10"));
    EXPECT_THAT(TextsOf(*source.ListValues(StorePlace({L"00000003"}))), ElementsAre(u"2", u"'PAGE'"));
    const Reading text = source.Read(StorePlace(), L"00000002", kAll);
    EXPECT_EQ(TextValue(CCustomData::kStringW, QStringLiteral("Roof")), text.m_value);
    EXPECT_EQ(IntValue(CCustomData::kInt, 4),
              source.Read(StorePlace({L"00000003", L"50414745"}), L"00000009", kAll).m_value);
    EXPECT_FALSE(source.Read(StorePlace(), L"0000000b", kAll).m_isThere);
    const Reading large = source.Read(StorePlace(), L"00000002", 9);
    EXPECT_TRUE(large.m_isThere && !large.m_value && large.m_size == 10U) << "only its size";
    EXPECT_EQ(QStringLiteral("'ACME' 2 / 3 / 'PAGE'"), source.GetPlaceText(StorePlace({L"00000003", L"50414745"})));
    EXPECT_EQ(StorePlace().front(), source.ParseNodeId(QStringLiteral(" ACME, 0x2 ")));
    EXPECT_EQ(std::nullopt, source.ParseNodeId(QStringLiteral("ACME")));
    EXPECT_EQ(std::nullopt, source.ParseValueId(QStringLiteral("4294967296")));
}

TEST(PreferenceSource, DamageIsShownAndDroppedOnlyWithPermission)
{
    const PreferenceFolder folder;
    for (const unsigned key : {3U, 2U, 1U})
        ASSERT_TRUE(folder.Save(key, 7, [&](CCustomData& store) { store.SetUInt(1, key); }));
    QByteArray bytes = folder.Bytes();
    constexpr int kSecond = 4 + 8 + 8 + 20 + 16; // the records have one size
    bytes[kSecond + 8] = 'x';                    // its signature
    folder.Write(bytes);
    PreferenceSource source(folder.m_file);
    EXPECT_THAT(TextsOf(*source.ListNodes({})), ElementsAre(u"1 7", u"3 7", u"damaged, at offset 56!"));
    EXPECT_FALSE(source.GetFault().isEmpty());
    const Place damaged{L"@56"};
    Item item;
    ASSERT_TRUE(source.ListValues(damaged)->Next(item));
    const Reading reading = source.Read(damaged, item.m_id, kAll);
    ASSERT_TRUE(reading.m_value && !reading.m_fault.isEmpty());
    const QByteArray record = bytes.mid(kSecond, 52);
    EXPECT_EQ(Bytes(record.begin(), record.end()), reading.m_value->m_data);
    EXPECT_FALSE(source.WhyReadOnly(damaged).isEmpty());
    const ValueEdit edit =
        Edit({L"0000000100000007"}, L"00000001", IntValue(CCustomData::kUInt, 1), IntValue(CCustomData::kUInt, 9));
    EXPECT_EQ(Outcome::kDamaged, source.Apply(edit).m_outcome);
    EXPECT_EQ(bytes, folder.Bytes());
    source.PermitRepair();
    EXPECT_EQ(Outcome::kDone, source.Apply(edit).m_outcome);
    EXPECT_EQ(bytes, PreferenceFolder::BytesOf(folder.m_file + QStringLiteral(".damaged")));
    EXPECT_THAT(TextsOf(*source.ListNodes({})), ElementsAre(u"1 7", u"3 7"));
    EXPECT_EQ(Outcome::kDone,
              source.Apply(Edit({L"0000000300000007"}, L"00000001", IntValue(CCustomData::kUInt, 3), {})).m_outcome)
        << "no permission is needed any more";
}

TEST(PreferenceSource, NamesOfFilesMayHoldAnyBytes)
{
    const PreferenceFolder folder;
    ASSERT_TRUE(folder.Save(kAcme, 2, [](CCustomData& store) { store.SetInt(1, 5); }));
    folder.Write(folder.Bytes() + "behind");
    const std::string path = folder.m_folder.filePath(QStringLiteral("a")).toStdString() + "\xff";
    std::filesystem::copy_file(folder.m_file.toStdString(), path);
    CXTString<wchar_t> decoded;
    XDecodePath(path.c_str(), decoded);
    PreferenceSource source(XToQString(decoded));
    EXPECT_THAT(TextsOf(*source.ListNodes({})), ElementsAre(u"'ACME' 2", u"damaged, at offset 56!"));
    const ValueEdit edit = Edit(StorePlace(), L"00000001", IntValue(CCustomData::kInt, 5), {});
    EXPECT_EQ(Outcome::kDamaged, source.Apply(edit).m_outcome) << "it is not repaired without permission";
    source.PermitRepair();
    EXPECT_EQ(Outcome::kDone, source.Apply(edit).m_outcome);
    EXPECT_TRUE(std::filesystem::remove(path + ".damaged") && std::filesystem::remove(path));
}

TEST(PreferenceSource, AFileThatCannotBeReadIsNotDamaged)
{
    const QTemporaryDir folder;
    PreferenceSource missing(folder.filePath(QStringLiteral("none")));
    EXPECT_THAT(TextsOf(*missing.ListNodes({})), ElementsAre());
    EXPECT_FALSE(missing.GetFault().isEmpty());
    EXPECT_EQ(Outcome::kDone,
              missing.Apply(Edit(StorePlace(), L"00000001", {}, IntValue(CCustomData::kInt, 1))).m_outcome)
        << "saving makes it";
    PreferenceSource inFolder(folder.path());
    EXPECT_THAT(TextsOf(*inFolder.ListNodes({})), ElementsAre());
    EXPECT_EQ(Outcome::kFailed,
              inFolder.Apply(Edit(StorePlace(), L"00000001", {}, IntValue(CCustomData::kInt, 1))).m_outcome);
}

/// A place where a value can be, and how another program changes it.
struct Target
{
    std::unique_ptr<SettingsSource> m_source;
    Place m_place;
    std::wstring m_id;
    unsigned m_kind;
    std::function<void(std::optional<int>)> m_set;
    std::function<std::optional<int>()> m_get;
};

class SettingsEdits : public testing::TestWithParam<int>
{
protected:
    Target MakeTarget()
    {
        const bool isNested = GetParam() == 1;
        if (GetParam() == 2)
        {
            return {std::make_unique<RegistrySource>(),
                    m_key.GetPlace(),
                    L"n",
                    CRegUtil::kTypeInt,
                    [this](std::optional<int> number) {
                        CRegUtil registry = m_key.Open();
                        if (number)
                            registry.WriteKeyInt(L"N", static_cast<unsigned long>(*number));
                        else
                            registry.DeleteValue(L"", L"N");
                    },
                    [this]() -> std::optional<int> {
                        CRegUtil registry = m_key.Open();
                        return registry.KeyExists(L"n") ? std::optional(registry.GetSubKeyInt(L"", L"n", 0))
                                                        : std::nullopt;
                    }};
        }
        const auto set = [this, isNested](std::optional<int> number) {
            m_folder.Save(kAcme, 2, [&](CCustomData& store) {
                CCustomData within;
                store.GetCustomData(3, within);
                CCustomData& changed = isNested ? within : store;
                changed.SetInt(8, 88);
                if (number)
                    changed.SetInt(5, *number);
                else
                    changed.RemoveCustom(5);
                if (isNested)
                    store.SetCustomData(3, within);
            });
        };
        const auto get = [this, isNested]() -> std::optional<int> {
            const CCustomData store = m_folder.Load(kAcme, 2);
            CCustomData within;
            store.GetCustomData(3, within);
            int number = 0;
            return (isNested ? within : store).GetInt(5, number, 0) ? std::optional(number) : std::nullopt;
        };
        return {std::make_unique<PreferenceSource>(m_folder.m_file),
                isNested ? StorePlace({L"00000003"}) : StorePlace(),
                L"00000005",
                CCustomData::kInt,
                set,
                get};
    }

    Result Do(std::optional<int> before, std::optional<int> after)
    {
        return m_history.Do(QStringLiteral("edit"),
                            {Edit(m_target.m_place, m_target.m_id, ValueOf(before), ValueOf(after))});
    }
    std::optional<Value> ValueOf(std::optional<int> number) const
    {
        return number ? std::optional(IntValue(m_target.m_kind, static_cast<unsigned char>(*number))) : std::nullopt;
    }

    PreferenceFolder m_folder;
    RegistryKey m_key{L"Software\\EditsTest"};
    Target m_target = MakeTarget();
    EditHistory m_history{*m_target.m_source};
};

TEST_P(SettingsEdits, LoseNoChangeOfAnotherProgram)
{
    const std::optional<int> none;
    struct
    {
        std::optional<int> there, seen, after;
    } const cases[] = {{1, 1, 2}, {1, 3, 2}, {none, 3, 2}, {none, none, 2}, {1, none, 2}, {1, 1, none}, {1, 3, none}};
    for (const auto& row : cases)
    {
        SCOPED_TRACE(&row - cases);
        m_target.m_set(row.there);
        const bool isSame = row.there == row.seen;
        EXPECT_EQ(isSame ? Outcome::kDone : Outcome::kChanged, Do(row.seen, row.after).m_outcome);
        EXPECT_EQ(isSame ? row.after : row.there, m_target.m_get());
    }
}

TEST_P(SettingsEdits, AreUndoneAndRedoneWhileTheValueIsTheirs)
{
    m_target.m_set(1);
    ASSERT_EQ(Outcome::kDone, Do(1, 2).m_outcome);
    ASSERT_EQ(Outcome::kDone, Do(2, {}).m_outcome);
    ASSERT_EQ(Outcome::kDone, Do({}, 3).m_outcome);
    for (const std::optional<int>& expected :
         {std::optional<int>(), std::optional(2), std::optional(1), std::optional(1)})
    {
        EXPECT_EQ(Outcome::kDone, m_history.Undo().m_outcome);
        EXPECT_EQ(expected, m_target.m_get());
    }
    EXPECT_EQ(Outcome::kDone, m_history.Redo().m_outcome);
    EXPECT_EQ(2, m_target.m_get());
    m_target.m_set(7);
    EXPECT_EQ(Outcome::kChanged, m_history.Redo().m_outcome) << "deletes the 2";
    EXPECT_EQ(7, m_target.m_get());
    EXPECT_EQ(2, m_history.GetStack().count()) << "it is dropped";
    EXPECT_EQ(Outcome::kChanged, m_history.Undo().m_outcome) << "of 1 to 2";
    EXPECT_EQ(7, m_target.m_get());
    EXPECT_EQ(1, m_history.GetStack().count());
    EXPECT_EQ(Outcome::kDone, m_history.Undo().m_outcome) << "nothing is left to undo";
    EXPECT_EQ(7, m_target.m_get());
}

INSTANTIATE_TEST_SUITE_P(, SettingsEdits, testing::Values(0, 1, 2));

TEST(NodeEdits, OfStoresAreMadeDeletedAndUndone)
{
    const PreferenceFolder folder;
    ASSERT_TRUE(folder.Save(kAcme, 2, [](CCustomData& store) { store.SetInt(1, 5); }));
    PreferenceSource source(folder.m_file);
    EditHistory history(source);
    QString reason;
    const std::optional<Bytes> before = source.Snapshot(StorePlace(), reason);
    ASSERT_TRUE(before) << reason.toStdString();
    EXPECT_EQ(Outcome::kDone, history.Do({}, {NodeEdit{StorePlace(), before, {}, false}}).m_outcome);
    EXPECT_THAT(TextsOf(*source.ListNodes({})), ElementsAre());
    EXPECT_EQ(Outcome::kDone, history.Undo().m_outcome);
    EXPECT_TRUE(folder.Load(kAcme, 2).HasData(1));
    folder.Save(kAcme, 2, [](CCustomData& store) { store.SetInt(1, 6); });
    EXPECT_EQ(Outcome::kChanged, history.Redo().m_outcome);
    EXPECT_TRUE(folder.Load(kAcme, 2).HasData(1));
    // The first of two that are made together is taken back when the second fails.
    const Edits both{NodeEdit{{L"0000000100000001"}, {}, source.EmptySnapshot({}), false},
                     NodeEdit{StorePlace(), {}, source.EmptySnapshot({}), false}};
    EXPECT_EQ(Outcome::kChanged, history.Do({}, both).m_outcome);
    EXPECT_THAT(TextsOf(*source.ListNodes({})), ElementsAre(u"'ACME' 2"));
}

TEST(NodeEdits, OfKeysAreMadeDeletedAndUndone)
{
    const RegistryKey key(L"Software\\NodeTest");
    ASSERT_TRUE(key.Open().WriteSubKeyString(L"A\\B", L"odd \" name", L"text"));
    RegistrySource source;
    EditHistory history(source);
    Place place = key.GetPlace();
    EXPECT_THAT(TextsOf(*source.ListNodes(place)), ElementsAre(u"A+"));
    place.push_back(L"A");
    QString reason;
    EXPECT_EQ(Outcome::kDone, history.Do({}, {NodeEdit{place, source.Snapshot(place, reason), {}, false}}).m_outcome);
    EXPECT_THAT(TextsOf(*source.ListNodes(key.GetPlace())), ElementsAre());
    EXPECT_EQ(Outcome::kDone, history.Undo().m_outcome);
    EXPECT_STREQ(L"text", key.Open().GetSubKeyString(L"A\\B", L"odd \" name", L"", false));
    key.Open().WriteSubKeyInt(L"A\\B", L"new", 1);
    EXPECT_EQ(Outcome::kChanged, history.Redo().m_outcome);
    EXPECT_EQ(1, key.Open().GetSubKeyInt(L"A\\B", L"new", 0));
    place.back() = L"made";
    EXPECT_EQ(Outcome::kDone, history.Do({}, {NodeEdit{place, {}, source.EmptySnapshot(place), false}}).m_outcome);
    EXPECT_THAT(TextsOf(*source.ListNodes(key.GetPlace())), ElementsAre(u"A+", u"made"));
    EXPECT_NE(Outcome::kDone, history.Do({}, {NodeEdit{place, {}, source.EmptySnapshot(place), false}}).m_outcome);
    place.back() = L"odd/name:with";
    const wchar_t* names[] = {L"Software", L"NodeTest", L"odd/name:with"};
    CRegUtil odd(CRegUtil::kReadWrite);
    ASSERT_TRUE(odd.SetPath(names, 3, CRegUtil::StrToRootKey(L"HKEY_CURRENT_USER"), true) && odd.WriteKeyInt(L"v", 2));
    EXPECT_EQ(IntValue(CRegUtil::kTypeInt, 2), source.Read(place, L"v", kAll).m_value);
    EXPECT_EQ(std::nullopt, source.Snapshot(place, reason)) << "the text form would name another key";
}

TEST(RegistrySource, ShowsRootsKeysAndValuesOfEveryType)
{
    const RegistryKey key(L"Software\\TypesTest");
    CRegUtil registry = key.Open();
    ASSERT_TRUE(registry.WriteKeyString(L"", L"the default") && registry.WriteKeyInt(L"int", 7) &&
                registry.WriteRegNoneKey(L"none") && registry.WriteValue(L"odd", 0x12345678, "ab", 2));
    RegistrySource source;
    EXPECT_THAT(TextsOf(*source.ListNodes({})),
                ElementsAre(u"HKEY_CLASSES_ROOT", u"HKEY_CURRENT_USER+", u"HKEY_LOCAL_MACHINE", u"HKEY_USERS",
                            u"HKEY_CURRENT_CONFIG", u"HKEY_DYN_DATA"));
    EXPECT_THAT(TextsOf(*source.ListValues(key.GetPlace())), ElementsAre(u"(default)", u"int", u"none", u"odd"));
    EXPECT_EQ(TextValue(CRegUtil::kTypeString, QStringLiteral("the default")),
              source.Read(key.GetPlace(), L"", kAll).m_value);
    EXPECT_EQ((Value{0x12345678, {'a', 'b'}}), source.Read(key.GetPlace(), L"odd", kAll).m_value);
    EXPECT_FALSE(source.Read(key.GetPlace(), L"missing", kAll).m_isThere);
    const Reading large = source.Read(key.GetPlace(), L"odd", 1);
    EXPECT_TRUE(large.m_isThere && !large.m_value && large.m_size == 2U);
    // A key that was deleted and made again while it was open.
    registry.DeleteKey(L"", true);
    EXPECT_FALSE(source.Read(key.GetPlace(), L"int", kAll).m_isThere);
    ASSERT_TRUE(registry.SetPath(L"Software\\TypesTest", true) && registry.WriteKeyInt(L"int", 8));
    EXPECT_EQ(IntValue(CRegUtil::kTypeInt, 8), source.Read(key.GetPlace(), L"int", kAll).m_value);
}
} // namespace
