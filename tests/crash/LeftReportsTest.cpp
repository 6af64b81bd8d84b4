// Reports that a process could not finish, or not ask about, before it ended: the next start does.

#include "platform/CrashDumps.h"
#include "tests/crash/CrashesFixture.h"
#include "tests/support/EnvironmentVariable.h"

namespace
{
using namespace tev::test;

/// A start of the program with the folders of another one that has ended: the files of the reports that it asks about.
std::string StartAgain(const CrashingProgram& program, const std::string& way = "demand", const char* asked = "note")
{
    const EnvironmentVariable ask("TEVTOOLS_CRASH_ASKED", asked);
    const EnvironmentVariable user("TEVTOOLS_USER_DATA", program.Folder().Path("user").string());
    const EnvironmentVariable common("TEVTOOLS_COMMON_DATA", program.Folder().Path("common").string());
    const EnvironmentVariable temporary("TMPDIR", program.Folder().Path("temporary").string());
    const std::string again = std::string(kCrashWays) + " " + way + " main no-report 2>/dev/null";
    FILE* const pipe = popen(again.c_str(), "r");
    std::string output;
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe))
        output += static_cast<char>(c);
    EXPECT_EQ(WEXITSTATUS(pclose(pipe)), asked == "crash"s ? 1 : 0);
    return output;
}
const std::string kOwnFiles = kProduct + ".dmp\n" + kProduct + ".txt\ncrash.log\n";

TEST_F(CrashesThread, WithoutHelperTheNextStartFinishesTheReport)
{
    CrashingProgram program({"segment-violation", "main", "hang"}, "/no/helper");
    CrashingProgram withoutFolders({"no-folders", "main", "hang"}, "/no/helper");
    EXPECT_EQ(program.Wait(), 1);
    EXPECT_EQ(program.Names("common"), std::set<std::string>());
    EXPECT_EQ(StartAgain(program), kOwnFiles);
    ExpectReport(program, {{}, 1, SIGSEGV});
    EXPECT_EQ(StartAgain(program), "");

    EXPECT_EQ(withoutFolders.Wait(), 1);
    EXPECT_EQ(withoutFolders.Names("temporary").size(), 2u); // the record and the dump
    StartAgain(withoutFolders);
    EXPECT_THAT(withoutFolders.Names("temporary"), testing::ElementsAre(HasSubstr(".DebugReport.zip")));
}

/// The record of a report that was left in the folder; waits for the helper, which has it locked.
std::string LeftRecordIn(const CrashingProgram& program, const std::string& folder)
{
    for (const std::string& name : program.Names(folder))
    {
        const std::string path = program.Folder().Path(folder + "/" + name).string();
        if (std::filesystem::path(name).extension() == ".crash")
            return Eventually([&] { return tev::platform::LeftRecord(path).IsHeld(); }) ? name : "locked";
    }
    return {};
}

TEST_F(CrashesThread, AProcessThatEndsWhileTheUserIsAskedLeavesAReportThatIsOfferedOnce)
{
    const std::pair<const char*, int> endings[] = {{"kill", kBySignal + SIGKILL}, {"exit", 5}, {"crash", 1}};
    for (const auto& [asked, exitCode] : endings)
    {
        for (const char* const helper : {"", "/no/helper"})
        {
            SCOPED_TRACE(asked + std::string(helper));
            const std::vector<std::string> environment = {"TEVTOOLS_CRASH_ASKED=" + std::string(asked)};
            CrashingProgram program({"segment-violation"}, helper, environment);
            CrashingProgram withoutFolders({"no-folders"}, helper, environment);
            EXPECT_EQ(program.Wait(), exitCode);
            EXPECT_THAT(LeftRecordIn(program, "user"), HasSubstr(kProduct));
            EXPECT_EQ(program.Names("common"), std::set<std::string>{"DebugReport.zip"});
            EXPECT_EQ(StartAgain(program), kOwnFiles);
            ExpectReport(program, {{}, 1, SIGSEGV});
            EXPECT_EQ(StartAgain(program), "");

            EXPECT_EQ(withoutFolders.Wait(), exitCode);
            EXPECT_THAT(LeftRecordIn(withoutFolders, "temporary"), HasSubstr(kProduct));
            EXPECT_THAT(StartAgain(withoutFolders), testing::MatchesRegex(".*\\.dmp\n.*\\.txt\ncrash.log\n"));
            EXPECT_THAT(withoutFolders.Names("temporary"), testing::ElementsAre(HasSubstr(".DebugReport.zip")));
        }
    }
    // Who always crashes when asked is not asked at each start.
    CrashingProgram program({"segment-violation"}, "/no/helper", {"TEVTOOLS_CRASH_ASKED=crash"});
    EXPECT_EQ(program.Wait(), 1);
    EXPECT_EQ(StartAgain(program, "demand", "crash"), "");
    EXPECT_EQ(StartAgain(program), "");
    EXPECT_EQ(program.Names("common"), (std::set<std::string>{"DebugReport.zip", "DebugReport (1).zip"}));
}

// A program that sets its name after CrashInstall finds what it left under that name.
TEST_F(CrashesThread, ReportsThatWereLeftUnderALaterNameAreFinished)
{
    CrashingProgram program({"renamed", "main", "hang"}, "/no/helper");
    EXPECT_EQ(program.Wait(), 1);
    EXPECT_EQ(StartAgain(program, "renamed-start"), "Renamed.dmp\nRenamed.txt\ncrash.log\n");
    EXPECT_EQ(program.Names("common"), std::set<std::string>{"DebugReport.zip"});
}
} // namespace
