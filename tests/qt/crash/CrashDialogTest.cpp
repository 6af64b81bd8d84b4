#include "crash/CCrashHandler.h"
#include "qt/crash/ReportShow.h"
#include "qt/toolkit/QtText.h"
#include "services/ApplicationName.h"
#include "tests/qt/crash/OtherPrograms.h"
#include "tests/qt/support/Person.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/Eventually.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/TempFolder.h"
#include "text/Language.h"
#include "zip/CZip.h"

#include <QLineEdit>
#include <QProcess>
#include <QTableWidget>

namespace
{
using namespace tev::test;

/// A program of the shell that writes its arguments, a line each, to the file "arguments".
std::string MakeRecorder(const TempFolder& folder)
{
    const std::string target = folder.Path("arguments").string();
    folder.WriteFile("recorder",
                     "#!/bin/sh\nprintf '%s\\n' \"$@\" >" + target + ".new\nmv " + target + ".new " + target + "\n");
    std::filesystem::permissions(folder.Path("recorder"), std::filesystem::perms::owner_all);
    return folder.Path("recorder").string();
}

int EndTheThread(CCrashHandler*)
{
    pthread_exit(nullptr);
}

TEST(CrashDialog, IsStartedByTheCrashedProcessOrByItsHelper)
{
    for (const bool byHelper : {false, true})
    {
        const TempFolder folder;
        const EnvironmentVariable program("TEVTOOLS_CRASH_DIALOG", MakeRecorder(folder).c_str());
        const EnvironmentVariable common("TEVTOOLS_COMMON_DATA", folder.Path().c_str());
        const EnvironmentVariable user("TEVTOOLS_USER_DATA", folder.Path().c_str());
        EXPECT_EQ(1, ResultInChild([byHelper]() -> int {
                      XSetLanguage(XLanguage::French);
                      XSetSupportAddress(L"help@example.com");
                      XSetCrashDialog(true);
                      CrashInstall(byHelper ? EndTheThread : nullptr, L"Modeller", L"2.5", xCrashReport);
                      std::terminate();
                  }));
        ASSERT_TRUE(Eventually([&] { return folder.Exists("arguments"); }));
        EXPECT_EQ(folder.Path("DebugReport.zip").string() +
                      "\n--application\nModeller\n--version\n2.5\n--support\nhelp@example.com\n--language\nfr\n",
                  folder.ReadFile("arguments"));
        EXPECT_TRUE(folder.Exists("DebugReport.zip"));
    }
}

TEST(CrashDialog, IsNotStartedWithoutADisplayOrWhereNobodyWantsIt)
{
    for (const bool isWanted : {true, false})
    {
        const TempFolder folder;
        const EnvironmentVariable program("TEVTOOLS_CRASH_DIALOG", MakeRecorder(folder).c_str());
        const EnvironmentVariable common("TEVTOOLS_COMMON_DATA", folder.Path().c_str());
        const EnvironmentVariable user("TEVTOOLS_USER_DATA", folder.Path().c_str());
        const EnvironmentVariable display("DISPLAY", isWanted ? "" : std::getenv("DISPLAY"));
        EXPECT_EQ(1, ResultInChild([isWanted]() -> int {
                      XSetCrashDialog(isWanted);
                      CrashInstall(nullptr, L"Modeller", L"2.5", xCrashReport);
                      std::terminate();
                  }));
        EXPECT_TRUE(folder.Exists("DebugReport.zip"));
        EXPECT_FALSE(folder.Exists("arguments") || folder.Exists("arguments.new"));
    }
}

class ShownReports : public testing::Test
{
protected:
    ShownReports()
    {
        CZip zip;
        zip.Open(m_folder.WidePath("DebugReport.zip").c_str(), zipCreate, true, nullptr);
        for (const char* const name : {"Modeller.txt", "Modeller.dmp"})
            zip.AddNewFile(m_folder.WriteFile(name, "what happened\n").c_str(), false, ZipCompressionLevel(6));
        zip.Close(false);
        m_report = {m_folder.WidePath("DebugReport.zip").c_str(), L"Modeller", L"2.5", L"help@example.com", L"en"};
    }
    ~ShownReports() override
    {
        XSetApplicationName({});
        XSetSupportAddress({});
        XSetLanguage(m_before);
    }

