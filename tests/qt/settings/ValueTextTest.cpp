#include "qt/settings/ValueText.h"
#include "qt/settings/ListSteps.h"
#include "tests/qt/settings/SettingsTesting.h"
#include "values/CXTime.h"

#include <functional>
#include <random>

namespace
{
using namespace tev::browser;
using namespace tev::browser::test;
using Store = CCustomData;

Value OfStore(unsigned kind, const std::function<void(CCustomData& store)>& set)
{
    CCustomData store;
    set(store);
    unsigned size = 0;
    const auto* const data = static_cast<const unsigned char*>(store.GetCustomPtr(1, size));
    return {kind, Bytes(data, data + size)};
}

// The bytes are those that the library makes of the values.
TEST(ValueText, IsEditedInTheFormOfItsKind)
{
    const PreferenceSource source(QStringLiteral("none"));
    const struct
    {
        Value m_value;
        QString m_text;
        QString m_changed; // what is typed in its place
        Value m_result;    // of it; empty where it is refused
    } cases[] = {
        {OfStore(Store::kInt, [](CCustomData& s) { s.SetInt(1, -7); }), QStringLiteral("-7"), QStringLiteral(" 0x10 "),
         OfStore(Store::kInt, [](CCustomData& s) { s.SetInt(1, 16); })},
        {OfStore(Store::kInt, [](CCustomData& s) { s.SetInt(1, 7); }),
         QStringLiteral("7"),
         QStringLiteral("2147483648"),
         {}},
        {OfStore(Store::kUInt, [](CCustomData& s) { s.SetUInt(1, 4000000000U); }),
         QStringLiteral("4000000000"),
         QStringLiteral("-1"),
         {}},
        {OfStore(Store::kChar, [](CCustomData& s) { s.SetChar(1, -128); }),
         QStringLiteral("-128"),
         QStringLiteral("-129"),
         {}},
        {OfStore(Store::kUChar, [](CCustomData& s) { s.SetUChar(1, 255); }),
         QStringLiteral("255"),
         QStringLiteral("256"),
         {}},
        {OfStore(Store::kULongInt, [](CCustomData& s) { s.SetULongInt(1, ~0ULL); }),
         QStringLiteral("18446744073709551615"), QStringLiteral("1"),
         OfStore(Store::kULongInt, [](CCustomData& s) { s.SetULongInt(1, 1); })},
        {OfStore(Store::kLongInt, [](CCustomData& s) { s.SetLongInt(1, -1); }),
         QStringLiteral("-1"),
         QStringLiteral("9223372036854775808"),
         {}},
        {OfStore(Store::kBool, [](CCustomData& s) { s.SetBool(1, 1); }), QStringLiteral("true"),
         QStringLiteral("false"), OfStore(Store::kBool, [](CCustomData& s) { s.SetBool(1, 0); })},
        {OfStore(Store::kFloat, [](CCustomData& s) { s.SetFloat(1, 0.1F); }),
         QStringLiteral("0.1"),
         QStringLiteral("1e39"),
         {}},
        {OfStore(Store::kDouble, [](CCustomData& s) { s.SetDouble(1, -0.1); }), QStringLiteral("-0.1"),
         QStringLiteral("1e300"), OfStore(Store::kDouble, [](CCustomData& s) { s.SetDouble(1, 1e300); })},
        {OfStore(Store::kXTime, [](CCustomData& s) { s.SetXTime(1, CXTime(951782400)); }),
         QStringLiteral("2000-02-29T00:00:00Z"), QStringLiteral("-5"),
         OfStore(Store::kXTime, [](CCustomData& s) { s.SetXTime(1, CXTime(-5)); })},
        {OfStore(Store::kStringW, [](CCustomData& s) { s.SetString(1, L"C:\\a\n\U0001F600"); }),
         QStringLiteral("C:\\a\n\U0001F600"), QStringLiteral("\u00e9"),
         OfStore(Store::kStringW, [](CCustomData& s) { s.SetString(1, L"\u00e9"); })},
        {OfStore(Store::kStringA, [](CCustomData& s) { s.SetStringA(1, "\xC3\xA9"); }), QStringLiteral("\u00e9"),
         QStringLiteral("ab"), OfStore(Store::kStringA, [](CCustomData& s) { s.SetStringA(1, "ab"); })},
        {OfStore(Store::kStringList,
                 [](CCustomData& s) {
                     s.SetStringList(1, {L"a", L"", L"b"});
                 }),
         QStringLiteral("a\n\nb"), QStringLiteral("c\n"),
         OfStore(Store::kStringList,
                 [](CCustomData& s) {
                     s.SetStringList(1, {L"c", L""});
                 })},
        {OfStore(Store::kBinary, [](CCustomData& s) { s.SetBinary(1, "\x01\xff", 2); }),
         QStringLiteral("01 ff"),
         QStringLiteral("0AfF 1"),
         {}},
        {OfStore(Store::kBinary, [](CCustomData& s) { s.SetBinary(1, "\x01\xff", 2); }), QStringLiteral("01 ff"),
         QStringLiteral("0AfF\n 10"),
         OfStore(Store::kBinary, [](CCustomData& s) { s.SetBinary(1, "\x0a\xff\x10", 3); })},
    };
    for (const auto& row : cases)
    {
        SCOPED_TRACE(row.m_text.toStdString());
        EditText edit = ToEditText(source, row.m_value);
        EXPECT_EQ(row.m_text, edit.m_text);
        EXPECT_FALSE(edit.m_isEscaped);
        edit.m_text = row.m_changed;
        QString reason;
        const std::optional<Bytes> changed = FromEditText(FindKind(source, row.m_value.m_kind), edit, reason);
        EXPECT_EQ(row.m_result.m_kind == 0 ? std::nullopt : std::optional(row.m_result.m_data), changed);
        EXPECT_EQ(row.m_result.m_kind == 0, !reason.isEmpty());
    }
}

TEST(ValueText, WhatHasNotTheFormOfItsKindIsEditedAsBytesAndNothingIsLost)
{
    const PreferenceSource store(QStringLiteral("none"));
    const RegistrySource registry;
    const struct
    {
        const SettingsSource& m_source;
        Value m_value;
        Form m_form;
        QString m_text;
    } cases[] = {
        {store, {Store::kInt, {1, 2, 3}}, Form::kBytes, QStringLiteral("01 02 03")},
        {store, {Store::kBool, {2, 0, 0, 0}}, Form::kBytes, QStringLiteral("02 00 00 00")},
        {store,
         {Store::kFloat, {1, 0, 0xC0, 0x7F}},
         Form::kBytes,
         QStringLiteral("01 00 c0 7f")},                                             // a NaN that is not the usual one
        {store, {Store::kStringW, {'a', 0}}, Form::kBytes, QStringLiteral("61 00")}, // no terminator
        {store, {Store::kStringW, {0, 0xD8, '\\', 0, 0, 0}}, Form::kText, QStringLiteral("\\ud800\\\\")},
        {store, {Store::kStringW, {0, 0, 'b', 0, 0, 0}}, Form::kText, QStringLiteral("\\u0000b")},
        {store, {Store::kStringW, {0xA0, 0, 0x28, 0x20, 0, 0}}, Form::kText, QStringLiteral("\\u00a0\\u2028")},
        {store, {Store::kStringA, {0xFF, 0}}, Form::kBytes, QStringLiteral("ff 00")},
        {store, {Store::kStringList, {1, 0, 0, 0, 1, 0, 0, 0, '\n', 0}}, Form::kTextList, QStringLiteral("\\u000a")},
        {store,
         {Store::kStringList, {9, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}},
         Form::kBytes,
         QStringLiteral("09 00 00 00 ff ff ff ff")},
        {store, {0x20202020, {5}}, Form::kBytes, QStringLiteral("05")},
        {registry,
         {CRegUtil::kTypeMultiString, {'a', 0, 0, 0, 'b', 0, 0, 0, 0, 0}},
         Form::kMultiText,
         QStringLiteral("a\nb")},
        {registry, {CRegUtil::kTypeMultiString, {0, 0}}, Form::kMultiText, QString()},
        {registry, {CRegUtil::kTypeMultiString, {'a', 0, 0, 0}}, Form::kBytes, QStringLiteral("61 00 00 00")},
        {registry, {CRegUtil::kTypeInt, {1, 0, 0, 0, 0}}, Form::kBytes, QStringLiteral("01 00 00 00 00")},
        {registry, {77, {}}, Form::kBytes, QString()},
    };
    for (const auto& row : cases)
    {
        SCOPED_TRACE(&row - cases);
        const EditText edit = ToEditText(row.m_source, row.m_value);
        EXPECT_EQ(row.m_form, edit.m_form);
        EXPECT_EQ(row.m_text, edit.m_text);
        QString reason;
        EXPECT_EQ(row.m_value.m_data, FromEditText(FindKind(row.m_source, row.m_value.m_kind), edit, reason));
    }
}

TEST(ValueText, EveryValueComesBackAndIsShownInALine)
{
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const PreferenceSource store(QStringLiteral("none"));
    const RegistrySource registry;
    for (int round = 0; round < 4000; ++round)
    {
        const SettingsSource& source = round % 2 == 0 ? static_cast<const SettingsSource&>(store) : registry;
        const std::vector<Kind>& kinds = source.GetKinds();
        Value value{kinds[random() % kinds.size()].m_code, Bytes(random() % 40)};
        const unsigned range = random() % 2 == 0 ? 256 : 4;
        for (unsigned char& byte : value.m_data)
            byte = static_cast<unsigned char>(random() % range);
        QString reason;
        EXPECT_EQ(value.m_data, FromEditText(FindKind(source, value.m_kind), ToEditText(source, value), reason));
        EXPECT_FALSE(NeedsEscapes(ValueLine(source, value)));
    }
}

TEST(ListSteps, MakeTheOldListTheNewOneAndKeepWhatStays)
{
    const struct
    {
        std::wstring m_before, m_after; // a letter for each row
        std::size_t m_changes;
    } cases[] = {
        {L"", L"", 0},     {L"", L"abc", 1},     {L"abc", L"", 1}, {L"abcdef", L"abcdef", 0}, {L"abcdef", L"acxfyz", 4},
        {L"ab", L"ba", 2}, {L"bcd", L"abcde", 2}};
    for (const auto& row : cases)
    {
        std::vector<std::wstring> rows;
        for (const wchar_t letter : row.m_before)
            rows.emplace_back(1, letter);
        std::vector<Item> after;
        for (const wchar_t letter : row.m_after)
            after.push_back({std::wstring(1, letter), {}, {}, false});
        const ListSteps steps = StepsBetween(rows, after);
        EXPECT_EQ(row.m_changes, steps.m_removed.size() + steps.m_inserted.size());
        for (const RowRange& range : steps.m_removed)
            rows.erase(rows.begin() + range.m_first, rows.begin() + range.m_last + 1);
        for (const RowRange& range : steps.m_inserted)
        {
            for (int i = range.m_first; i <= range.m_last; ++i)
                rows.insert(rows.begin() + i, after[static_cast<std::size_t>(i)].m_id);
        }
        std::wstring result;
        for (const std::wstring& id : rows)
            result += id;
        EXPECT_EQ(row.m_after, result);
    }
}
} // namespace
