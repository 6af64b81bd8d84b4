// Ends of threads by the system (pthread_cancel, pthread_exit) inside the library.

#include "crash/CCrashHandler.h"
#include "files/CStdioFileEx.h"
#include "platform/FileSizeSignal.h"
#include "services/CWatchFolder.h"
#include "services/LogFile.h"
#include "services/Paths.h"
#include "settings/CCustomData.h"
#include "settings/CRegUtil.h"
#include "tests/support/Eventually.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TestRegistry.h"
#include "threads/ParallelFor.h"
#include "zip/CMiniZip.h"
#include "zip/CZip.h"

#include <pthread.h>

namespace
{
using namespace tev::test;

class Thread : public CXThread
{
public:
    explicit Thread(std::function<void()> body) : CXThread(true), m_body(std::move(body)) {}

protected:
    bool Run() override
    {
        m_body();
        return true;
    }

private:
    const std::function<void()> m_body;
};

// In a child, because the process would end.
TEST(Cancellation, EndsABodyThatUsesTheLibraryAndNothingElse)
{
    if (kIsSanitized)
        GTEST_SKIP() << "sanitizers do not follow a fork of several threads";
    const TempFolder folder;
    const TestRegistry registry;
    const EnvironmentVariable temporary("TMPDIR", folder.Path().string());
    folder.WriteFile("a.gz",
                     std::string("\x1F\x8B\x08\0\0\0\0\0\0\x03\xAB\0\0\x83\x16\xDC\x8C\x01\0\0\0", 21)); // of an x
    const auto path = [&folder](const char* name) { return CXTString<wchar_t>(folder.WidePath(name).c_str()); };
    const auto openRegistry = [](bool create) {
        CRegUtil keys(0x2001Fu);
        return keys.SetPath(L"HKEY_CURRENT_USER\\Software", create) && keys.WriteKeyInt(L"a", 1);
    };
    const std::pair<const char*, std::function<void()>> works[] = {
        {"log", [] { WriteToLogFile(L"text\n"); }},
        {"log, with its lock",
         [] {
             LogLock(true);
             WriteToLogFile(L"text\n");
             LogLock(false);
             CXThread::SleepCurrentThread(0);
         }},
        {"text file",
         [&] {
             CStdioFileEx file(true);
             file.Open(path("t.txt"), CXFile::modeCreate | CXFile::modeWrite | CXFile::typeText);
             file.WriteString(L"written by the destructor\n");
         }},
        {"store",
         [&] {
             CCustomData store;
             store.SetInt(1, 2);
             static_cast<void>(store.SaveToPrefs(path("a.prefs"), 1, 2));
         }},
        {"registry", [&] { openRegistry(true); }},
        {"unpacking",
         [&] {
             struct Sleeping : CMiniZip
             {
                 bool OnProgress(unsigned __int64, unsigned __int64) override
                 {
                     CXThread::SleepCurrentThread(0);
                     return true;
                 }
             } zip;
             static_cast<void>(zip.ExtractZip(path("a.gz"), {}, false));
             EXPECT_TRUE(zip.ExtractGZip(path("a.gz"), path("out"), false));
         }},
        {"watch",
         [&] {
             CWatchFolder watch;
             watch.AddRefreshNotification(path(""), true, 0xFF);
             watch.CheckRefreshNotification();
         }},
        {"loop", [] { XParallelFor(10, [](unsigned) {}); }},
        {"temporary folder",
         [] {
             std::filesystem::remove(std::wstring(fileCreateTemporaryFolder(L"cancelled").GetConstBuffer()));
             CXThread::SleepCurrentThread(0);
         }},
    };
    ASSERT_TRUE(SetLogFile(path("a.log"), xLogCreate, 0xFF));
    for (const auto& [what, work] : works)
    {
        const auto cancelOnce = [&, run = work](int rounds) {
            std::atomic<int> count{0};
            std::atomic<pthread_t> id{};
            Thread thread([&] {
                id = pthread_self();
                for (;; ++count)
                    run();
            });
            CXThread::BeginThread(&thread, xThreadPriorityNormal, CXThread::kBeginWithoutAutoDelete, 0);
            const bool ran = Eventually([&] { return id.load() != pthread_t{} && count >= rounds; });
            pthread_cancel(id);
            unsigned exitCode = 0;
            if (!ran || !thread.WaitForEnd(kLongTimeMs / 2) || !thread.GetExitCode(exitCode) || exitCode != 0xFFFFFFFFu)
                return 1;
            WriteToLogFile(L"after\n");
            return openRegistry(true) ? 0 : 2;
        };
        for (const int rounds : {0, 1, 2, 5})
            EXPECT_EQ(ResultInChild([&] { return cancelOnce(rounds); }), 0) << what << ' ' << rounds;
    }
    CloseLogFile();
}

TEST(Cancellation, IsNotTakenWhereAReportEnds)
{
    if (kIsSanitized)
        GTEST_SKIP() << "sanitizers do not follow a fork of several threads";
    EXPECT_EQ(ResultInChild([] {
                  bool isPassed = false;
                  Thread thread([&isPassed] {
                      pthread_cancel(pthread_self());
                      {
                          const tev::platform::WithoutFileSizeSignal withoutSignal;
                      }
                      isPassed = true;
                      CXThread::SleepCurrentThread(0);
                  });
                  CXThread::BeginThread(&thread, xThreadPriorityNormal, CXThread::kBeginWithoutAutoDelete, 0);
                  return thread.WaitForEnd(kLongTimeMs) && isPassed ? 0 : 1;
              }),
              0);
}

/// Ends its thread at the first call of OnProgress.
struct ExitingCallback : CZipExtractCallback
{
    int OnExtractEntry(const CZipFileInfo&, const wchar_t*) override { return 0; }
    bool OnProgress(unsigned __int64) override { pthread_exit(nullptr); }
};

// In children, because the process would end.
TEST(Cancellation, ACallbackMayEndItsThread)
{
    if (kIsSanitized)
        GTEST_SKIP() << "sanitizers do not follow a fork of several threads";
    const TempFolder folder;
    const EnvironmentVariable user("TEVTOOLS_USER_DATA", folder.Path("user").string());
    const EnvironmentVariable common("TEVTOOLS_COMMON_DATA", folder.Path("common").string());
    const std::wstring entry = folder.WriteFile("entry.txt", std::string(300000, 'x'));
    const auto zipPath = [&folder] { return folder.WidePath("a.zip"); };
    const auto save = [&](CZipExtractCallback* callback) {
        CZip zip;
        EXPECT_TRUE(zip.Open(zipPath().c_str(), zipCreate, false, callback));
        EXPECT_TRUE(zip.AddNewFile(entry.c_str(), L"entry.txt", zipLevelDefault));
        zip.Close(false);
        return zip.GetLastFailure() == XZipFailure::kNone;
    };
    const auto report = [&](int (*callback)(CCrashHandler*)) {
        CrashInstall(callback, L"A", L"1", xCrashReport);
        CrashGenerateErrorReport(nullptr, false);
        return folder.Exists("common/DebugReport.zip");
    };
    const struct
    {
        const char* what;
        std::function<void()> ending;
        std::function<bool()> again;
    } kWorks[] = {
        {"saving",
         [&] {
             ExitingCallback callback;
             save(&callback);
         },
         [&] {
             const std::filesystem::directory_iterator files(folder.Path());
             return !folder.Exists("a.zip") && std::distance(begin(files), end(files)) == 1 && save(nullptr);
         }},
        {"extracting",
         [&] {
             save(nullptr);
             CZip zip;
             ExitingCallback callback;
             zip.Open(zipPath().c_str(), zipOpenReadOnly, false, &callback);
             zip.ExtractFile(0, folder.WidePath().c_str(), false, L"out.txt", false);
         },
         [&] { return !folder.Exists("out.txt") && save(nullptr); }},
        {"report", [&] { report([](CCrashHandler*) -> int { pthread_exit(nullptr); }); },
         [&] { return !folder.Exists("common/DebugReport.zip") && report(nullptr); }},
    };
    for (const auto& work : kWorks)
    {
        const auto endAndGoOn = [&work] {
            Thread thread(work.ending);
            CXThread::BeginThread(&thread, xThreadPriorityNormal, CXThread::kBeginWithoutAutoDelete, 0);
            unsigned exitCode = 0;
            if (!thread.WaitForEnd(kLongTimeMs / 2) || !thread.GetExitCode(exitCode) || exitCode != 0xFFFFFFFFu)
                return 1;
            return work.again() ? 0 : 2;
        };
        EXPECT_EQ(ResultInChild(endAndGoOn), 0) << work.what;
    }
}
} // namespace
