#include "services/LogFile.h"

#include "objects/ResultOr.h"
#include "platform/Threads.h"
#include "services/ApplicationName.h"
#include "services/CPathString.h"
#include "services/FileTypeRegistry.h"
#include "services/StartUp.h"
#include "tests/support/BusyFork.h"
#include "tests/support/Eventually.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/FileFailure.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/OnThreads.h"
#include "tests/support/PrintText.h"
#include "tests/support/TempFolder.h"
#include "text/CheckedFormat.h"
#include "threads/CCustomThread.h"
#include "threads/MainThread.h"
#include "threads/ParallelFor.h"
#include "threads/WorkerCount.h"

namespace
{
using namespace tev::test;

/// The log of one test. Texts are ASCII, so that a character of the file is a byte of the result.
class LogFile : public testing::Test
{
protected:
    LogFile()
    {
        SetLogLevel(0xFF);
        tev::SetMainThreadId(0); // an earlier test may have set it
    }
    ~LogFile() override
    {
        CloseLogFile();
        SetLogLevel(0xFF);
        tev::SetMainThreadId(0);
    }

    bool Open(const char* name, LogFileMode mode = xLogCreate, unsigned level = 0xFF)
    {
        return SetLogFile(m_folder.WidePath(name).c_str(), mode, level);
    }

    /// The file without its mark.
    std::string Text(const char* name) const
    {
        const std::string bytes = m_folder.ReadFile(name);
        EXPECT_EQ(bytes.substr(0, 2), "\xFF\xFE");
        EXPECT_EQ(bytes.size() % 2, 0U);
        std::string text;
        for (std::size_t i = 2; i < bytes.size(); i += 2)
        {
            text += bytes[i];
            EXPECT_EQ(bytes[i + 1], 0) << "at " << i;
        }
        return text;
    }

    /// The messages after the last header.
    std::string Messages(const char* name) const
    {
        const std::string text = Text(name);
        const std::string line = "\n*************************\n";
        const std::size_t header = text.rfind(line);
        return header == text.npos ? text : text.substr(header + line.size());
    }

