#include "platform/ForkHandlers.h"

#include <gtest/gtest.h>

#include <string>

#include <sys/wait.h>
#include <unistd.h>

namespace
{
using tev::platform::ForkHandler;
using tev::platform::ForkRank;

bool g_logged = false;
std::string g_calls;

template <char NAME>
void Call()
{
    if (g_logged)
        g_calls += NAME;
}

const ForkHandler g_inner(ForkRank::SystemText, &Call<'c'>, &Call<'P'>, &Call<'C'>);
const ForkHandler g_outer(ForkRank::CrashRegistry, &Call<'a'>, &Call<'R'>, &Call<'A'>);
const ForkHandler g_middle(ForkRank::FileTypes, &Call<'b'>, nullptr, &Call<'B'>);
} // namespace

TEST(ForkHandlers, AreCalledByRankBeforeAForkAndBackwardsAfterIt)
{
    g_logged = true;
    const pid_t child = fork();
    if (child == 0)
        _exit(g_calls == "abcCBA" ? 0 : 1);
    g_logged = false;
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(g_calls, "abcPR");
}
