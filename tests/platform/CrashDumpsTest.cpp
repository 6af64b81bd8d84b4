#include "platform/CrashDumps.h"

#include "tests/support/Debugger.h"
#include "tests/support/Eventually.h"
#include "tests/support/TempFolder.h"

using namespace tev::platform;

namespace
{
using namespace tev::test;

std::atomic<bool> g_mayLeave{false};
std::atomic<int> g_waiting{0};

extern "C" [[gnu::noinline]] void WaitAsNamedFunction()
{
    ++g_waiting;
    while (!g_mayLeave)
        CXThread::SleepCurrentThread(1);
}

extern "C" [[gnu::noinline]] bool DumpAsNamedFunction(const char* path)
{
    const bool isWritten = WriteDumpNow(path, {});
    g_mayLeave = true;
    return isWritten;
}

/// Dumps this process while two threads wait in a function of that name.
std::string DumpAndAsk(const std::string& helper)
{
    const TempFolder folder;
    const std::string path = folder.Path("own.dmp").string();
    EndDumps();
    PrepareDumps(helper);
    EXPECT_EQ(HasDumpHelper(), !helper.empty());
    g_mayLeave = false;
    g_waiting = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i)
        threads.emplace_back(WaitAsNamedFunction);
    EXPECT_TRUE(Eventually([] { return g_waiting == 2; }));
    EXPECT_TRUE(DumpAsNamedFunction(path.c_str()));
    for (std::thread& thread : threads)
        thread.join();
    EndDumps();
    EXPECT_LT(std::filesystem::file_size(path), 6u << 20);
    return AskDebugger(path, "-o 'bt all' -o 'image list'");
}

void ExpectThreadsAndNames(const std::string& answer)
{
    EXPECT_THAT(answer, HasSubstr("thread #3"));
    EXPECT_THAT(answer, HasSubstr("DumpAsNamedFunction"));
    EXPECT_THAT(answer, HasSubstr("tevtools_tests"));
    std::size_t found = 0;
    int count = 0;
    while ((found = answer.find("WaitAsNamedFunction", found)) != answer.npos)
    {
        ++count;
        ++found;
    }
    EXPECT_GE(count, 2) << answer;
}

TEST(CrashDumpsThread, TheHelperWritesADumpThatADebuggerOpens)
{
    ExpectThreadsAndNames(DumpAndAsk(FindDumpHelper()));
}

TEST(CrashDumpsThread, WithoutHelperTheProcessWritesItsOwn)
{
    ExpectThreadsAndNames(DumpAndAsk(""));
}
} // namespace