    TempFolder m_folder;
};

using LogFileThread = LogFile;

TEST_F(LogFile, OpensOnceWithAHeader)
{
    ASSERT_TRUE(Open("a.log"));
    EXPECT_TRUE(IsLogFileEnabled());
    EXPECT_FALSE(Open("b.log", xLogCreate, 7)); // changes nothing
    EXPECT_EQ(SetLogLevel(0xFF), 0xFFU);
    EXPECT_FALSE(m_folder.Exists("b.log"));
    EXPECT_TRUE(CloseLogFile());
    EXPECT_FALSE(CloseLogFile());

    const std::string text = Text("a.log");
    const std::string start = "\n\n*************************\nLogging information for tevtools_tests (";
    const std::string end = ")\nRelease Mode\n*************************\n";
    ASSERT_GT(text.size(), start.size() + end.size());
    EXPECT_EQ(text.substr(0, start.size()), start);
    EXPECT_EQ(text.substr(text.size() - end.size()), end);
    EXPECT_NE(text.find(':', start.size()), text.npos) << "the time of day";
}

TEST_F(LogFile, TheModeDecidesAboutAnExistingFile)
{
    const auto writeTo = [&](LogFileMode mode, const wchar_t* message) {
        ASSERT_TRUE(Open("a.log", mode, xLogMute)); // mute: no header
        SetLogLevel(0xFF);
        WriteToLogFile(message);
        CloseLogFile();
    };
    writeTo(xLogNumber, L"one\n");
    writeTo(xLogAppend, L"two\n");
    EXPECT_EQ(Text("a.log"), "one\ntwo\n");
    writeTo(xLogNumber, L"three\n");
    writeTo(xLogNumber, L"four\n");
    EXPECT_EQ(Text("a (1).log"), "three\n");
    EXPECT_EQ(Text("a (2).log"), "four\n");
    writeTo(xLogCreate, L"five\n");
    EXPECT_EQ(Text("a.log"), "five\n");
    writeTo(xLogCreate, L"");
    EXPECT_EQ(Text("a.log"), ""); // with the mark all the same
}

TEST_F(LogFile, TextObjectsAreArgumentsOfMessages)
{
    ASSERT_TRUE(Open("a.log", xLogCreate, 0xFF));
    const CPathString path(L"folder/file");
    const std::wstring wide = L"wide";
    const std::string narrow = "narrow";
    SetLogLevel(2);
    WriteToLogFile(0, L"x %d\n", 1);
    WriteToLogFile(0, L"%s %s %d\n", path, wide, 2);
    WriteToLogFile(2u, "%s %c\n", std::string_view(narrow).substr(0, 2), 'c');
    WriteToLogFile(CXTString<wchar_t>(L"%s\n"), wide);
    WriteToLogFile("%s\n", CXTString<char>("n"));
    WriteToLogFile(X_FORMAT(L"%s %hs\n"), wide, narrow);
    WriteToLogFile(2, X_FORMAT("%s %ls\n"), narrow, wide);
    WriteToLogFile(3, L"%s\n", wide); // above the threshold
    WriteToLogFile(3, X_FORMAT("%s\n"), narrow);
    EXPECT_EQ(Messages("a.log"), "x 1\nfolder/file wide 2\nna c\nwide\nn\nwide narrow\nnarrow wide\n");
}

TEST_F(LogFile, LinesGetThePrefixThatTheHostChose)
{
    ASSERT_TRUE(Open("a.log"));
    EXPECT_EQ(SetLogPrefix(xLogPrefixLevel), 0U);
    WriteToLogFile(2U, L"begun ");
    WriteToLogFile("and ended\n"); // the same line
    WriteToLogFile("%s\n\n", "two");
    WriteToLogFile(L"\nempty\n");
    LogFileAddTab(true);
    WriteToLogFile(1U, "");
    WriteToLogFile(1U, "deeper\r");
    EXPECT_EQ(SetLogPrefix(xLogPrefixTime | xLogPrefixThread | xLogPrefixLevel), xLogPrefixLevel);
    WriteToLogFile(L"all\n");
    SetLogPrefix(xLogPrefixThread);
    WriteToLogFile(L"thread\n");
    EXPECT_EQ(SetLogPrefix(xLogNoPrefix), xLogPrefixThread);
    WriteToLogFile(L"none\n");
    LogFileAddTab(false);
    const std::string thread = std::to_string(tev::platform::CurrentThreadId());
    const std::string time = "\\[[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z ";
    EXPECT_THAT(Messages("a.log"),
                testing::MatchesRegex("\\[L2\\] begun and ended\n\\[L-\\] two\n\n\nempty\n\t\\[L1\\] \tdeeper\r" +
                                      time + thread + " L-\\] \tall\n\\[" + thread + "\\] \tthread\n\tnone\n"));
}

TEST_F(LogFile, AFailureToOpenLeavesTheLevelOnly)
{
    EXPECT_FALSE(Open("none/a.log", xLogCreate, 1));
    EXPECT_FALSE(Open("a.log", static_cast<LogFileMode>(3), 2));
    EXPECT_FALSE(m_folder.Exists("a.log"));
    EXPECT_EQ(SetLogLevel(0xFF), 2U);
    EXPECT_FALSE(IsLogFileEnabled());
    WriteToLogFile(L"nowhere\n");
    EXPECT_EQ(LogFileAddTab(true), 0U);
}

TEST_F(LogFile, ANameWithoutFolderIsPutIntoTheDataFolder)
{
    setenv("TEVTOOLS_USER_DATA", m_folder.Path("data").c_str(), 1);
    EXPECT_TRUE(SetLogFile(L"app.log", xLogCreate, 0xFF));
    unsetenv("TEVTOOLS_USER_DATA");
    EXPECT_TRUE(m_folder.Exists("data/app.log"));
}

TEST_F(LogFile, TheLevelWordFiltersMessages)
{
    ASSERT_TRUE(Open("a.log", xLogCreate, 0x05));
    WriteToLogFile(5U, L"%s %d|", L"five", 5);
    WriteToLogFile(6U, L"six|");
    WriteToLogFile(5U, "%s|", "narrow five");
    WriteToLogFile(6U, "narrow six|");
    WriteToLogFile(L"any|");
    WriteToLogFile("%s|", "narrow any");
    WriteToLogFile(static_cast<const wchar_t*>(nullptr));
    WriteToLogFile(1U, static_cast<const char*>(nullptr));
    EXPECT_EQ(SetLogLevel(0x105), 0x05U);
    EXPECT_FALSE(IsLogFileEnabled());
    WriteToLogFile(5U, L"off|");
    WriteToLogFile(L"off|");
    SetLogLevel(0x2FF);
    EXPECT_TRUE(IsLogFileEnabled());
    WriteToLogFile(5U, L"mute|");
    WriteToLogFile("mute|");
    EXPECT_EQ(Messages("a.log"), "five 5|narrow five|any|narrow any|");
    CloseLogFile();
    EXPECT_EQ(SetLogLevel(0x200), 0x2FFU);
    EXPECT_TRUE(IsLogFileEnabled());
    SetLogLevel(0xFF);
    EXPECT_FALSE(IsLogFileEnabled());
}

TEST_F(LogFile, TabsIndentTheThreadsMessagesUpToTheThreshold)
{
    ASSERT_TRUE(Open("a.log", xLogCreate, 2));
    EXPECT_EQ(LogFileAddTab(false), 0U);
    WriteToLogFile(L"0\n");
    for (unsigned depth = 1; depth <= 3; ++depth)
        EXPECT_EQ(LogFileAddTab(true), depth);
    EXPECT_FALSE(IsLogFileEnabled());
    SetLogLevel(0x202);
    EXPECT_FALSE(IsLogFileEnabled()) << "the depth counts while the log is mute";
    SetLogLevel(0xFF);
    EXPECT_TRUE(IsLogFileEnabled());
    SetLogLevel(2);
    WriteToLogFile(L"too deep\n");
    EXPECT_EQ(LogFileAddTab(false), 2U);
    EXPECT_TRUE(IsLogFileEnabled());
    WriteToLogFile(L"2\n");
    std::thread([] { WriteToLogFile(L"other thread\n"); }).join();
    EXPECT_EQ(LogFileAddTab(false), 1U);
    EXPECT_EQ(LogFileAddTab(false), 0U);
    WriteToLogFile(L"0\n");
    {
        const CXLogTab first;
        const CXLogTab second;
        WriteToLogFile(L"guarded\n");
    }
    EXPECT_EQ(LogFileAddTab(true), 1U);
    EXPECT_EQ(Messages("a.log"), "0\n\t\t2\nother thread\n0\n\t\tguarded\n");
    CloseLogFile();
    std::optional<CXLogTab> none(std::in_place);
    ASSERT_TRUE(Open("c.log"));
    EXPECT_EQ(LogFileAddTab(true), 1U);
    none.reset();
    EXPECT_EQ(LogFileAddTab(true), 2U) << "a guard takes back what it has added, and nothing else";
    CloseLogFile();
    ASSERT_TRUE(Open("b.log"));
    EXPECT_EQ(LogFileAddTab(false), 0U) << "closing deletes the tabs";
}

TEST_F(LogFile, TheMainThreadsTabsIndentAllThreads)
{
    ASSERT_TRUE(Open("a.log", xLogCreate, 2));
    tev::SetMainThreadId(tev::platform::CurrentThreadId());
    LogFileAddTab(true);
    const auto onAnother = [](auto work) { std::thread(work).join(); };
    onAnother([] { WriteToLogFile(L"1\n"); });
    onAnother([] {
        LogFileAddTab(true);
        LogFileAddTab(true);
        WriteToLogFile(L"1, own 2\n");
        LogFileAddTab(true);
        WriteToLogFile(L"own 3: too deep\n");
        while (LogFileAddTab(false) != 0)
            continue;
    });
    LogFileAddTab(true);
    LogFileAddTab(true);
    onAnother([] { WriteToLogFile(L"main 3: too deep\n"); });
    EXPECT_EQ(Messages("a.log"), "\t1\n\t1, own 2\n");
}

TEST_F(LogFile, TheStartOfAnApplicationIsLogged)
{
    ASSERT_TRUE(Open("a.log"));
    InitFerngateApplication();
    EXPECT_EQ(tev::MainThreadId(), tev::platform::CurrentThreadId());
    const std::string count = std::to_string(OMPGetMaxThreadCount());
    // Clashes of names of classes may follow.
    EXPECT_EQ(Messages("a.log").find("InitFerngateApplication\n" + count +
                                     " core will be used by default (use OMPSetMaxThreadCount, or define "
                                     "OMP_NUM_THREADS under linux, to change the behavior)\n"),
              0u)
        << Messages("a.log");
    tev::SetMainThreadId(0);
    InitTevTools();
    EXPECT_EQ(GetApplicationMainThreadID(), tev::platform::CurrentThreadId());
}

TEST_F(LogFileThread, AShutdownThatTakesLongIsLogged)
{
    struct Worker : CCustomThread
    {
        bool Run() override
        {
            XParallelFor(1, [this](unsigned) { Eventually([this] { return m_mayEnd.load(); }); });
            return true;
        }
        std::atomic<bool> m_mayEnd{false};
    };
    const auto before = CCustomThread::SetDelayReport(nullptr);
    ASSERT_TRUE(Open("a.log", xLogCreate, xLogMute));
    InitFerngateApplication();
    SetLogLevel(0xFF);
    const auto logOf = [&](const std::string& worker) {
        EXPECT_FALSE(CCustomThread::EndThreads(1));
        EXPECT_EQ(Messages("a.log"), "The shutdown waits for 1 workers\n  thread " + worker + "\n");
        std::filesystem::resize_file(m_folder.Path("a.log"), 0);
    };
    {
        Worker worker;
        CXThread::BeginThread(&worker, xThreadPriorityNormal, CXThread::kBeginWithoutAutoDelete, 0);
        const std::string id = std::to_string(worker.GetThreadID());
        EXPECT_TRUE(Eventually([] {
            CXArray<CXWorkerState> workers;
            return CCustomThread::GetWorkers(workers) == 1 && workers[0].m_operation != nullptr;
        }));
        logOf(id + " is in a parallel loop");
        worker.m_mayEnd = true;
        EXPECT_TRUE(worker.WaitForEnd(kLongTimeMs));
        logOf(id + " is ended, but its object is not deleted");
    }
    {
        const Worker worker;
        logOf("0 is not started, but its object is not deleted");
    }
    EXPECT_TRUE(CCustomThread::EndThreads(1));
    EXPECT_EQ(m_folder.ReadFile("a.log"), "");
    CCustomThread::SetDelayReport(before);
}

TEST_F(LogFile, AFullDiskIsReportedAndTheLogGoesOn)
{
    FailingFileSystem fileSystem;
    ASSERT_TRUE(Open("a.log"));
    fileSystem.LimitSpace(3);
    EXPECT_EQ(Thrown([] { WriteToLogFile(L"late\n"); }), fileDiskFull);
    fileSystem.LimitSpace(1 << 20);
    WriteToLogFile(L"after\n");
    EXPECT_EQ(Messages("a.log"), "late\nafter\n");
    const std::tuple<unsigned, std::uintmax_t, const char*> cuts[] = {
        {3, 0, " te\n!\n"}, {4, 0, "te\n!\n"}, {4, 4, "tte\n!\n"}, {3, 5, "ttte\n!\n"}};
    for (const auto& [room, size, text] : cuts) // what was not written goes to the new end
    {
        SCOPED_TRACE(testing::Message() << room << ' ' << size);
        fileSystem.LimitSpace(room);
        EXPECT_EQ(Thrown([] { WriteToLogFile(L"late\n"); }), fileDiskFull);
        std::filesystem::resize_file(m_folder.Path("a.log"), size);
        fileSystem.LimitSpace(1 << 20);
        WriteToLogFile(L"!\n");
        EXPECT_EQ(Text("a.log"), text);
    }
    CloseLogFile();
    fileSystem.LimitSpace(10);
    EXPECT_FALSE(Open("b.log")) << "the header does not fit";
    EXPECT_TRUE(Open("c.log", xLogCreate, xLogMute));
}

TEST_F(LogFile, MessagesGoToTheEndOfAFileThatOthersChange)
{
    ASSERT_TRUE(Open("a.log", xLogCreate, xLogMute));
    SetLogLevel(0xFF);
    WriteToLogFile(L"one\n");
    std::filesystem::resize_file(m_folder.Path("a.log"), 0);
    WriteToLogFile(L"two\n");
    EXPECT_EQ(Text("a.log"), "two\n") << "with the mark again";
    std::ofstream(m_folder.Path("a.log"), std::ios::app | std::ios::binary) << std::string("x\0", 2);
    WriteToLogFile(L"three\n");
    EXPECT_EQ(Text("a.log"), "two\nxthree\n");
    std::filesystem::resize_file(m_folder.Path("a.log"), 7); // in the middle of the 'o'
    WriteToLogFile(L"!\n");
    EXPECT_EQ(Text("a.log"), "tw!\n");
}

TEST_F(LogFile, WhereTheEndCannotBeFoundNothingIsWritten)
{
    const auto write = [](const wchar_t* message) {
        return tev::ResultOr(false, [message] {
            WriteToLogFile(message);
            return true;
        });
    };
    ASSERT_TRUE(Open("a.log", xLogCreate, xLogMute));
    SetLogLevel(0xFF);
    EXPECT_TRUE(write(L"one\n"));
    FailingFileSystem fileSystem;
    fileSystem.FailEach("seek", EIO);
    EXPECT_FALSE(write(L"two\n"));
    CloseLogFile();
    EXPECT_FALSE(Open("a.log", xLogAppend));
    fileSystem.FailEach("", 0);
    ASSERT_TRUE(Open("a.log", xLogAppend, xLogMute));
    SetLogLevel(0xFF);
    EXPECT_TRUE(write(L"three\n"));
    EXPECT_EQ(Text("a.log"), "one\nthree\n");
}

TEST_F(LogFile, TheIndentationOfAThreadThatForksGoesOnInTheChild)
{
    ASSERT_TRUE(Open("a.log", xLogCreate, xLogMute));
    SetLogLevel(2);
    tev::SetMainThreadId(tev::platform::CurrentThreadId());
    LogFileAddTab(true);
    std::thread([] {
        LogFileAddTab(true);
        LogFileAddTab(true);
        EXPECT_EQ(ResultInChild([] {
                      WriteToLogFile(L"child of a worker\n"); // which is the main thread there
                      return static_cast<int>(LogFileAddTab(false));
                  }),
                  1);
        WriteToLogFile(L"worker\n");
    }).join();
    EXPECT_EQ(ResultInChild([] {
                  WriteToLogFile(L"child\n");
                  LogFileAddTab(true);
                  LogFileAddTab(true);
                  WriteToLogFile(L"too deep\n");
                  return static_cast<int>(LogFileAddTab(false));
              }),
              2);
    EXPECT_EQ(Messages("a.log"), "\t\tchild of a worker\n\tworker\n\tchild\n");
}

TEST_F(LogFile, APipeCanBeTheLog)
{
    const std::string path = m_folder.Path("pipe").string();
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    ASSERT_TRUE(Open("pipe", xLogAppend, xLogMute));
    SetLogLevel(0xFF);
    WriteToLogFile(L"a");
    WriteToLogFile(L"b");
    char bytes[16];
    const ssize_t size = read(reader, bytes, sizeof bytes);
    close(reader);
    EXPECT_EQ(std::string(bytes, static_cast<std::size_t>(std::max<ssize_t>(size, 0))), "\xFF\xFE"s + "a\0b\0"s);
}

TEST_F(LogFile, KeepsWhatIsWrittenUntilTheVeryEndOfAProcess)
{
    const auto run = [&](const char* name, void (*body)()) {
        std::fflush(nullptr); // or the child would print it again
        ResultInChild([&] {
            Open(name);
            body();
            return 0;
        });
        return Messages(name);
    };
    EXPECT_EQ(run("killed.log",
                  [] {
                      WriteToLogFile(L"last words\n");
                      std::raise(SIGKILL);
                  }),
              "last words\n");
    EXPECT_EQ(run("left.log",
                  [] {
                      std::atexit([] { WriteToLogFile(L"exit\n"); });
                      std::thread([] {
                          struct AtEnd
                          {
                              ~AtEnd() { WriteToLogFile(L"end of a thread\n"); }
                          };
                          thread_local const AtEnd atEnd;
                          static_cast<void>(&atEnd);
                      }).join();
                      std::exit(0);
                  }),
              "end of a thread\nexit\n");
}

TEST_F(LogFile, AChildProcessLogsWhileThreadsOfTheParentDo)
{
    constexpr int kForks = kBusyForks / 3;
    ASSERT_TRUE(Open("a.log", xLogCreate, xLogMute));
    SetLogLevel(0xFF);
    const auto work = [] {
        WriteToLogFile(L"parent\n");
        fileGetClass(L"a.zip");
        XSetApplicationName(L"tevtools_tests");
    };
    const auto inChild = [] {
        WriteToLogFile(L"child %d\n", static_cast<int>(getpid()));
        return fileGetClass(L"a.zip") != 0 && XGetApplicationName() == L"tevtools_tests";
    };
    work();
    EXPECT_EQ(ForkWhileBusy(work, inChild, kForks), 0);
    XSetApplicationName(L"");
    std::set<std::string> children;
    std::istringstream lines(Text("a.log"));
    for (std::string line; std::getline(lines, line);)
    {
        if (line != "parent")
        {
            EXPECT_TRUE(line.rfind("child ", 0) == 0 && children.insert(line).second) << line;
        }
    }
    EXPECT_EQ(children.size(), static_cast<std::size_t>(kForks));
}

TEST_F(LogFileThread, MessagesOfManyThreadsNeverMix)
{
    ASSERT_TRUE(Open("a.log", xLogCreate, 0x20));
    constexpr int kThreads = 4;
    constexpr int kMessages = 200;
    OnThreads(kThreads, [](int thread) {
        for (int message = 0; message < kMessages; ++message)
        {
            LogFileAddTab(true);
            LogLock(true);
            WriteToLogFile(L"%d first\n", thread);
            SetLogLevel(0x20);
            WriteToLogFile(3U, "%d second\n", thread);
            LogLock(false);
            LogFileAddTab(false);
        }
    });
    const std::string text = Messages("a.log");
    std::size_t position = 0;
    for (int pair = 0; pair < kThreads * kMessages; ++pair)
    {
        const std::string first = text.substr(position, 9);
        std::string second = first;
        second.replace(3, 5, "second");
        ASSERT_EQ(first.substr(2), " first\n") << pair;
        ASSERT_EQ(text.substr(position + 9, 10), "\t" + std::string(1, first[1]) + " second\n") << pair;
        position += 19;
    }
    EXPECT_EQ(position, text.size());
}

TEST_F(LogFileThread, AHeldLockKeepsOthersWaiting)
{
    ASSERT_TRUE(Open("a.log"));
    std::optional<CXLogLock> lock(std::in_place);
    WriteToLogFile(L"first\n");
    std::promise<void> started;
    std::thread other([&] {
        started.set_value();
        WriteToLogFile(L"other\n");
    });
    started.get_future().wait();
    for (int i = 0; i < 100; ++i)
        WriteToLogFile(L"x");
    WriteToLogFile(L"\n");
    lock.reset();
    other.join();
    EXPECT_EQ(Messages("a.log"), "first\n" + std::string(100, 'x') + "\nother\n");
}
} // namespace
