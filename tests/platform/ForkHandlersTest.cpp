#include "platform/ForkHandlers.h"
#include "platform/CalendarTime.h"
#include "platform/CodePages.h"
#include "platform/SystemErrors.h"
#include "tests/support/BusyFork.h"
#include "tests/support/ForkedChild.h"

namespace
{
using namespace tev::test;

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
TEST(ForkHandlers, AreCalledByRankBeforeAForkAndBackwardsAfterIt)
{
    g_logged = true;
    EXPECT_EQ(ResultInChild([] { return g_calls == "abcCBA" ? 0 : 1; }), 0);
    g_logged = false;
    EXPECT_EQ(g_calls, "abcPR");
}

TEST(ForkHandlers, TheSystemsConversionsWorkInAChildOfABusyProcess)
{
    if (kIsSanitized)
        GTEST_SKIP() << kNoBusyFork;
    constexpr int kSlowForks = kBusyForks / 8; // whose children open twelve converters each
    const std::tuple<const char*, int, bool (*)()> cases[] = {
        {"code pages", kSlowForks,
         [] {
             // More than a thread keeps open.
             for (const unsigned codePage :
                  {1250u, 1251u, 1252u, 1253u, 1254u, 1256u, 1257u, 932u, 936u, 949u, 950u, 437u})
             {
                 std::wstring text;
                 if (!tev::platform::DecodeCodePage(codePage, "a", 1, text) || text != L"a")
                     return false;
             }
             return true;
         }},
        {"local time", kBusyForks,
         [] {
             std::tm fields{};
             std::int64_t seconds = 0;
             return tev::platform::ToLocalTime(86400, fields) && tev::platform::FromLocalTime(fields, seconds) &&
                    seconds == 86400;
         }},
        {"universal time", kBusyForks,
         [] {
             std::tm fields{};
             return tev::platform::ToUtcTime(86400, fields) && fields.tm_mday == 2;
         }},
        {"texts of errors", kBusyForks, [] { return !tev::platform::SystemErrorText(2).empty(); }},
    };
    for (const auto& [name, forks, convert] : cases)
        EXPECT_EQ(ForkWhileBusy(convert, convert, forks), 0) << name;
}
} // namespace
