// What becomes of a finished report: it is mailed, saved, or offered by the next start.

#include "crash/CrashPackage.h"
#include "tests/crash/CCrashHandlerFixture.h"
#include "tests/support/CrashingProgram.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/PrintText.h"

namespace
{
using namespace tev::test;

/// A mail program that writes down its arguments, one a line.
class MailProgram
{
public:
    explicit MailProgram(int exitCode)
    {
        m_folder.WriteFile("xdg-email", "#!/bin/sh\nfor w in \"$@\"; do printf '%s\\n' \"$w\"; done >'" +
                                            m_folder.Path("words").string() + "'\nexit " + std::to_string(exitCode) +
                                            "\n");
        std::filesystem::permissions(m_folder.Path("xdg-email"), std::filesystem::perms::owner_all);
    }
    std::vector<std::string> Words() const
    {
        std::vector<std::string> words;
        std::ifstream file(m_folder.Path("words"));
        for (std::string word; std::getline(file, word);)
            words.push_back(word);
        return words;
    }

private:
    const TempFolder m_folder;
    const EnvironmentVariable m_path{"PATH", m_folder.Path().string() + ":" + std::getenv("PATH")};
};

TEST_F(CCrashHandlerTest, AMailHasThePrefaceAndTheArchive)
{
    const MailProgram mail(0);
    const EnvironmentVariable temporary("TMPDIR", m_folder.Path().string());
    TestUser user;
    user.m_answer.m_send = true;
    user.m_answer.m_description = L"I opened a file";
    user.m_answer.m_mailAddress = L"me@example.com";
    XSetLanguage(XLanguage::French);
    CrashInstall(nullptr, L"Viewer", L"3.1", xCrashReport);
    CrashGenerateErrorReport(nullptr, false);
    EXPECT_FALSE(HasReport("DebugReport.zip"));
    const std::vector<std::string> words = mail.Words();
    ASSERT_EQ(words.size(), 12u) << testing::PrintToString(words);
    EXPECT_EQ(words[2], "Rapport d'erreur pour Viewer version 3.1.");
    EXPECT_EQ(words[4], "No exceptions pointers. Report might be generated at startup.\r");
    EXPECT_EQ(words[6], "I opened a file");
    EXPECT_EQ(words[8], "me@example.com");
    EXPECT_EQ(words[11], "support@example.com");
    EXPECT_EQ(NamesInArchive(std::filesystem::u8path(words[10]).wstring()), OwnFiles());

    // With pointers, there is no preface.
    _EXCEPTION_POINTERS pointers = {nullptr, nullptr};
    CrashGenerateErrorReport(&pointers, false);
    EXPECT_EQ(mail.Words()[4], "I opened a file");
}

TEST_F(CCrashHandlerTest, AFailedMailAndAFailedSavingAreNotified)
{
    const MailProgram mail(3);
    TestUser user;
    user.m_answer.m_save = true;
    CrashInstall(nullptr, L"Viewer", L"3.1", xCrashReport);
    const std::wstring lost = m_folder.WidePath("none/b.zip");
    user.m_savePath = CPathString(lost.c_str());
    CrashGenerateErrorReport(nullptr, false);
    EXPECT_THAT(std::wstring(user.m_notified),
                testing::AllOf(HasSubstr(lost), HasSubstr(L"|explore:" + CommonPath("DebugReport.zip"))));
    for (const std::wstring& place :
         {std::wstring(), CommonPath("DebugReport (2).zip")}) // both are the person's choice
    {
        user.m_notified.Empty();
        user.m_savePath = CPathString(place.c_str());
        CrashGenerateErrorReport(nullptr, false);
        EXPECT_STREQ(user.m_notified, L"");
    }
    std::filesystem::remove_all(m_folder.Path("common"));
    user.m_answer.m_save = false;
    user.m_answer.m_send = true;
    XSetSupportAddress(L"help@example.org");
    CrashInstall(nullptr, L"Viewer", L"3.1", xCrashReport);
    CrashGenerateErrorReport(nullptr, false);
    XSetSupportAddress(L"");
    EXPECT_TRUE(HasReport("DebugReport.zip"));
    EXPECT_THAT(std::wstring(user.m_notified), testing::AllOf(HasSubstr(L"help@example.org"),
                                                              HasSubstr(L"|explore:" + CommonPath("DebugReport.zip"))));
}

TEST_F(CCrashHandlerTest, ASavedReportIsMoved)
{
    TestUser user;
    user.m_answer.m_save = true;
    m_folder.WriteFile("inner/theirs.zip", "an old one");
    std::filesystem::permissions(m_folder.Path("inner/theirs.zip"), std::filesystem::perms(0640));
    std::filesystem::create_symlink("inner/theirs.zip", m_folder.Path("mine.zip"));
    user.m_savePath = CPathString(m_folder.WidePath("mine.zip").c_str());
    XSetLanguage(XLanguage::French);
    CrashInstall(nullptr, L"Viewer", L"3.1", xCrashReport);
    // Another process works in the folder of the user's choice for as long as the report is made.
    const int folder = open(m_folder.Path("inner").c_str(), O_RDONLY | O_DIRECTORY);
    EXPECT_EQ(flock(folder, LOCK_EX), 0);
    CrashGenerateErrorReport(nullptr, false);
    close(folder);
    EXPECT_EQ(user.m_filter, L"Fichiers Zip (*.zip)");
    EXPECT_EQ(user.m_proposed, (L"Rapport " + Product() + L" (\u00e0 envoyer \u00e0 support@example.com).zip").c_str());
    EXPECT_FALSE(HasReport("DebugReport.zip"));
    EXPECT_EQ(NamesInArchive(m_folder.WidePath("inner/theirs.zip")), OwnFiles());
    EXPECT_TRUE(std::filesystem::is_symlink(m_folder.Path("mine.zip")));
    EXPECT_EQ(std::filesystem::status(m_folder.Path("mine.zip")).permissions(), std::filesystem::perms(0640));
    EXPECT_EQ(m_folder.Names("inner"), std::set<std::string>{"theirs.zip"});
    {
        FailingFileSystem files;
        files.AtStep("open folder", [&] { files.FailEach("sync folder", EIO); });
        CrashGenerateErrorReport(nullptr, false);
        EXPECT_EQ(files.FailedStep(), "sync folder");
        const std::vector<std::string> steps = files.Steps({"open folder", "sync", "rename", "sync folder"});
        ASSERT_GE(steps.size(), 4u);
        EXPECT_THAT(std::vector<std::string>(steps.end() - 4, steps.end()),
                    testing::ElementsAre("open folder", "sync", "rename", "sync folder"));
        EXPECT_TRUE(HasReport("DebugReport.zip")) << "until the other one is on the disk";
    }

    user.m_savePath = CPathString(CommonPath("DebugReport.zip").c_str()); // its present path
    CrashGenerateErrorReport(nullptr, false);
    EXPECT_TRUE(HasReport("DebugReport.zip"));
}

TEST_F(CCrashHandlerTest, TheNextStartFinishesWhatAPowerFailureLeft)
{
    tev::CrashRecord record;
    record.m_archiveFolder = m_folder.WidePath("common").c_str();
    record.m_writtenDump = m_folder.WriteFile("user/x.1.dmp", "half a dump").c_str();
    record.m_dump = m_folder.WidePath("user/x.dmp").c_str();
    record.m_files = {{m_folder.WriteFile("scene.obj", "v").c_str(), {}}, {m_folder.WidePath("missing").c_str(), {}}};
    const std::string bytes = tev::ComposeRecord(record);
    const std::string product = ProductBytes();
    std::filesystem::create_directories(m_folder.Path("common"));
    m_folder.WriteFile("user/" + product + ".1.crash", bytes);
    m_folder.WriteFile("user/" + product + ".2.crash", bytes.substr(0, 8));
    m_folder.WriteFile("user/other.1.crash", bytes);
    m_folder.WriteFile("common/DebugReport.zip.1/report.zip", "half an archive"); // of that process
    // What another user may have written is no record.
    m_folder.WriteFile("user/" + product + ".3.crash", bytes);
    std::filesystem::permissions(m_folder.Path("user/" + product + ".3.crash"), std::filesystem::perms::all);
    TestUser user;
    user.m_canAsk = false; // the event loop does not run yet
    CrashInstall(nullptr, L"A", L"1", xCrashReport);
    XOfferLeftReports();
    EXPECT_TRUE(m_folder.Exists("user/" + product + ".1.crash"));
    EXPECT_FALSE(HasReport("DebugReport.zip"));
    user.m_canAsk = true;
    user.m_whenAsked = [] { ForkElsewhere(nullptr); };
    const MailProgram mail(3);
    user.m_answer.m_send = true;
    XOfferLeftReports();
    EXPECT_EQ(g_asked, 5) << "a fork waits for no answer";
    EXPECT_EQ(mail.Words()[4], "No exceptions pointers. Report might be generated at startup.\r")
        << "no signal is noted";
    EXPECT_EQ(NamesInArchive(CommonPath("DebugReport.zip")),
              (std::set<std::wstring>{L"scene.obj", L"x.dmp", L"x.txt"}));
    EXPECT_EQ(user.m_files.size(), 4u);
    EXPECT_EQ(m_folder.Names("common"), std::set<std::string>{"DebugReport.zip"});
    const std::set<std::string> left = m_folder.Names("user");
    EXPECT_EQ(left.count(product + ".1.crash") + left.count(product + ".2.crash"), 0u);
    EXPECT_EQ(left.count("other.1.crash") + left.count(product + ".3.crash"), 2u);
}
} // namespace
