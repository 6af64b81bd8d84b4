#include "crash/CCrashHandler.h"

#include "crash/CrashPackage.h"
#include "crash/CrashPaths.h"
#include "objects/LastFailure.h"
#include "services/LogFile.h"
#include "tests/crash/CCrashHandlerFixture.h"
#include "tests/support/BusyFork.h"
#include "tests/support/CrashingProgram.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/FileFailure.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/PrintText.h"
#include "tests/support/Sanitized.h"
#include "text/InvalidParameter.h"
#include "text/Language.h"

namespace
{
using namespace tev::test;
using Text = CXTString<wchar_t>;

template <int ANSWER>
int CountAndAnswer(CCrashHandler*)
{
    ++g_asked;
    return ANSWER;
}
constexpr auto kCountAndReport = &CountAndAnswer<1>;
constexpr auto kCountAndRefuse = &CountAndAnswer<0>;

struct ReportsItsEnd : CXException
{
    explicit ReportsItsEnd(bool& isDeleted) : m_isDeleted(isDeleted) {}
    ~ReportsItsEnd() override { m_isDeleted = true; }
    bool& m_isDeleted;
};

CXArray<Text> Files(std::initializer_list<std::wstring> paths)
{
    CXArray<Text> files;
    for (const std::wstring& path : paths)
        files.Add(Text(path.c_str()));
    return files;
}

TEST_F(CCrashHandlerTest, TheSecondInstallationOnlyUpdates)
{
    CrashInstall(kCountAndReport, L"A", L"1", xCrashReport);
    CCrashHandler* const handler = CrashGetHandler();
    ASSERT_NE(handler, nullptr);
    CrashInstall(kCountAndRefuse, L"B", L"2", xFilesReport | xCrashNoCallback);
    EXPECT_EQ(CrashGetHandler(), handler);
    EXPECT_EQ(handler->GetMode(), xFilesReport);
    EXPECT_EQ(handler->GetFlags(), xFilesReport | xCrashNoCallback);
    // A refused report leaves the pending exception alone, one that is made deletes it.
    bool isDeleted = false;
    XSetThreadException(new ReportsItsEnd(isDeleted));
    CrashGenerateErrorReport(nullptr, false);
    EXPECT_EQ(g_asked, 1);
    EXPECT_FALSE(isDeleted);
    EXPECT_FALSE(HasReport("DebugReport.zip"));
    CrashGenerateErrorReport(nullptr, true);
    EXPECT_TRUE(isDeleted);
    CrashUninstall();
    EXPECT_EQ(CrashGetHandler(), nullptr);
    CrashGenerateErrorReport(nullptr, false);
    EXPECT_EQ(g_asked, 1);
}

void OnProgramSignal(int) {}
void OnProgramTerminate()
{
    std::abort();
}
void OnProgramNoMemory() {}
void OnProgramParameter(const char*, int) {}

TEST_F(CCrashHandlerThreadTest, UninstallingRestoresThePreviousHandlers)
{
    constexpr int kHooked[] = {SIGABRT, SIGINT, SIGTERM, SIGFPE, SIGILL, SIGSEGV, SIGBUS, SIGSYS, SIGTRAP};
    std::vector<void (*)(int)> before;
    for (const int signal : kHooked)
        before.push_back(std::signal(signal, OnProgramSignal));
    const auto terminate = std::set_terminate(OnProgramTerminate);
    const auto noMemory = std::set_new_handler(OnProgramNoMemory);
    const auto parameter = XSetInvalidParameterHandler(OnProgramParameter);

    CrashInstall(nullptr, L"A", L"1", xCrashReport);
    EXPECT_NE(std::get_terminate(), OnProgramTerminate);
    EXPECT_NE(std::get_new_handler(), OnProgramNoMemory);
    std::thread([] {
        CrashThreadInstall();
        CrashThreadUninstall();
        CrashThreadUninstall(); // the second has no effect
    }).join();
    EXPECT_NE(std::get_terminate(), OnProgramTerminate); // this thread still has its hooks
    CrashThreadUninstall();
    EXPECT_EQ(std::get_terminate(), OnProgramTerminate);
    CrashThreadInstall();
    CrashUninstall();

    EXPECT_EQ(std::set_terminate(terminate), OnProgramTerminate);
    EXPECT_EQ(std::set_new_handler(noMemory), OnProgramNoMemory);
    EXPECT_EQ(XSetInvalidParameterHandler(parameter), OnProgramParameter);
    for (std::size_t i = 0; i < std::size(kHooked); ++i)
        EXPECT_EQ(std::signal(kHooked[i], before[i]), OnProgramSignal) << kHooked[i];
}

TEST_F(CCrashHandlerTest, ASecondHandlerReplacesTheFirst)
{
    const auto terminate = std::get_terminate();
    {
        CCrashHandler first(nullptr, L"A", L"1", xCrashReport);
        const CCrashHandler second(nullptr, L"B", L"2", xCrashReport);
        EXPECT_EQ(CrashGetHandler(), &second);
    }
    EXPECT_EQ(CrashGetHandler(), nullptr);
    EXPECT_EQ(std::get_terminate(), terminate);
}

TEST_F(CCrashHandlerTest, PacksReadableFilesBelowTheLimitUnderUniqueNames)
{
    const std::size_t limit = CCrashHandler::GetFileSizeLimit();
    ASSERT_EQ(limit, 0x600000u);
    CrashInstall(nullptr, L"A", L"1", xCrashReport);
    constexpr const wchar_t* kUnreadable = L"/sys/class/net/lo/speed"; // which can be opened
    CrashGetHandler()->AddFiles(
        Files({m_folder.WriteFile("exact.bin", std::string(limit, 'x')),
               m_folder.WriteFile("below.bin", std::string(limit - 1, 'x')), m_folder.WriteFile("a/same.txt", "1"),
               m_folder.WriteFile("b/same.txt", "2"), m_folder.WriteFile("c/SAME.txt", "3"),
               m_folder.WidePath("missing.txt"), m_folder.WidePath("a"), L"/dev/zero", kUnreadable, L""}));
    SetLogFile(L"own.log", xLogCreate, 0xFF);
    CrashGenerateErrorReport(nullptr, false);
    CloseLogFile();
    EXPECT_EQ(NamesInArchive(CommonPath("DebugReport.zip")),
              (std::set<std::wstring>{L"below.bin", L"same.txt", L"same (1).txt", L"SAME (2).txt", Product() + L".dmp",
                                      Product() + L".txt", L"own.log"}));
}

TEST_F(CCrashHandlerTest, AFilesReportAddsItsFilesAndHasNoDump)
{
    CrashInstall(kCountAndReport, L"Viewer", L"3.1", xCrashReport);
    XSetLanguage(XLanguage::French);
    SetLogFile(L"own.log", xLogCreate, 0xFF);
    TestUser user;
    const std::wstring broken = m_folder.WriteFile("broken.obj", "v 1");
    CrashGenerateFilesErrorReport(Files({broken}), nullptr, true);
    EXPECT_EQ(g_asked, 0);
    EXPECT_EQ(CrashGetHandler()->GetFlags(), xFilesReport | xCrashNoCallback | xCrashWithoutPointers);
    EXPECT_EQ(NamesInArchive(CommonPath("FileReport.zip")), (std::set<std::wstring>{L"broken.obj", L"own.log"}));
    EXPECT_THAT(std::wstring(user.m_introduction), HasSubstr(L"File(s):\r\n" + broken));
    EXPECT_EQ(user.m_files.back().m_description, L"Journal d'erreur");
    Text size;
    size.LoadString(xTextReportSize);
    EXPECT_EQ(size, L"Taille");

    // A crash report has another name, a dump and details. The file stays in the handler's list.
    CrashGenerateErrorReport(nullptr, false);
    CloseLogFile();
    EXPECT_EQ(g_asked, 1);
    ASSERT_EQ(user.m_files.size(), 4u);
    EXPECT_EQ(user.m_files[1].m_description, L"Vidage m\u00e9moire");
    EXPECT_EQ(user.m_files[2].m_description, L"D\u00e9tails de l'erreur");
    EXPECT_EQ(NamesInArchive(CommonPath("DebugReport.zip")),
              (std::set<std::wstring>{L"broken.obj", Product() + L".dmp", Product() + L".txt", L"own.log"}));
}

TEST_F(CCrashHandlerTest, ReportsOnDemandLeakNothingAndKeepEarlierOnes)
{
    const auto before = OpenDescriptors();
    CrashInstall(nullptr, L"A", L"1", xCrashReport);
    const auto installed = OpenDescriptors();
    for (int i = 0; i < 5; ++i)
        CrashGenerateErrorReport(nullptr, false);
    EXPECT_EQ(OpenDescriptors(), installed);
    CrashUninstall();
    EXPECT_EQ(OpenDescriptors(), before);
    const std::set<std::string> reports = m_folder.Names("common");
    EXPECT_TRUE(reports.size() == 5 && reports.count("DebugReport.zip") == 1 && reports.count("DebugReport (4).zip"));
    for (const std::string& name : reports)
        EXPECT_EQ(NamesInArchive(CommonPath(name)), OwnFiles()) << name;
}

TEST_F(CCrashHandlerTest, WithoutFoldersAReportOnDemandGoesToTheTemporaryFiles)
{
    const EnvironmentVariable user("TEVTOOLS_USER_DATA", "/proc/none");
    const EnvironmentVariable common("TEVTOOLS_COMMON_DATA", "/proc/none");
    std::filesystem::create_directories(m_folder.Path("temporary"));
    const EnvironmentVariable temporary("TMPDIR", m_folder.Path("temporary").string());
    CrashInstall(nullptr, L"A", L"1", xCrashReport);
    CrashGenerateErrorReport(nullptr, false);
    const std::set<std::string> left = m_folder.Names("temporary");
    ASSERT_EQ(left.size(), 1u) << "the archive alone";
    EXPECT_EQ(NamesInArchive(m_folder.WidePath("temporary/" + *left.begin())), OwnFiles());
}

TEST_F(CCrashHandlerTest, AReportWhoseDumpFindsNoRoomHasTheDetails)
{
    if (kIsSanitized)
        GTEST_SKIP() << "the sanitizer's own files find no room either";
    const EnvironmentVariable temporary("TMPDIR", m_folder.Path("user").string());
    EXPECT_EQ(ResultInChild([] {
                  const rlimit little = {4096, 4096};
                  setrlimit(RLIMIT_FSIZE, &little);
                  const TestUser user;
                  CrashInstall(nullptr, L"A", L"1", xCrashReport);
                  CrashGenerateErrorReport(nullptr, false);
                  return static_cast<int>(user.m_files.size());
              }),
              1);
    EXPECT_EQ(NamesInArchive(CommonPath("DebugReport.zip")), std::set<std::wstring>{Product() + L".txt"});
    EXPECT_EQ(m_folder.Names("common"), std::set<std::string>{"DebugReport.zip"});
    EXPECT_EQ(m_folder.Names("user"), std::set<std::string>());
}

TEST_F(CCrashHandlerTest, TheNextStartRemovesTheFoldersThatEndedProcessesLeft)
{
    const EnvironmentVariable temporary("TMPDIR", m_folder.Path("temporary").string());
    const std::string product = ProductBytes();
    const std::string report = ".0123.DebugReport.zip";
    for (const std::string folder : {"common/DebugReport.zip.1", "common/x.FileReport.zip.1", "common/Report.zip.1x"})
        m_folder.WriteFile(folder + "/report.zip", "half an archive");
    for (const std::string& folder :
         {product + report + ".1", product + report + ".2", product + report, "o" + report + ".1"})
        m_folder.WriteFile("temporary/" + folder + "/A.dmp", "half a dump");
    m_folder.WriteFile("common/AnnualReport.zip.1", "another program's file");
    m_folder.WriteFile("temporary/" + product + report + ".2/lock", "");
    m_folder.WriteFile("temporary/" + product + report + ".1/lock", "");
    const tev::platform::LeftRecord inUse(m_folder.Path("temporary/" + product + report + ".2/lock").string());
    const tev::PrivateFolder own(m_folder.Path("common/DebugReport.zip"));
    CrashInstall(nullptr, L"A", L"1", xCrashReport);
    EXPECT_EQ(m_folder.Names("common"),
              (std::set<std::string>{"AnnualReport.zip.1", "Report.zip.1x", own.Path().filename().string()}));
    EXPECT_EQ(m_folder.Names("temporary"),
              (std::set<std::string>{product + report + ".2", product + report, "o" + report + ".1"}));
}

TEST_F(CCrashHandlerTest, ARefusedReportLeavesThePendingExceptionAlone)
{
    const auto refuse = [](auto& failing) {
        bool isDeleted = false;
        auto* const pending = new ReportsItsEnd(isDeleted);
        XSetThreadException(pending);
        // The other mode, so that what a crash needs is composed anew.
        CrashGetHandler()->SetFlags(xFilesReport);
        failing.Run([] { CrashGenerateErrorReport(nullptr, false); });
        failing.Run([] { CrashGenerateFilesErrorReport(Files({}), nullptr, false); });
        EXPECT_FALSE(isDeleted);
        EXPECT_EQ(XTakeThreadException(), pending);
        pending->Delete();
    };
    struct NothingFails
    {
        void Run(void (*call)()) { call(); }
    } nothing;
    CrashInstall(kCountAndRefuse, L"A", L"1", xFilesReport);
    const EnvironmentVariable user("TEVTOOLS_USER_DATA", "/proc/none");
    const EnvironmentVariable common("TEVTOOLS_COMMON_DATA", "/proc/none");
    refuse(nothing);
    EXPECT_EQ(g_asked, 2);
    EXPECT_GT(FailEachAllocation(refuse), 2u);
}

TEST_F(CCrashHandlerTest, AnInvalidParameterIsReportedAndThrown)
{
    CrashInstall(kCountAndReport, L"A", L"1", xCrashReport);
    EXPECT_EQ(Thrown([] { XStrCopy(static_cast<char*>(nullptr), 1, "text"); }), kInvalidArgument);
    EXPECT_EQ(g_asked, 1);
    EXPECT_TRUE(HasReport("DebugReport.zip"));
}

TEST_F(CCrashHandlerThreadTest, AForkedChildReportsOnlyWithAHandlerOfItsOwn)
{
    if (kIsSanitized)
        GTEST_SKIP() << "a sanitizer reports crashes by itself";
    CrashInstall(kCountAndReport, L"A", L"1", xCrashReport);
    EXPECT_EQ(EndOfChild([] { std::raise(SIGSEGV); }), kBySignal + SIGSEGV);
    EXPECT_EQ(EndOfChild([] { CrashGenerateErrorReport(nullptr, false); }), 99);
    EXPECT_FALSE(HasReport("DebugReport.zip"));
    const auto crashOnBareThread = [] {
        CrashInstall(kCountAndReport, L"B", L"1", xCrashReport);
        std::thread([] { std::raise(SIGSEGV); }).join();
    };
    EXPECT_EQ(EndOfChild(crashOnBareThread), kBySignal + SIGSEGV);
    EXPECT_TRUE(HasReport("DebugReport.zip"));
    CrashGenerateErrorReport(nullptr, false); // with the parent's helper, which still runs
    EXPECT_TRUE(HasReport("DebugReport (1).zip"));
}

TEST_F(CCrashHandlerThreadTest, AChildForkedDuringAReportIsNotLockedOut)
{
    CrashInstall(ForkElsewhere, L"A", L"1", xCrashReport);
    CrashGenerateErrorReport(nullptr, false);
    EXPECT_EQ(g_asked, 5);
}

TEST_F(CCrashHandlerTest, AForkedChildFindsTheSupportAddressWhole)
{
    if (kIsSanitized)
        GTEST_SKIP() << kNoBusyFork;
    const auto address = [](wchar_t letter) { return Text(std::wstring(100000, letter).c_str()); };
    const Text addresses[] = {address(L'a'), address(L'b')};
    const auto set = [&addresses] {
        for (const Text& chosen : addresses)
            XSetSupportAddress(chosen);
    };
    set();
    const auto isWhole = [&addresses] {
        const Text found = XGetSupportAddress();
        return found == addresses[0] || found == addresses[1];
    };
    constexpr int kForks = 20; // which wait for a moment at which nobody sets it
    EXPECT_EQ(ForkWhileBusy(set, isWhole, kForks), 0);
    XSetSupportAddress({});
}

TEST_F(CCrashHandlerTest, ProcessesThatReportAtTheSameTimeLoseNoReport)
{
    constexpr int kProcesses = 4;
    constexpr int kReports = 8;
    tev::CrashRecord record;
    record.m_archiveFolder = m_folder.WidePath("common").c_str();
    record.m_files = {{m_folder.WriteFile("scene.obj", "v").c_str(), {}}};
    std::filesystem::create_directories(m_folder.Path("common"));
    std::deque<ChildProcess> copies;
    for (int i = 0; i < kProcesses; ++i)
    {
        copies.emplace_back([&record] {
            for (int report = 0; report < kReports; ++report)
                tev::PackReport(record);
            return true;
        });
    }
    copies.clear();
    for (const std::string& name : m_folder.Names("common"))
        EXPECT_EQ(NamesInArchive(CommonPath(name)), std::set<std::wstring>{L"scene.obj"}) << name;
    constexpr auto kOwn = std::filesystem::perms::owner_read | std::filesystem::perms::owner_write;
    EXPECT_EQ(std::filesystem::status(m_folder.Path("common/DebugReport.zip")).permissions(), kOwn);
    EXPECT_EQ(m_folder.Names("common").size(), std::size_t{kProcesses * kReports});
}

class OpenHandler : public CCrashHandler
{
public:
    using CCrashHandler::CCrashHandler;
    using CCrashHandler::GenerateFilesErrorReport;
    using CCrashHandler::GetExceptionPointers;
    using CCrashHandler::MailReport;
    using CCrashHandler::SaveReport;
};

TEST_F(CCrashHandlerTest, TheReasonOfAFailureIsRecorded)
{
    TestUser user;
    OpenHandler handler(nullptr, L"A", L"1", xFilesReport);
    const std::filesystem::path archive = m_folder.WriteFile("a.zip", "an archive");
    const auto reason = [](bool hasSucceeded) {
        EXPECT_FALSE(hasSucceeded);
        const XFailure failure = XLastFailure();
        XClearLastFailure();
        return std::make_tuple(std::string(failure.GetOperation()).substr(15), failure.GetKind(),
                               failure.GetSystemError(), std::wstring(failure.GetPath()));
    };
    using Kind = XFailureKind;
    EXPECT_EQ(reason(handler.SaveReport(archive)),
              std::make_tuple("SaveReport", Kind::kCancelled, 0u, archive.wstring()));
    user.m_savePath = CPathString(archive);
    EXPECT_EQ(reason(handler.SaveReport(archive)),
              std::make_tuple("SaveReport", Kind::kArgument, 0u, archive.wstring()));
    const std::wstring lost = m_folder.WidePath("none/b.zip");
    user.m_savePath = CPathString(lost.c_str());
    EXPECT_EQ(reason(handler.SaveReport(archive)), std::make_tuple("SaveReport", Kind::kSystem, 2u, lost));
    EXPECT_TRUE(m_folder.Exists("a.zip"));
    EXPECT_EQ(reason(handler.MailReport(std::filesystem::path(lost), L"", L"")),
              std::make_tuple("MailReport", Kind::kSystem, 2u, lost));
    EXPECT_EQ(reason(handler.GetExceptionPointers(0, nullptr)),
              std::make_tuple("GetExceptionPointers", Kind::kArgument, 0u, L""));
    // A child that may write nothing.
    const auto report = [&] {
        const rlimit none = {0, 0};
        std::signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &none);
        _CR_EXCEPTION_INFO info;
        const auto [operation, kind, error, path] = reason(handler.ExceptionOccurs(&info, xFilesReport) != 0);
        return operation == "ExceptionOccurs" && kind != Kind::kNone ? 0 : 1;
    };
    EXPECT_EQ(ResultInChild(report), 0);
    _CR_EXCEPTION_INFO info;
    EXPECT_EQ(handler.ExceptionOccurs(&info, xFilesReport), 1);
    EXPECT_FALSE(XLastFailure()) << XLastFailure().GetOperation();
    EXPECT_EQ(Thrown([&] { handler.GenerateFilesErrorReport(L"", nullptr); }), kInvalidArgument) << "without a list";
}
} // namespace
