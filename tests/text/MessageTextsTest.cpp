#include "text/MessageTexts.h"
#include "tests/support/Testing.h"
#include "text/CXTString.h"
#include "text/Language.h"

namespace
{
class MessageTextsTest : public testing::Test
{
protected:
    ~MessageTextsTest() override { XSetLanguage(m_before); }

private:
    const XLanguage m_before = XGetLanguage();
};

constexpr unsigned kUnnamedFile = 0xF006;
constexpr unsigned kFirstFileText = 0xF1A0;
constexpr unsigned kLastFileText = 0xF1AE;
constexpr unsigned kFirstArchiveText = 0xF1B0;
constexpr unsigned kLastArchiveText = 0xF1B8;

std::vector<unsigned> TextsOfCauses()
{
    std::vector<unsigned> numbers;
    for (unsigned number = kFirstFileText; number <= kLastFileText; ++number)
        numbers.push_back(number);
    for (unsigned number = kFirstArchiveText; number <= kLastArchiveText; ++number)
        numbers.push_back(number);
    return numbers;
}

constexpr XLanguage kLanguages[] = {XLanguage::English, XLanguage::French};
TEST_F(MessageTextsTest, EveryCauseHasATextOfItsOwnThatTakesTheFileName)
{
    std::set<std::wstring> texts;
    for (const XLanguage language : kLanguages)
    {
        XSetLanguage(language);
        for (const unsigned number : TextsOfCauses())
        {
            const wchar_t* found = tev::FindMessageText(number);
            ASSERT_NE(found, nullptr) << std::hex << number;
            const std::wstring text = found;
            EXPECT_TRUE(texts.insert(text).second) << std::hex << number << " is twice the same or not translated";
            const size_t insertion = text.find(L"%s");
            ASSERT_NE(insertion, std::wstring::npos) << std::hex << number;
            EXPECT_EQ(text.find(L'%', insertion + 1), std::wstring::npos) << std::hex << number;

            std::wstring expected = text;
            expected.replace(insertion, 2, L"d\u00e9j\u00e0.obj");
            CXTString<wchar_t> wide;
            wide.Format(number, L"d\u00e9j\u00e0.obj");
            EXPECT_EQ(wide, expected.c_str());
            CXTString<char> narrow;
            narrow.Format(number, "d\xC3\xA9j\xC3\xA0.obj");
            EXPECT_EQ(CXTString<wchar_t>(narrow), expected.c_str());
        }
    }
}

/// The conversions of a format, in their order.
std::wstring Conversions(const wchar_t* format)
{
    std::wstring found;
    for (const wchar_t* c = format; *c != 0; ++c)
    {
        if (*c == L'%')
            found += *++c;
    }
    return found;
}

TEST_F(MessageTextsTest, EveryTextIsThereInBothLanguagesWithTheSameInsertions)
{
    int texts = 0;
    for (unsigned number = 0; number <= 0xFFFF; ++number)
    {
        XSetLanguage(XLanguage::English);
        const wchar_t* const english = tev::FindMessageText(number);
        XSetLanguage(XLanguage::French);
        const wchar_t* const french = tev::FindMessageText(number);
        ASSERT_EQ(english == nullptr, french == nullptr) << number;
        if (english == nullptr)
            continue;
        EXPECT_NE(*english, 0) << number;
        EXPECT_NE(*french, 0) << number;
        EXPECT_EQ(Conversions(english), Conversions(french)) << number;
        ++texts;
    }
    EXPECT_GT(texts, 26);
}

TEST_F(MessageTextsTest, TheLanguageChoosesTheText)
{
    CXTString<wchar_t> english;
    CXTString<wchar_t> french;
    XSetLanguage(XLanguage::English);
    EXPECT_TRUE(english.LoadString(kUnnamedFile));
    EXPECT_EQ(english, L"a file without a name");
    XSetLanguage(XLanguage::French);
    EXPECT_EQ(XGetLanguage(), XLanguage::French);
    EXPECT_TRUE(french.LoadString(kUnnamedFile));
    EXPECT_EQ(french, L"un fichier sans nom");
    french.AppendFormat(kFirstFileText + 2, L"x");
    EXPECT_EQ(french, L"un fichier sans nomImpossible de trouver x.");
}

TEST_F(MessageTextsTest, AnUnknownNumberHasNoText)
{
    for (const unsigned number :
         {0u, 0xF005u, 0xF007u, kFirstFileText - 1, kLastFileText + 1, kLastArchiveText + 1, ~0u})
    {
        EXPECT_EQ(tev::FindMessageText(number), nullptr) << std::hex << number;
        CXTString<wchar_t> text(L"before");
        text.AppendFormat(number, L"x");
        EXPECT_EQ(text, L"before");
        EXPECT_FALSE(text.LoadString(number));
        EXPECT_TRUE(text.IsEmpty());
        CXTString<char> narrow("before");
        narrow.Format(number, "x");
        EXPECT_TRUE(narrow.IsEmpty());
    }
}

TEST(LanguageTest, TheFirstVariableThatIsSetDecides)
{
    const std::tuple<const char*, const char*, const char*, XLanguage> cases[] = {
        {nullptr, nullptr, nullptr, XLanguage::English},
        {nullptr, nullptr, "fr_FR.UTF-8", XLanguage::French},
        {"", "", "fr", XLanguage::French},
        {nullptr, "fr_CA", "en_US.UTF-8", XLanguage::French},
        {"C", "fr_FR", "fr_FR", XLanguage::English},
        {"fr@euro", "de_DE", "C", XLanguage::French},
        {nullptr, "", "fr.ISO-8859-1", XLanguage::French},
        {nullptr, nullptr, "fry_NL", XLanguage::English},
        {nullptr, nullptr, "f", XLanguage::English},
        {nullptr, nullptr, "de_FR", XLanguage::English},
    };
    for (const auto& [lcAll, lcMessages, lang, expected] : cases)
        EXPECT_EQ(tev::LanguageOfLocale(lcAll, lcMessages, lang), expected) << lang;
}
} // namespace