    const XLanguage m_before = XGetLanguage();
    const TempFolder m_folder;
    tev::ReportOfCrash m_report;
};

TEST_F(ShownReports, StayUnlessTheyAreMailed)
{
    const TempFolder programs;
    const EnvironmentVariable path("PATH", programs.Path().string() + ":" + std::getenv("PATH"));
    struct Case
    {
        const char* m_button;
        int m_mailer; ///< its exit code
        bool m_stays;
    };
    for (const Case& one : {Case{"Don't send", 0, true}, Case{"Mail…", 1, true}, Case{"Mail…", 0, false}})
    {
        const char* const button = one.m_button;
        programs.WriteFile("xdg-email", "#!/bin/sh\nprintf '%s\\n' \"$@\" >" + programs.Path("mail").string() +
                                            "\nexit " + std::to_string(one.m_mailer) + "\n");
        std::filesystem::permissions(programs.Path("xdg-email"), std::filesystem::perms::owner_all);
        const Person person({{{}, [button](QDialog& dialog) {
                                  EXPECT_THAT(TextOf(dialog).toStdString(), testing::HasSubstr("Modeller version 2.5"));
                                  const auto& table = *dialog.findChild<QTableWidget*>();
                                  ASSERT_EQ(2, table.rowCount());
                                  EXPECT_EQ(QStringLiteral("Modeller.dmp"), table.item(0, 0)->text());
                                  EXPECT_EQ(QStringLiteral("Modeller.txt"), table.item(1, 0)->text());
                                  dialog.findChild<QLineEdit*>()->setText(QStringLiteral("me@example.com"));
                                  Press(dialog, QString::fromUtf8(button));
                              }}});
        InLoop([this] { EXPECT_TRUE(tev::ShowReportOfCrash(m_report)); });
        EXPECT_EQ(one.m_stays, m_folder.Exists("DebugReport.zip"));
        int notifications = 0;
        for (QWidget* const window : QApplication::topLevelWidgets())
        {
            if (window->isVisible() && window->windowTitle() == QStringLiteral("Send the report by hand"))
                notifications += window->close();
        }
        EXPECT_EQ(one.m_mailer, notifications);
    }
    EXPECT_THAT(programs.ReadFile("mail"),
                testing::AllOf(testing::HasSubstr("me@example.com\n"), testing::HasSubstr("help@example.com\n")));
    EXPECT_FALSE(tev::ShowReportOfCrash(m_report)) << "it is no longer there";
}

// The program itself: a person who ends it in any way keeps the report.
TEST_F(ShownReports, AreOfferedByTheProgramAndStay)
{
    const QString program = QCoreApplication::applicationDirPath() + QStringLiteral("/tev-crash-dialog");
    const QStringList arguments = {XToQString(m_report.m_archive), QStringLiteral("--application"),
                                   QStringLiteral("Modeller")};
    const OtherPrograms others;
    struct Case
    {
        void (OtherPrograms::*m_end)(std::uint32_t) const;
        bool m_isOrderly;
    };
    for (const Case& one : {Case{&OtherPrograms::PressEscape, true}, Case{&OtherPrograms::AskToClose, true},
                            Case{&OtherPrograms::Kill, false}})
    {
        QProcess process;
        process.start(program, arguments);
        ASSERT_TRUE(Eventually([&] { return others.Find("Modeller") != 0; }));
        (others.*one.m_end)(others.Find("Modeller"));
        ASSERT_TRUE(process.waitForFinished(static_cast<int>(kLongTimeMs)));
        EXPECT_EQ(one.m_isOrderly, process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
            << process.readAllStandardError().toStdString();
        EXPECT_TRUE(m_folder.Exists("DebugReport.zip"));
    }
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DISPLAY"), QString());
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    ASSERT_TRUE(process.waitForFinished(static_cast<int>(kLongTimeMs)));
    EXPECT_EQ(QProcess::NormalExit, process.exitStatus());
    EXPECT_EQ(1, process.exitCode());
    EXPECT_TRUE(m_folder.Exists("DebugReport.zip"));
}

TEST(CrashDialog, ShowsTheReportOfACrashedProcess)
{
    const TempFolder folder;
    const std::string program = QCoreApplication::applicationDirPath().toStdString() + "/tev-crash-dialog";
    const EnvironmentVariable dialog("TEVTOOLS_CRASH_DIALOG", program.c_str());
    const EnvironmentVariable common("TEVTOOLS_COMMON_DATA", folder.Path().c_str());
    const EnvironmentVariable user("TEVTOOLS_USER_DATA", folder.Path().c_str());
    EXPECT_EQ(1, ResultInChild([]() -> int {
                  XSetCrashDialog(true);
                  CrashInstall(nullptr, L"Sculptor", L"2.5", xCrashReport);
                  std::terminate();
              }));
    const OtherPrograms others;
    ASSERT_TRUE(Eventually([&] { return others.Find("Sculptor") != 0; }));
    others.AskToClose(others.Find("Sculptor"));
    EXPECT_TRUE(Eventually([&] { return others.Find("Sculptor") == 0; }));
    EXPECT_TRUE(folder.Exists("DebugReport.zip"));
}

TEST(CrashDialogArguments, OfAnotherKindAreRefused)
{
    const auto parses = [](const QStringList& arguments) {
        tev::ReportOfCrash report;
        return tev::ParseArguments(QStringList(QStringLiteral("program")) + arguments, report);
    };
    EXPECT_TRUE(parses({QStringLiteral("a.zip"), QStringLiteral("--application"), QStringLiteral("--x")}));
    EXPECT_FALSE(parses({}));
    EXPECT_FALSE(parses({QStringLiteral("a.zip"), QStringLiteral("b.zip")}));
    EXPECT_FALSE(parses({QStringLiteral("a.zip"), QStringLiteral("--application")}));
    EXPECT_FALSE(parses({QStringLiteral("--other"), QStringLiteral("a.zip")}));
}
} // namespace
