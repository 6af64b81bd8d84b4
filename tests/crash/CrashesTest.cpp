// Real crashes, in a separate program.

#include "crash/XMinidump.h"
#include "tests/support/CrashingProgram.h"
#include "tests/support/Debugger.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TestRegistry.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <random>
#include <thread>

#include <gmock/gmock.h>
#include <sys/syscall.h>

using namespace tev::test;
using testing::HasSubstr;

namespace
{
class Crashes : public testing::Test
{
protected:
    void SetUp() override
    {
        if (kIsSanitized)
            GTEST_SKIP() << "a sanitizer reports crashes by itself";
    }
};
using CrashesThread = Crashes;

constexpr int kCaughtNoMemory = 30;
constexpr int kCaughtInvalidArgument = 31;
constexpr int kBySignal = 128;

struct CrashRow
{
    std::vector<std::string> arguments;
    int exitCode;
    unsigned signal; ///< in the dump, 0 for none
    bool hasReport = true;
};

/// Expects the documented report: one archive, with the log and a dump of that signal.
void ExpectReport(const CrashingProgram& program, const CrashRow& row)
{
    if (!row.hasReport)
    {
        EXPECT_TRUE(program.Reports().empty());
        EXPECT_FALSE(program.Folder().Exists("user/example_crash.dmp"));
        return;
    }
    EXPECT_EQ(program.Reports(), std::set<std::string>{"DebugReport.zip"});
    EXPECT_EQ(NamesInArchive(program.Folder().WidePath("common/DebugReport.zip")),
              (std::set<std::wstring>{L"example_crash.dmp", L"crash.log"}));
    XMinidump dump;
    ASSERT_TRUE(dump.Load(program.Folder().WidePath("user/example_crash.dmp").c_str()));
    EXPECT_EQ(dump.GetSignal(), row.signal);
    ASSERT_GE(dump.GetFaultThread(), 0);
    EXPECT_FALSE(dump.GetStack(dump.GetFaultThread()).empty());
}

void ExpectNothingLeft(const CrashingProgram& program)
{
    for (const auto& entry : std::filesystem::directory_iterator(program.Folder().Path("user")))
        EXPECT_THAT((std::set<std::string>{"crash.log", "example_crash.dmp"}),
                    testing::Contains(entry.path().filename().string()));
}

void Expect(const CrashRow& row, const std::string& helper)
{
    SCOPED_TRACE(testing::PrintToString(row.arguments) + helper);
    CrashingProgram program(row.arguments, helper);
    EXPECT_EQ(program.Wait(), row.exitCode);
    ExpectReport(program, row);
    ExpectNothingLeft(program);
}

TEST_F(CrashesThread, EachEndsAsDocumentedWithOneReport)
{
    const CrashRow kRows[] = {
        {{"terminate"}, 1, 0},
        {{"unexpected"}, 1, 0},
        {{"pure-call"}, kCaughtNoMemory, 0},
        {{"no-memory"}, kCaughtNoMemory, 0},
        {{"invalid-parameter"}, kCaughtInvalidArgument, 0},
        {{"abort"}, 1, SIGABRT},
        {{"division"}, 1, SIGFPE},
        {{"illegal-instruction"}, 1, SIGILL},
        {{"interrupt"}, 1, SIGINT},
        {{"segment-violation"}, 1, SIGSEGV},
        {{"termination"}, 1, SIGTERM},
        {{"trap"}, kBySignal + SIGTRAP, SIGTRAP},
        {{"overflow"}, 1, SIGSEGV},
        {{"heap"}, 1, SIGABRT},
        {{"log"}, 1, SIGSEGV},
        {{"descriptors"}, 1, SIGSEGV},
        {{"overflow", "worker"}, 1, SIGSEGV},
        {{"heap", "worker"}, 1, SIGABRT},
        {{"log", "worker"}, 1, SIGSEGV},
        {{"segment-violation", "two"}, 1, SIGSEGV},
        {{"terminate", "two"}, 1, 0},
        {{"segment-violation", "bare"}, kBySignal + SIGSEGV, SIGSEGV},
        {{"terminate", "bare"}, 1, SIGABRT},
        {{"segment-violation", "main", "no-report"}, 1, 0, false},
        {{"terminate", "main", "no-report"}, 1, 0, false},
        {{"segment-violation", "main", "crash"}, 1, SIGSEGV},
        {{"demand", "main", "crash"}, 1, SIGSEGV},
        {{"demand"}, 0, 0},
        {{"demand", "main", "no-report"}, 0, 0, false},
    };
    for (const CrashRow& row : kRows)
    {
        Expect(row, "");
        Expect(row, "/no/helper");
    }
}

TEST_F(CrashesThread, TheProcessEndsWhenTheCallbackHangs)
{
    const auto start = std::chrono::steady_clock::now();
    Expect({{"segment-violation", "main", "hang"}, 1, SIGSEGV}, "");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

TEST_F(CrashesThread, WithoutHelperTheNextStartFinishesTheReport)
{
    CrashingProgram program({"segment-violation", "main", "hang"}, "/no/helper");
    EXPECT_EQ(program.Wait(), 1);
    EXPECT_TRUE(program.Reports().empty());
    const EnvironmentVariable user("TEVTOOLS_USER_DATA", program.Folder().Path("user").string());
    const EnvironmentVariable common("TEVTOOLS_COMMON_DATA", program.Folder().Path("common").string());
    const std::string again = std::string(TEVTOOLS_CRASH_EXAMPLE) + " demand main no-report >/dev/null";
    EXPECT_EQ(std::system(again.c_str()), 0);
    ExpectReport(program, {{}, 1, SIGSEGV});
    ExpectNothingLeft(program);
}

TEST_F(CrashesThread, ADebuggerFindsTheSignalTheThreadsAndTheFunction)
{
    CrashingProgram program({"segment-violation", "many"});
    EXPECT_EQ(program.Wait(), 1);
    const std::string answer = AskDebugger(program.Folder().Path("user/example_crash.dmp").string(),
                                           "-o 'thread info' -o bt -o 'thread list'");
    EXPECT_THAT(answer, HasSubstr("SIGSEGV"));
    EXPECT_THAT(answer, HasSubstr("WriteNowhere"));
    EXPECT_THAT(answer, HasSubstr("thread #200:"));
}

/// A random thread of the program, but not the one that waits for crashes: its faults are not the program's.
pid_t AnyThread(pid_t process, std::mt19937& random)
{
    std::vector<pid_t> threads;
    const std::string folder = "/proc/" + std::to_string(process) + "/task/";
    for (const auto& entry : std::filesystem::directory_iterator(folder))
    {
        std::string name;
        std::getline(std::ifstream(entry.path() / "comm"), name);
        if (name != "crash reporter")
            threads.push_back(std::stoi(entry.path().filename().string()));
    }
    return threads[random() % threads.size()];
}

// TEVTOOLS_RANDOM_FAULTS sets how many; a few hundred take some minutes.
TEST_F(CrashesThread, RandomSignalsAtRandomMomentsOnRandomThreads)
{
    const char* const wish = std::getenv("TEVTOOLS_RANDOM_FAULTS");
    const int count = wish == nullptr ? 30 : std::atoi(wish);
    const char* const seedWish = std::getenv("TEVTOOLS_RANDOM_SEED");
    const unsigned seed = seedWish == nullptr ? 20 : static_cast<unsigned>(std::atoi(seedWish));
    std::mt19937 random(seed);
    constexpr int kSignals[] = {SIGSEGV, SIGABRT, SIGFPE, SIGILL, SIGINT, SIGTERM, SIGBUS, SIGSYS, SIGTRAP};
    for (int i = 0; i < count; ++i)
    {
        const int signal = kSignals[random() % std::size(kSignals)];
        const bool hasHelper = random() % 4 != 0;
        SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(i) + ", signal " +
                     std::to_string(signal) + (hasHelper ? "" : ", no helper"));
        CrashingProgram program({"run", "two"}, hasHelper ? "" : "/no/helper");
        program.AwaitLines(2);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
        ASSERT_EQ(syscall(SYS_tgkill, program.Process(), AnyThread(program.Process(), random), signal), 0);
        const bool isOther = signal == SIGBUS || signal == SIGSYS || signal == SIGTRAP;
        EXPECT_EQ(program.Wait(), isOther ? kBySignal + signal : 1);
        ExpectReport(program, {{}, 1, static_cast<unsigned>(signal)});
        ExpectNothingLeft(program);
    }
}
} // namespace
