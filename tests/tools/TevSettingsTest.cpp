#include "settings/CCustomData.h"
#include "tests/support/TempFolder.h"
#include "tests/tools/TevRunner.h"
#include "values/CXTime.h"

namespace
{
using namespace tev::test;

class TevSettings : public testing::Test
{
protected:
    TevResult Run(const char* command, std::vector<std::string> words) const
    {
        std::vector<std::string> all = {"settings", command, m_folder.Path("a.prefs")};
        all.insert(all.end(), words.begin(), words.end());
        return RunTev(all);
    }

    TempFolder m_folder;
};

TEST_F(TevSettings, ValuesThatAreSetComeBack)
{
    const std::tuple<const char*, std::vector<std::string>, const char*, const char*, int> cases[] = {
        {"int", {"-2147483648"}, "-2147483648", "-2147483648", 4},
        {"uint", {"4294967295"}, "4294967295", "4294967295", 4},
        {"long", {"-1"}, "-1", "-1", 4},
        {"ulong", {"4294967295"}, "4294967295", "4294967295", 4},
        {"int64", {"-9223372036854775808"}, "-9223372036854775808", "-9223372036854775808", 8},
        {"uint64", {"18446744073709551615"}, "18446744073709551615", "18446744073709551615", 8},
        {"char", {"-128"}, "-128", "-128", 1},
        {"uchar", {"255"}, "255", "255", 1},
        {"bool", {"true"}, "true", "true", 4},
        {"float", {"0.1"}, "0.1", "0.1", 4},
        {"double", {"-inf"}, "-inf", "\"-inf\"", 8},
        {"text", {"Gr\xC3\xBC\xC3\x9F\x65 \""}, "Gr\xC3\xBC\xC3\x9F\x65 \"", "\"Gr\xC3\xBC\xC3\x9F\x65 \\\"\"", 16},
        {"ansi", {""}, "", "\"\"", 1},
        {"list", {"a", "b c"}, "a\nb c", "[\"a\", \"b c\"]", 0},
        {"time", {"-5"}, "-5", "-5", 8},
        {"binary", {"00ff0A"}, "00ff0a", "\"00ff0a\"", 3},
    };
    for (const auto& [kind, values, text, json, size] : cases)
    {
        std::vector<std::string> words = {"1", "0x10", "7", kind, "--"};
        words.insert(words.end(), values.begin(), values.end());
        const TevResult set = Run("set", words);
        ASSERT_EQ(set.m_exitCode, 0) << kind << set.m_error;
        EXPECT_EQ(Run("get", {"1", "16", "7"}).m_output, text + "\n"s) << kind;
        EXPECT_EQ(Run("get", {"1", "16", "7", "--json"}).m_output, json + "\n"s) << kind;
        if (size != 0)
        {
            EXPECT_EQ(Run("show", {"1", "16"}).m_output,
                      "7\t"s + kind + "\t" + std::to_string(size) + "\t" + json + "\n");
        }
    }
}

TEST_F(TevSettings, WhatIsNoValueOfTheKindIsRefused)
{
    const std::pair<const char*, const char*> cases[] = {
        {"int", "2147483648"},   {"uint", "-1"},   {"char", "128"}, {"uchar", "256"},
        {"ulong", "4294967296"}, {"int", "5x"},    {"int", ""},     {"bool", "1"},
        {"binary", "abc"},       {"binary", "0g"}, {"store", "1"},  {"none", "1"},
    };
    for (const auto& [kind, value] : cases)
        EXPECT_EQ(Run("set", {"1", "1", "1", kind, "--", value}).m_exitCode, 2) << kind << " " << value;
    EXPECT_EQ(Run("set", {"1", "1", "1", "int", "1", "2"}).m_exitCode, 2);
    EXPECT_THAT(Run("set", {"1", "1", "1", "frog", "1"}).m_error, StartsWith("tev: frog: is no kind that can be set"));
    EXPECT_EQ(Run("set", {"1", "4294967296", "1", "int", "1"}).m_exitCode, 2);
    EXPECT_FALSE(m_folder.Exists("a.prefs"));
}

TEST_F(TevSettings, StoresAreListedShownCopiedAndRemoved)
{
    CCustomData inner;
    inner.SetInt(5, 6);
    CCustomData store;
    store.SetCustomData(1, inner);
    const short array[] = {1, 2};
    store.SetArray(2, array, sizeof(short), 2);
    CCustomData strange;
    struct tm time = {};
    time.tm_year = time.tm_mon = std::numeric_limits<int>::max();
    strange.SetUTCTime(1, time);
    ASSERT_TRUE(strange.SaveToPrefs(m_folder.WidePath("strange").c_str(), 1, 1));
    EXPECT_EQ(RunTev({"settings", "get", m_folder.Path("strange"), "1", "1", "1"}).m_output,
              "2147485547-2147483648-00T00:00:00Z\n");

    ASSERT_TRUE(store.SaveToPrefs(m_folder.WidePath("a.prefs").c_str(), 3, 4));
    EXPECT_EQ(Run("set", {"1", "2", "9", "int", "1"}).m_exitCode, 0);

    EXPECT_EQ(Run("show", {"3", "4"}).m_output,
              "1\tstore\t16\t1 value\n    5\tint\t4\t6\n2\tarray\t8\t\"0200000001000200\"\n");
    EXPECT_EQ(Run("show", {"3", "4", "--json"}).m_output,
              "{\"keys\": [3, 4], \"values\": [{\"id\": 1, \"kind\": \"store\", \"size\": 16, \"value\": [{\"id\": 5, "
              "\"kind\": "
              "\"int\", \"size\": 4, \"value\": 6}]}, {\"id\": 2, \"kind\": \"array\", \"size\": 8, \"value\": "
              "\"0200000001000200\"}]}\n");
    // keys, signature, total, header, and the chunks
    EXPECT_EQ(Run("list", {}).m_output, "1\t2\t52\t1\n3\t4\t84\t2\n");
    EXPECT_EQ(Run("copy", {"3", "4", m_folder.Path("b.prefs"), "5", "6"}).m_exitCode, 0);
    CCustomData copy;
    ASSERT_TRUE(copy.LoadFromPrefs(m_folder.WidePath("b.prefs").c_str(), 5, 6, false));
    EXPECT_TRUE(copy.IsEqual(store));

    // Keys and identifiers of four letters
    EXPECT_EQ(Run("set", {"ACME", "0x10", "Wdth", "int", "5"}).m_exitCode, 0);
    EXPECT_EQ(Run("get", {"1094929733", "16", "1466201192"}).m_output, "5\n");
    EXPECT_EQ(Run("remove", {"ACME", "16"}).m_exitCode, 0);
    for (const char* key : {"ACM", "ACMES", "1ABC", "0x", "-1", "4294967296", ""})
        EXPECT_EQ(Run("get", {key, "1", "1"}).m_exitCode, 2) << key;

    EXPECT_EQ(Run("remove", {"3", "4", "1"}).m_exitCode, 0);
    EXPECT_EQ(Run("remove", {"3", "4", "1"}).m_exitCode, 1);
    EXPECT_EQ(Run("list", {"--format", "table"}).m_output, "KEY 1  KEY 2  BYTES  VALUES\n    3      4     56       1\n"
                                                           "    1      2     52       1\n");
    EXPECT_EQ(Run("remove", {"3", "4"}).m_exitCode, 0);
    EXPECT_EQ(Run("list", {}).m_output, "1\t2\t52\t1\n");
    EXPECT_EQ(Run("show", {"3", "4"}).m_exitCode, 1);
    EXPECT_EQ(Run("check", {}).m_output, m_folder.Path("a.prefs").string() + ": sound, 1 store\n");
}

TEST_F(TevSettings, CheckTellsWhereAFileIsDamaged)
{
    EXPECT_EQ(Run("set", {"1", "2", "9", "int", "1"}).m_exitCode, 0);
    const std::string sound = m_folder.ReadFile("a.prefs");
    m_folder.WriteFile("a.prefs", sound + "junk");
    EXPECT_THAT(Run("check", {}), FieldsAre(1, m_folder.Path("a.prefs").string() + ": damaged, 1 store\n",
                                            HasSubstr("4 bytes at offset 0x38 are no store")));
    EXPECT_EQ(Run("list", {}).m_output, "1\t2\t52\t1\n");

    m_folder.WriteFile("a.prefs", "\2" + sound.substr(1));
    EXPECT_THAT(Run("check", {}).m_error, HasSubstr("the number of stores"));
    m_folder.WriteFile("a.prefs", sound.substr(0, sound.size() - 1));
    EXPECT_EQ(Run("check", {}).m_exitCode, 1);
    EXPECT_EQ(Run("set", {"1", "2", "8", "int", "1"}).m_exitCode, 1) << "what cannot be read must not be replaced";
    EXPECT_EQ(m_folder.ReadFile("a.prefs"), sound.substr(0, sound.size() - 1));
    EXPECT_THAT(RunTev({"settings", "check", m_folder.Path("none")}), FieldsAre(1, _, HasSubstr("none")));
}
} // namespace
