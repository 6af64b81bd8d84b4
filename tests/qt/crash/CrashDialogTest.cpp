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
    for (const auto& [byHelper, isOfFiles] : {std::pair(false, false), {true, false}, {false, true}, {true, true}})
    {
        const TempFolder folder;
        const std::string scene = folder.Path("scene.obj").string();
        folder.WriteFile("scene.obj", "v");
        const EnvironmentVariable program("TEVTOOLS_CRASH_DIALOG", MakeRecorder(folder).c_str());
        const EnvironmentVariable common("TEVTOOLS_COMMON_DATA", folder.Path().c_str());
        const EnvironmentVariable user("TEVTOOLS_USER_DATA", folder.Path().c_str());
        EXPECT_EQ(1, ResultInChild([byHelper = byHelper, isOfFiles = isOfFiles, &scene]() -> int {
                      XSetLanguage(XLanguage::French);
                      XSetSupportAddress(L"help@example.com");
                      XSetCrashDialog(true);
                      CrashInstall(byHelper ? EndTheThread : nullptr, L"Modeller", L"2.5",
                                   isOfFiles ? xFilesReport : xCrashReport);
                      CXArray<CXTString<wchar_t>> files;
                      files.Add(CXTString<wchar_t>(scene.c_str()));
                      CrashGetHandler()->AddFiles(files);
                      std::terminate();
                  }));
        ASSERT_TRUE(Eventually([&] { return folder.Exists("arguments"); }));
        const char* const name = isOfFiles ? "FileReport.zip" : "DebugReport.zip";
        const std::string product = CXTString<char>(XGetApplicationName()).GetConstBuffer();
        const unsigned flags = (isOfFiles ? xFilesReport : xCrashReport) | xCrashWithoutPointers;
        EXPECT_EQ(folder.Path(name).string() +
                      "\n--application\nModeller\n--version\n2.5\n--support\nhelp@example.com\n--language\nfr"
                      "\n--product\n" +
                      product + "\n--flags\n" + std::to_string(flags) + "\n--log\n\n--file\n" + scene + "\n",
                  folder.ReadFile("arguments"));
        EXPECT_TRUE(folder.Exists(name));
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
        for (const char* const name : {"Modeller.txt", "Modeller.dmp", "host.log"})
            zip.AddNewFile(m_folder.WriteFile(name, "what happened\n").c_str(), false, ZipCompressionLevel(6));
        zip.Close(false);
        m_report = {m_folder.WidePath("DebugReport.zip").c_str(),
                    L"Modeller",
                    L"2.5",
                    L"help@example.com",
                    L"en",
                    L"Modeller",
                    L"host.log",
                    xCrashReport | xCrashWithoutPointers,
                    {}};
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
                                  QStringList texts;
                                  for (int row = 0; row < table.rowCount(); ++row)
                                      texts << table.item(row, 0)->text() + u'=' + table.item(row, 1)->text();
                                  EXPECT_EQ(QStringLiteral("Modeller.dmp=Memory dump Modeller.txt=Details of the error "
                                                           "host.log=Error log"),
                                            texts.join(u' '));
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
                testing::AllOf(testing::HasSubstr("me@example.com\n"), testing::HasSubstr("help@example.com\n"),
                               testing::HasSubstr("No exceptions pointers. ")));
    EXPECT_FALSE(tev::ShowReportOfCrash(m_report)) << "it is no longer there";
}

TEST_F(ShownReports, OfFilesNameThemAndSayWhereTheyCannotBeSaved)
{
    m_report.m_flags = xFilesReport;
    m_report.m_files = {{L"/models/pawn.obj", {}}};
    const QString inTheWay = QString::fromStdWString(m_folder.WriteFile("file", "") + L"/a.zip");
    const Person person({{{},
                          [](QDialog& dialog) {
                              EXPECT_TRUE(TextOf(dialog).endsWith(QStringLiteral("\n\nFile(s):\n/models/pawn.obj")))
                                  << TextOf(dialog).toStdString();
                              Press(dialog, QStringLiteral("Save…"));
                          }},
                         {{}, [&](QDialog& dialog) {
                              auto* const name = dialog.findChild<QLineEdit*>();
                              name->setText(inTheWay);
                              QTest::keyClick(name, Qt::Key_Return);
                          }}});
    InLoop([this] { EXPECT_TRUE(tev::ShowReportOfCrash(m_report)); });
    EXPECT_TRUE(m_folder.Exists("DebugReport.zip"));
    int notifications = 0;
    for (QWidget* const window : QApplication::topLevelWidgets())
    {
        auto* const dialog = qobject_cast<QDialog*>(window);
        if (dialog == nullptr || dialog->windowTitle() != QStringLiteral("The report is not saved"))
            continue;
        const QString text = TextOf(*dialog);
        EXPECT_TRUE(text.contains(inTheWay) && text.contains(XToQString(m_report.m_archive))) << text.toStdString();
        notifications += dialog->close();
    }
    EXPECT_EQ(1, notifications);
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
    EXPECT_FALSE(parses({QStringLiteral("a.zip"), QStringLiteral("--other"), QStringLiteral("x")}));
    EXPECT_FALSE(parses({QStringLiteral("a.zip"), QStringLiteral("--flags"), QStringLiteral("x")}));
}
} // namespace
