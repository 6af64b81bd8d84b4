#pragma once

#include "crash/XMinidump.h"
#include "tests/support/CrashingProgram.h"
#include "tests/support/Eventually.h"
#include "tests/support/Sanitized.h"

namespace tev::test
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

constexpr int kNoReport = -1;
inline const std::string kProduct = "tevtools_crash_ways";

/// What a way to crash leads to. The words must stand in the names of the stack of the thread that crashed, in that order.
struct CrashRow
{
    std::vector<std::string> arguments;
    int exitCode;
    int signal; ///< in the dump, 0 for none, kNoReport when there is no report
    std::vector<std::string> stack = {"main"};
    bool isTwiceTried = true; ///< with helper and without
};

inline std::vector<std::string> StackOf(const XMinidump& dump, int thread)
{
    std::vector<std::string> names;
    for (const XMinidumpFrame& frame : dump.GetStack(thread))
        names.emplace_back(CXTString<char>(frame.m_function).GetConstBuffer());
    return names;
}

inline void ExpectInOrder(const std::vector<std::string>& names, const std::vector<std::string>& words)
{
    auto from = names.begin();
    for (const std::string& word : words)
    {
        from =
            std::find_if(from, names.end(), [&word](const std::string& name) { return name.find(word) != name.npos; });
        EXPECT_NE(from, names.end()) << word << " in " << testing::PrintToString(names);
    }
}

inline void ExpectDump(const XMinidump& dump, const CrashRow& row)
{
    EXPECT_EQ(static_cast<int>(dump.GetSignal()), row.signal);
    ASSERT_GE(dump.GetFaultThread(), 0);
    ExpectInOrder(StackOf(dump, dump.GetFaultThread()), row.stack);
}

/// Expects the documented report: one archive, with the log, the details and a dump of that signal.
inline void ExpectReport(const CrashingProgram& program, const CrashRow& row)
{
    const std::set<std::string> kept = {"crash.log", kProduct + ".dmp", kProduct + ".txt"};
    if (row.signal == kNoReport)
    {
        EXPECT_EQ(program.Names("common"), std::set<std::string>());
        EXPECT_EQ(program.Names("user"), std::set<std::string>{"crash.log"});
        return;
    }
    // On a busy machine the helper may still be packing when the time of the process is over.
    Eventually([&] { return program.Names("user") == kept; });
    EXPECT_EQ(program.Names("common"), std::set<std::string>{"DebugReport.zip"});
    EXPECT_EQ(program.Names("user"), kept);
    EXPECT_EQ(program.Names("temporary"), std::set<std::string>());
    EXPECT_EQ(NamesInArchive(program.Folder().WidePath("common/DebugReport.zip")),
              std::set<std::wstring>({L"crash.log", L"tevtools_crash_ways.dmp", L"tevtools_crash_ways.txt"}));
    XMinidump dump;
    ASSERT_TRUE(dump.Load(program.Folder().WidePath("user/" + kProduct + ".dmp").c_str()));
    ExpectDump(dump, row);
}
} // namespace tev::test
