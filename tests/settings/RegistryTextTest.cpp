#include "settings/RegistryText.h"

#include "files/CXMemFile.h"
#include "settings/CRegUtil.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/PrintText.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TestRegistry.h"
#include "tests/support/TextTools.h"
#include "text/TextEncoding.h"

namespace
{
using namespace tev::test;

const std::wstring kHeader = L"Windows Registry Editor Version 5.00\r\n\r\n";

class RegistryText : public testing::Test
{
protected:
    static XRegistryImport Import(const std::wstring& text)
    {
        XRegistryImport result;
        const bool good = XImportRegistry(CXTString<wchar_t>(text.c_str(), static_cast<int>(text.size())), result);
        EXPECT_EQ(good, result.m_fault == XRegistryFault::None);
        return result;
    }
    static std::string Export(const wchar_t* path, xStringEncoding encoding = xEncodingUtf8)
    {
        CXMemFile file;
        int systemError = -1;
        EXPECT_TRUE(XExportRegistry(path, file, encoding, systemError)) << systemError;
        std::string bytes(static_cast<std::size_t>(file.GetLength()), '\0');
        file.SeekToBegin();
        file.Read(bytes.data(), static_cast<unsigned>(bytes.size()));
        return bytes;
    }
    /// A value of the key "k".
    static bool Has(const wchar_t* name, unsigned long type, const BinaryData& data)
    {
        CRegUtil registry(CRegUtil::kRead);
        unsigned long foundType = 99;
        BinaryData found;
        return registry.SetPath(L"k", false) && registry.ReadValue(name, foundType, found) && foundType == type &&
               found == data;
    }

