#include "tests/support/TestRegistry.h"
#include "tests/tools/TevRunner.h"

namespace
{
using namespace tev::test;

class TevRegistry : public testing::Test
{
protected:
    static TevResult Run(std::vector<std::string> words, const std::string& input = {})
    {
        words.insert(words.begin(), "registry");
        return RunTev(words, input);
    }

    TestRegistry m_registry;
};

TEST_F(TevRegistry, ValuesThatAreSetComeBack)
{
    const std::tuple<std::string, std::vector<std::string>, const char*, const char*> cases[] = {
        {"string", {"caf\xC3\xA9 \"x\""}, "caf\xC3\xA9 \"x\"", "\"caf\xC3\xA9 \\\"x\\\"\""},
        {"expand", {"%HOME%"}, "%HOME%", "\"%HOME%\""},
        {"multi", {"a", "b c"}, "a\nb c", "[\"a\", \"b c\"]"},
        {"multi", {}, "", "[]"},
        {"int", {"-1"}, "4294967295", "4294967295"},
        {"int", {"0xff"}, "255", "255"},
        {"int64", {"18446744073709551615"}, "18446744073709551615", "18446744073709551615"},
        {"binary", {"00fF"}, "00ff", "\"00ff\""},
        {"none", {}, "", "\"\""},
    };
    for (const auto& [type, values, text, json] : cases)
    {
        SCOPED_TRACE(type + text);
        std::vector<std::string> words = {"set", "Software/P", "v", "--type", type, "--"};
        words.insert(words.end(), values.begin(), values.end());
        EXPECT_EQ(Run(words).m_error, "");
        EXPECT_EQ(Run({"get", "HKEY_CURRENT_USER\\software\\p", "V"}).m_output, text + "\n"s);
        EXPECT_EQ(Run({"get", "Software:P", "v", "--json"}).m_output, json + "\n"s);
    }
    EXPECT_TRUE(m_registry.m_folder.Exists("user.db"));
    EXPECT_FALSE(m_registry.m_folder.Exists("user.db-wal")) << "closed when the program ends";
}

TEST_F(TevRegistry, WhatCannotBeSetIsRefused)
{
    const std::vector<std::vector<std::string>> cases = {
        {"int", "4294967296"},
        {"int", "--", "-2147483649"},
        {"int", "1x"},
        {"int", ""},
        {"int"},
        {"int", "1", "2"},
        {"int64", "18446744073709551616"},
        {"binary", "abc"},
        {"binary", "0g"},
        {"none", "x"},
        {"multi", "a", ""},
        {"word", "1"},
    };
    for (std::vector<std::string> words : cases)
    {
        SCOPED_TRACE(testing::PrintToString(words));
        words.insert(words.begin(), {"set", "Software/P", "v", "--type"});
        EXPECT_EQ(Run(words).m_exitCode, 2);
    }
    EXPECT_EQ(Run({"import", "--from", "frog"}).m_exitCode, 2);
    EXPECT_FALSE(m_registry.m_folder.Exists("user.db"));
}

TEST_F(TevRegistry, KeysAreListedCarriedOverAndDeleted)
{
    const std::string text = "REGEDIT4\n\n[HKEY_CURRENT_USER\\Maker\\a/b]\n@=\"d\"\n\"n\"=dword:00000007\n";
    EXPECT_EQ(Run({"import"}, text).m_error, "");
    EXPECT_EQ(Run({"list", "Maker", "--recursive"}).m_output,
              "a/b\\\tkey\t\t\na/b\\@\tstring\t4\t\"d\"\na/b\\n\tint\t4\t7\n");
    EXPECT_EQ(Run({"list", "/", "--json"}).m_output, "{\"name\": \"Maker\", \"type\": \"key\"}\n");
    const std::string file = m_registry.m_folder.Path("out.reg").string();
    EXPECT_EQ(Run({"export", "Maker", file}).m_error, "");
    EXPECT_EQ(m_registry.m_folder.ReadFile("out.reg").substr(0, 6), "\xFF\xFEW\0i\0"s);
    const std::string shown = Run({"export", "Maker"}).m_output;
    EXPECT_THAT(shown, HasSubstr("[HKEY_CURRENT_USER\\Maker\\a/b]\r\n@=\"d\"\r\n\"n\"=dword:00000007\r\n"));

    EXPECT_THAT(Run({"delete", "Maker"}), FieldsAre(1, _, HasSubstr("tev: Maker: has keys below it")));
    EXPECT_EQ(Run({"delete", "Maker", "--recursive"}).m_exitCode, 0);
    EXPECT_EQ(Run({"export", "Maker"}).m_error, "tev: Maker: It was not found.\n");
    EXPECT_EQ(Run({"import", file}).m_exitCode, 0);
    EXPECT_EQ(Run({"export", "Maker"}).m_output, shown);
    EXPECT_EQ(Run({"set", "Maker", "", "x"}).m_exitCode, 0);
    EXPECT_EQ(Run({"delete", "Maker", ""}).m_exitCode, 0);
    EXPECT_EQ(Run({"delete", "Maker", ""}).m_error, "tev: Maker: @: It was not found.\n");
}

TEST_F(TevRegistry, FaultsNameFileAndReason)
{
    EXPECT_EQ(Run({"import"}, "REGEDIT4\n[HKEY_USERS\\a]\nx\n").m_error,
              "tev: -: line 3: The line is not a name, an equals sign and data.\n");
    EXPECT_EQ(Run({"import", m_registry.m_folder.Path("none.reg").string()}).m_exitCode, 1);
    EXPECT_EQ(Run({"import", "--from", "1252"}, "REGEDIT4\n[HKEY_CURRENT_USER\\k]\n\"a\"=\"\xE9\"\n\"b\"=hex(2):e9,00")
                  .m_exitCode,
              0);
    EXPECT_EQ(Run({"get", "k", "a"}).m_output + Run({"get", "k", "b"}).m_output, "\xC3\xA9\n\xC3\xA9\n");
    m_registry.m_folder.WriteFile("user.db", "no database");
    EXPECT_THAT(Run({"set", "k", "a", "b"}), FieldsAre(1, _,
                                                       "tev: " + m_registry.m_folder.Path("user.db").string() +
                                                           ": The file of the registry is damaged, or is none.\n"));
}
} // namespace
