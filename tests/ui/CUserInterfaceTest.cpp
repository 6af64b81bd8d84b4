#include "ui/CUserInterface.h"

#include "services/CProfileTimer.h"
#include "services/LogFile.h"
#include "tests/support/PrintText.h"
#include "tests/support/TempFolder.h"
#include "ui/CLogInfo.h"

namespace
{
using namespace tev::test;

using Text = CXTString<wchar_t>;

/// Records its calls; the theme is the test's.
class Host : public CUserInterface
{
public:
    Host() : m_before(XSetUserInterface(this)) {}
    ~Host() override { XSetUserInterface(m_before); }

    void ShowMessage(Severity, const Text& text) override { m_shown.push_back(text); }
    void ShowLines(const std::vector<XColoredLine>& lines, void* parent) override
    {
        m_shown.push_back(parent == this ? lines.front().m_text : L"another parent");
    }
    bool IsDarkTheme() override { return m_isDark; }

    std::vector<Text> m_shown;
    bool m_isDark = false;

private:
    CUserInterface* m_before;
};

TEST(CUserInterface, WithoutAHostTextsAreLoggedAndAnswersAreSafe)
{
    const TempFolder folder;
    ASSERT_TRUE(SetLogFile(folder.WidePath("a.log").c_str(), xLogCreate, xLogMute)); // no header
    SetLogLevel(0xFF);
    CUserInterface& ui = XGetUserInterface();
    ui.ShowMessage(CUserInterface::Severity::Error, L"message");
    EXPECT_TRUE(ui.AskYesNo(L"keep?", true));
    EXPECT_FALSE(ui.AskYesNo(L"delete?", false));
    const XReportAnswer answer = ui.AskAboutReport(L"report", {});
    EXPECT_FALSE(answer.m_send || answer.m_save);
    CPathString path(L"proposed");
    EXPECT_FALSE(ui.AskForSavePath(L"*.zip", path));
    EXPECT_FALSE(ui.AskForPassword(L"a.zip", path));
    EXPECT_EQ(path, L"proposed");
    ui.Notify(L"title", L"text", L"");
    EXPECT_FALSE(ui.IsDarkTheme());
    CloseLogFile();

    const std::string bytes = folder.ReadFile("a.log");
    std::string log;
    for (std::size_t i = 2; i < bytes.size(); i += 2)
        log += bytes[i];
    EXPECT_EQ(log, "message\nkeep?\ndelete?\nreport\ntitle\ntext\n");
    ui.ShowMessage(CUserInterface::Severity::Error, L"no log");
}

TEST(CUserInterface, AHostIsCalledWhileItIsInstalled)
{
    CUserInterface* const substitute = &XGetUserInterface();
    {
        Host host;
        EXPECT_EQ(&XGetUserInterface(), &host);
        EXPECT_TRUE(XGetUserInterface().AskYesNo(L"?", true)); // not answered by this host
        CProfileTimer timer;
        timer.Start();
        timer.End(L"measured");
        ASSERT_EQ(host.m_shown.size(), 1U);
        EXPECT_EQ(host.m_shown[0].Left(27), L"******** measured ********\n");
    }
    EXPECT_EQ(&XGetUserInterface(), substitute);
}

TEST(CLogInfo, TheLowestBitOfTheLevelChoosesTheColour)
{
    CXArray<IoLogInfo> records;
    const unsigned levels[] = {0, 1, 0, 2, 8, 4, 7, 6};
    for (const unsigned level : levels)
    {
        IoLogInfo record;
        record.m_text.Format(L"level %u", level);
        record.m_level = level;
        records.Add(record);
    }
    Host host;
    const auto expectColors = [&](const std::vector<CRGBColor>& colors) {
        CLogInfo log(records, 5, &host);
        EXPECT_TRUE(log.GetLines().empty());
        log.DoModal();
        ASSERT_EQ(log.GetLines().size(), colors.size() + 1);
        EXPECT_FALSE(log.GetLines()[0].m_hasColor);
        for (std::size_t i = 0; i < colors.size(); ++i)
        {
            const XColoredLine& line = log.GetLines()[i + 1];
            EXPECT_TRUE(line.m_hasColor);
            EXPECT_EQ(line.m_color, colors[i]) << line.m_text << ": " << std::hex << line.m_color.GetRGB();
            EXPECT_EQ(line.m_text, records[static_cast<int>(i) + 1].m_text);
        }
    };
    // As 0xBBGGRR.
    const CRGBColor blue(0xC00000UL);
    const CRGBColor orange(0x0080FFUL);
    const CRGBColor red(0x0000FFUL);
    expectColors({blue, blue, orange, orange, red, blue, orange});
    host.m_isDark = true;
    const CRGBColor darkBlue = CRGBColor(160, 213, 52).CreateDarken(0.25F);
    const CRGBColor darkOrange = CRGBColor(156, 220, 255).CreateDarken(0.25F);
    const CRGBColor darkRed(245, 87, 98);
    expectColors({darkBlue, darkBlue, darkOrange, darkOrange, darkRed, darkBlue, darkOrange});
    EXPECT_EQ(host.m_shown, std::vector<Text>(2, L"level 0"));

    records.RemoveAll(false);
    CLogInfo empty(records, 0, nullptr);
    EXPECT_TRUE(empty.OnInitDialog());
    EXPECT_TRUE(empty.GetLines().empty());
}
} // namespace
