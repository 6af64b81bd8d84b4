#include "tests/support/CrashingProgram.h"
#include "tests/support/Sanitized.h"
#include "tests/tools/TevRunner.h"

#include <gmock/gmock.h>

namespace
{
using namespace tev::test;
using testing::HasSubstr;

TEST(TevCrash, ShowsTheFilesTheSignalAndTheNamesOnTheStack)
{
    if (kIsSanitized)
        GTEST_SKIP() << "a sanitizer reports crashes by itself";
    CrashingProgram program({"segment-violation", "two"});
    program.Wait();
    const std::string report = program.Folder().Path("common/DebugReport.zip").string();
    const TevResult brief = RunTev({"crash", "show", report});
    EXPECT_EQ(brief.m_exitCode, 0) << brief.m_error;
    for (const char* part : {"crash.log", "signal 11 (SIGSEGV), code 1, address 0x0, threads 4",
                             "0  (anonymous namespace)::WriteNowhere()"})
        EXPECT_THAT(brief.m_output, HasSubstr(part));
    const TevResult full =
        RunTev({"crash", "show", "--threads", "--modules", program.Folder().Path("user/example_crash.dmp").string()});
    EXPECT_EQ(full.m_exitCode, 0) << full.m_error;
    for (const char* part : {"main+", "WaitForCrash", "libTevTools.so", "_start+"})
        EXPECT_THAT(full.m_output, HasSubstr(part));
}

TEST(TevCrash, DamagedReportsAreNamedAndNothingOfThemHarms)
{
    const TempFolder folder;
    const std::string dump = std::string("MDMP\x93\xA7\0\0\xFF\xFF\xFF\xFF\x20\0\0\0", 16) + std::string(200, '\xFF');
    folder.WriteFile("a.dmp", dump);
    folder.WriteFile("b.dmp", "no dump");
    EXPECT_THAT(RunTev({"crash", "show", folder.Path("a.dmp").string()}).m_output, HasSubstr("threads 0"));
    for (const char* name : {"b.dmp", "missing.zip"})
    {
        const TevResult result = RunTev({"crash", "show", folder.Path(name).string()});
        EXPECT_EQ(result.m_exitCode, 1);
        EXPECT_THAT(result.m_error, HasSubstr(name));
    }
    CZip zip;
    ASSERT_TRUE(zip.Open(folder.WidePath("r.zip").c_str(), zipCreate, false, nullptr));
    ASSERT_TRUE(zip.AddNewFile(folder.WidePath("b.dmp").c_str(), L"evil.dmp", zipLevelDefault));
    zip.Close(true);
    const TevResult result = RunTev({"crash", "show", folder.Path("r.zip").string()});
    EXPECT_EQ(result.m_exitCode, 1);
    EXPECT_THAT(result.m_error, HasSubstr("damaged"));

    // A good beginning, but as much behind it as no report holds.
    folder.WriteFile("large.dmp", dump + std::string(std::size_t{6} << 20, '\0'));
    ASSERT_TRUE(zip.Open(folder.WidePath("l.zip").c_str(), zipCreate, false, nullptr));
    ASSERT_TRUE(zip.AddNewFile(folder.WidePath("large.dmp").c_str(), L"large.dmp", zipLevelDefault));
    zip.Close(true);
    EXPECT_THAT(RunTev({"crash", "show", folder.Path("l.zip").string()}).m_error, HasSubstr("too large"));
}
} // namespace