    TestRegistry m_registry;
};

TEST_F(RegistryText, EveryFormOfAValueIsRead)
{
    const XRegistryImport result = Import(L"\uFEFF\r\n" + kHeader +
                                          L"; a remark\r\n"
                                          L"  [hkey_current_user\\k] \r\n"
                                          L"@=\"default\"\r\n"
                                          L"\"quoted \\\"\\\\\" = \"a\\\\b \\\"c\\\"\" ; remark\n"
                                          L"\"lines\"=\"1\r\n2\"\r\n"
                                          L"\"int\"=DWORD:00abCDef\r\n"
                                          L"\"short\"=dword: 7\r"
                                          L"\"bin\"=hex:00,1,\\\r\n   fF , \\ \n 7f\r\n"
                                          L"\"none\"=hex(0):\r\n"
                                          L"\"own\"=hex(fffffff0):ab\r\n"
                                          L"\"list\"=hex(7):61,00,00,00,00,00\r\n"
                                          L"\"twice\"=dword:1\r\n\"TWICE\"=dword:2");
    ASSERT_EQ(result.m_fault, XRegistryFault::None) << result.m_line;
    EXPECT_TRUE(Has(L"", 1, {'d', 0, 'e', 0, 'f', 0, 'a', 0, 'u', 0, 'l', 0, 't', 0, 0, 0}));
    EXPECT_TRUE(Has(L"quoted \"\\", 1, {'a', 0, '\\', 0, 'b', 0, ' ', 0, '"', 0, 'c', 0, '"', 0, 0, 0}));
    EXPECT_TRUE(Has(L"lines", 1, {'1', 0, '\r', 0, '\n', 0, '2', 0, 0, 0}));
    EXPECT_TRUE(Has(L"int", 4, {0xEF, 0xCD, 0xAB, 0}));
    EXPECT_TRUE(Has(L"short", 4, {7, 0, 0, 0}));
    EXPECT_TRUE(Has(L"bin", 3, {0, 1, 0xFF, 0x7F}));
    EXPECT_TRUE(Has(L"none", 0, {}));
    EXPECT_TRUE(Has(L"own", 0xFFFFFFF0, {0xAB}));
    EXPECT_TRUE(Has(L"list", 7, {'a', 0, 0, 0, 0, 0}));
    EXPECT_TRUE(Has(L"twice", 4, {2, 0, 0, 0})) << "the last one counts";
}

TEST_F(RegistryText, TheOlderFormHasItsTextsInTheAnsiCodePage)
{
    const AnsiCodePage western(CodePage(1252));
    ASSERT_EQ(Import(L"REGEDIT4\n[HKEY_CURRENT_USER\\k]\n\"e\"=hex(2):80,00\n\"l\"=hex(7):61,00,e9,00,00\n"
                     L"\"b\"=hex:80\n")
                  .m_fault,
              XRegistryFault::None);
    EXPECT_TRUE(Has(L"e", 2, {0xAC, 0x20, 0, 0}));
    EXPECT_TRUE(Has(L"l", 7, {'a', 0, 0, 0, 0xE9, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(Has(L"b", 3, {0x80}));
}

TEST_F(RegistryText, ListsOfBytesMayBeInterruptedAndTextsMayLackTheirEnd)
{
    const std::tuple<const wchar_t*, unsigned long, BinaryData> cases[] = {
        {L"hex:1,\\\r\n\r\n ; a remark\r\n\t\r\n 2", 3, {1, 2}},
        {L"hex:1,\\ ; remark\n;\\\n2", 3, {1, 2}},
        {L"hex:1,\\;\r\n2;end", 3, {1, 2}},
        {L"hex:\\\n1\\\n,2", 3, {1, 2}},
        {L"hex:1,2,", 3, {1, 2}},
        {L"hex:1,2, ; remark", 3, {1, 2}},
        {L"hex:1,2,\\", 3, {1, 2}},
        {L"hex:1,2,\\\n\n;", 3, {1, 2}},
        {L"hex(2):61,00", 2, {'a', 0, 0, 0}},
        {L"hex(2):61,00,00,00", 2, {'a', 0, 0, 0}},
        {L"hex(2):61", 2, {'a', 0, 0, 0}},
        {L"hex(7):00,61", 7, {0, 'a', 0, 0}},
        {L"hex(7):61,00,00,00,62,00", 7, {'a', 0, 0, 0, 'b', 0, 0, 0}},
        {L"hex(7):", 7, {}},
        {L"hex(1):61,00", 1, {'a', 0}},
    };
    for (const auto& [data, type, bytes] : cases)
    {
        SCOPED_TRACE(testing::PrintToString(std::wstring(data)));
        EXPECT_EQ(Import(kHeader + L"[HKEY_CURRENT_USER\\k]\n\"v\"=" + data).m_fault, XRegistryFault::None);
        EXPECT_TRUE(Has(L"v", type, bytes));
    }
    EXPECT_EQ(Import(L"REGEDIT4\n[HKEY_CURRENT_USER\\k]\n\"v\"=hex(2):61").m_fault, XRegistryFault::None);
    EXPECT_TRUE(Has(L"v", 2, {'a', 0, 0, 0}));
}

TEST_F(RegistryText, MinusDeletes)
{
    ASSERT_EQ(
        Import(kHeader + L"[HKEY_CURRENT_USER\\k\\a\\b]\n\"v\"=dword:1\n[HKEY_CURRENT_USER\\k]\n@=\"x\"\n\"y\"=hex:1\n")
            .m_fault,
        XRegistryFault::None);
    ASSERT_EQ(Import(kHeader + L"[-HKEY_CURRENT_USER\\K\\A]\n[HKEY_CURRENT_USER\\k]\n@=-\n\"none\"=-\n"
                               L"[-HKEY_CURRENT_USER\\no\\such]\n[-HKEY_USERS\\n]\n")
                  .m_fault,
              XRegistryFault::None);
    EXPECT_FALSE(CRegUtil(CRegUtil::kRead).SetPath(L"k\\a", false));
    EXPECT_FALSE(CRegUtil(CRegUtil::kRead).SetPath(L"no", false));
    EXPECT_FALSE(Has(L"", 1, {'x', 0, 0, 0}));
    EXPECT_TRUE(Has(L"y", 3, {1}));
}

TEST_F(RegistryText, AFaultNamesItsLineAndNothingIsTakenOver)
{
    const std::wstring start = kHeader + L"[HKEY_CURRENT_USER\\k]\n\"before\"=dword:1\n"; // line 5 follows
    const std::tuple<std::wstring, XRegistryFault, int> cases[] = {
        {L"", XRegistryFault::Header, 1},
        {L"\n Windows Registry Editor Version 6.00\n", XRegistryFault::Header, 2},
        {kHeader + L"\"a\"=dword:1\n", XRegistryFault::NoKey, 3},
        {start + L"[-HKEY_CURRENT_USER\\x]\n\"a\"=dword:1\n", XRegistryFault::NoKey, 6},
        {start + L"[HKCU\\x]\n", XRegistryFault::Key, 5},
        {start + L"[", XRegistryFault::Key, 5},
        {start + L"[]", XRegistryFault::Key, 5},
        {start + L"[HKEY_CURRENT_USER\\x", XRegistryFault::Key, 5},
        {start + L"[-HKEY_CURRENT_USER]", XRegistryFault::Registry, 5},
        {start + L"[HKEY_CURRENT_USER\\" + std::wstring(256, L'k') + L"]", XRegistryFault::Registry, 5},
        {start + L"[-HKEY_CURRENT_USER\\k\0\\deeper]"s, XRegistryFault::Value, 5}, // would delete more than it says
        {start + L"\"a\"", XRegistryFault::Value, 5},
        {start + L"\"a\"=", XRegistryFault::Value, 5},
        {start + L"\"a=dword:1\n\n\n", XRegistryFault::Value, 8},
        {start + L"\"a\"=\"\\n\"", XRegistryFault::Value, 5},
        {start + L"\"a\"=\"b\" c", XRegistryFault::Value, 5},
        {start + L"\"a\"=dword:", XRegistryFault::Value, 5},
        {start + L"\"a\"=dword:123456789", XRegistryFault::Value, 5},
        {start + L"\"a\"=dword:-1", XRegistryFault::Value, 5},
        {start + L"\"a\"=hex:1,,2", XRegistryFault::Value, 5},
        {start + L"\"a\"=hex:1,\\\n\"b\"=hex:2", XRegistryFault::Value, 6},
        {start + L"\"a\"=hex:1\\ 2", XRegistryFault::Value, 5},
        {L"regedit4\n", XRegistryFault::Header, 1},
        {L"WINDOWS REGISTRY EDITOR VERSION 5.00\n", XRegistryFault::Header, 1},
        {start + L"\"a\"=hex:123", XRegistryFault::Value, 5},
        {start + L"\"a\"=hex(:1", XRegistryFault::Value, 5},
        {start + L"\"a\"=hex(100000000):1", XRegistryFault::Value, 5},
        {start + L"\"a\"=hex:1,\\x", XRegistryFault::Value, 5},
        {start + L"a=dword:1", XRegistryFault::Value, 5},
    };
    for (const auto& [text, fault, line] : cases)
    {
        SCOPED_TRACE(testing::PrintToString(text));
        const XRegistryImport result = Import(text);
        EXPECT_EQ(result.m_fault, fault);
        EXPECT_EQ(result.m_line, line);
        EXPECT_NE(result.m_systemError, 0);
        EXPECT_FALSE(CRegUtil(CRegUtil::kRead).SetPath(L"k", false));
    }
}

TEST_F(RegistryText, ChangesAreMadeInEachFileOrReportedAsAFault)
{
    const auto isThere = [](const wchar_t* path) { return CRegUtil(CRegUtil::kRead).SetPath(path, false); };
    m_registry.m_folder.WriteFile("machine.db", "");
    EXPECT_EQ(Import(kHeader + L"[HKEY_CURRENT_USER\\k]\n[HKEY_LOCAL_MACHINE\\k]\n").m_fault, XRegistryFault::None);
    EXPECT_TRUE(isThere(L"HKEY_CURRENT_USER\\k") && isThere(L"HKEY_LOCAL_MACHINE\\k"));

    const TestRegistry damaged;
    damaged.m_folder.WriteFile("user.db", std::string(5000, 'x'));
    for (const wchar_t* const change : {L"[-HKEY_CURRENT_USER\\k]", L"[HKEY_CURRENT_USER\\k]\n@=-"})
    {
        const XRegistryImport result = Import(kHeader + change);
        EXPECT_EQ(result.m_fault, XRegistryFault::Registry);
        EXPECT_NE(result.m_systemError, 0);
        EXPECT_EQ(result.m_line, 3);
    }
}

TEST_F(RegistryText, WhatIsWrittenIsWhatTheEditorWrites)
{
    CRegUtil registry(CRegUtil::kAllAccess);
    ASSERT_TRUE(registry.SetPath(L"HKEY_USERS\\Maker\\Program", true));
    registry.WriteKeyString(L"", L"h\u00E9 \"q\" \\");
    registry.WriteKeyString(L"line", L"a\nb");
    registry.WriteKeyInt(L"say \"x\\\"", 0x2A);
    registry.WriteValue(L"shortint", 4, "\1\2", 2);
    registry.WriteValue(L"type", 0x1F, "", 0);
    BinaryData bytes(30);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(i);
    for (const wchar_t* const name : {L"wide", L"wider", L"widest"})
        registry.WriteKeyBin(name, bytes.data(), 30);
    registry.WriteValue(L"Own", 1, "\0\xE0\0\0", 4);
    registry.WriteValue(L"lone1", 1, "\0\xD8\0\0", 4);
    registry.WriteValue(L"lone2", 1, "\xFF\xDF\0\0", 4);
    registry.WriteSubKeyString(L"Sub", L"v", nullptr);

    EXPECT_EQ(Export(L"/HKEY_USERS//Maker/Program/"),
              "Windows Registry Editor Version 5.00\r\n"
              "\r\n[HKEY_USERS\\Maker\\Program]\r\n"
              "@=\"h\xC3\xA9 \\\"q\\\" \\\\\"\r\n"
              "\"line\"=hex(1):61,00,0a,00,62,00,00,00\r\n"
              "\"lone1\"=hex(1):00,d8,00,00\r\n"
              "\"lone2\"=hex(1):ff,df,00,00\r\n"
              "\"Own\"=\"\xEE\x80\x80\"\r\n"
              "\"say \\\"x\\\\\\\"\"=dword:0000002a\r\n"
              "\"shortint\"=hex(4):01,02\r\n"
              "\"type\"=hex(1f):\r\n"
              "\"wide\"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,\\\r\n"
              "  16,17,18,19,1a,1b,1c,1d\r\n"
              "\"wider\"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,\\\r\n"
              "  16,17,18,19,1a,1b,1c,1d\r\n"
              "\"widest\"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,\\\r\n"
              "  15,16,17,18,19,1a,1b,1c,1d\r\n"
              "\r\n[HKEY_USERS\\Maker\\Program\\Sub]\r\n"
              "\"v\"=hex(1):\r\n"
              "\r\n");
    ASSERT_TRUE(registry.SetPath(L"HKEY_CURRENT_USER\\k\\HKEY_USERS", true));
    EXPECT_EQ(Export(L"k\\HKEY_USERS"),
              "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\k\\HKEY_USERS]\r\n\r\n");
    CXMemFile file;
    int systemError = 0;
    EXPECT_FALSE(XExportRegistry(L"HKEY_USERS\\None", file, xEncodingUtf8, systemError));
    EXPECT_EQ(systemError, 2);
    ASSERT_TRUE(registry.SetPath(L"HKEY_USERS\\Maker\\x]\r\n[-HKEY_USERS", true));
    EXPECT_FALSE(XExportRegistry(L"HKEY_USERS", file, xEncodingUtf8, systemError));
    EXPECT_EQ(systemError, 13);
    EXPECT_EQ(file.GetLength(), 0U);
}

TEST_F(RegistryText, AnExportTakenOverGivesTheSameExport)
{
    ASSERT_EQ(
        Import(kHeader +
               L"[HKEY_CURRENT_USER\\k\\a/b:c]\n\"\U0001F600\xD800\"=\"\U0001F600\"\n\"lone\"=hex(1):00,d8,00,00\n"
               L"\"odd\"=hex(1):61\n\"two\"=hex(1):61,00,00,00,62,00,00,00\n[HKEY_CURRENT_USER\\k\\ ]\n")
            .m_fault,
        XRegistryFault::None);
    const std::string exported = Export(L"k", xEncodingUtf16);
    ASSERT_TRUE(CRegUtil(CRegUtil::kAllAccess).DeleteKey(L"k", true));
    CXTString<wchar_t> text;
    ASSERT_TRUE(XDecodeText(exported.data(), exported.size(), xEncodingUtf16, text));
    ASSERT_EQ(Import(ToStd(text)).m_fault, XRegistryFault::None);
    EXPECT_EQ(Export(L"k", xEncodingUtf16), exported);
    EXPECT_EQ(exported.substr(0, 4), "\xFF\xFEW\0"s);
}

TEST_F(RegistryText, AKeyIsDeletedOnlyAsItIsExpected)
{
    const wchar_t* const keyText =
        L"[HKEY_CURRENT_USER\\k\\sub]\n\"a\"=dword:1\n[HKEY_CURRENT_USER\\k\\sub\\\xD83D\xDE00]\n";
    const auto remove = [](const wchar_t* path, const CXTString<wchar_t>& expected) {
        int systemError = -1;
        const bool isRemoved = XRemoveRegistryKey(path, expected, systemError);
        EXPECT_EQ(isRemoved, systemError == 0);
        return systemError;
    };
    const auto exported = [] {
        const std::string bytes = Export(L"k\\sub", xEncodingUtf16);
        CXTString<wchar_t> text;
        EXPECT_TRUE(XDecodeText(bytes.data(), bytes.size(), xEncodingUtf16, text));
        return text;
    };
    ASSERT_EQ(Import(kHeader + keyText).m_fault, XRegistryFault::None);
    const CXTString<wchar_t> seen = exported();
    for (const wchar_t* const change :
         {L"\"a\"=dword:2", L"\"a\"=-", L"\"b\"=dword:1", L"[HKEY_CURRENT_USER\\k\\sub\\z]",
          L"[-HKEY_CURRENT_USER\\k\\sub\\\xD83D\xDE00]"})
    {
        ASSERT_EQ(Import(kHeader + keyText + L"[HKEY_CURRENT_USER\\k\\sub]\n" + change).m_fault, XRegistryFault::None);
        EXPECT_EQ(remove(L"k\\sub", seen), 1237) << change;
        ASSERT_EQ(Import(kHeader + L"[-HKEY_CURRENT_USER\\k\\sub]").m_fault, XRegistryFault::None);
    }
    EXPECT_EQ(remove(L"k\\sub", seen), 2);
    EXPECT_EQ(remove(L"HKEY_CURRENT_USER", seen), 5);
    ASSERT_EQ(Import(kHeader + keyText).m_fault, XRegistryFault::None);
    EXPECT_EQ(remove(L"k\\sub", seen + L" "), 1237);
    EXPECT_EQ(remove(L"HKEY_CURRENT_USER:k/sub", seen.Mid(1)), 0) << "without the mark";
    EXPECT_FALSE(CRegUtil(CRegUtil::kRead).SetPath(L"k\\sub", false));
    EXPECT_TRUE(CRegUtil(CRegUtil::kRead).SetPath(L"k", false));
    // What another process could write was seen by the one that deletes.
    for (int round = 0; round < (kIsSanitized ? 2 : 8); ++round)
    {
        ASSERT_EQ(Import(kHeader + keyText).m_fault, XRegistryFault::None);
        const BinaryData large(20000);
        CRegUtil registry(CRegUtil::kReadWrite);
        ASSERT_TRUE(registry.SetPath(L"k\\sub", false) && registry.WriteKeyBin(L"large", large.data(), 20000));
        ChildProcess writing([] {
            CRegUtil writer(CRegUtil::kReadWrite);
            unsigned long written = 0;
            bool isOpen = writer.SetPath(L"k\\sub", false) && writer.OpenBase(false);
            while (isOpen && written < 2000 && writer.WriteKeyInt(L"a", written + 1))
            {
                ++written;
                CXMemFile read; // takes as long as looking at it takes the other one
                int systemError = 0;
                static_cast<void>(XExportRegistry(L"k\\sub", read, xEncodingUtf16, systemError));
            }
            return writer.SetPath(L"k", false) && writer.WriteKeyInt(L"written", written);
        });
        CXTString<wchar_t> last;
        do
            last = exported();
        while (remove(L"k\\sub", last) != 0);
        ASSERT_TRUE(writing.EndsWell());
        unsigned long written = 0;
        ASSERT_TRUE(registry.SetPath(L"k", false) && registry.GetKeyInt(L"written", written));
        CXTString<wchar_t> number;
        number.Format(L"\"a\"=dword:%08x", static_cast<unsigned>(written));
        EXPECT_TRUE(last.Find(number) >= 0 || written == 0) << ToStd(last) << ToStd(number);
    }
}
} // namespace
