#include "tests/support/CrashingProgram.h"
#include "tests/support/Sanitized.h"
#include "tests/tools/TevRunner.h"

namespace
{
using namespace tev::test;

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
    const TevResult full = RunTev(
        {"crash", "show", "--threads", "--modules", program.Folder().Path("user/tevtools_crash_ways.dmp").string()});
    EXPECT_EQ(full.m_exitCode, 0) << full.m_error;
    for (const char* part : {"main+", "libTevTools.so", "_start+"})
        EXPECT_THAT(full.m_output, HasSubstr(part));
}

/// A dump of the streams, which lie behind one another.
std::string MakeDump(const std::vector<std::pair<std::uint32_t, std::string>>& streams)
{
    const auto number = [](std::uint64_t value) { return std::string(reinterpret_cast<const char*>(&value), 4); };
    std::string directory;
    std::string contents;
    const std::size_t start = 32 + 12 * streams.size();
    for (const auto& [type, bytes] : streams)
    {
        directory += number(type) + number(bytes.size()) + number(start + contents.size());
        contents += bytes;
    }
    return "MDMP" + number(0xA793) + number(streams.size()) + number(32) + std::string(16, '\0') + directory + contents;
}

TEST(TevCrash, SaysWhatIsMissingAndOfWhichSystemADumpIs)
{
    const auto system = [](char processor, const std::string& platform) {
        return std::string(1, processor) + std::string(19, '\0') + platform + std::string(34, '\0');
    };
    const std::string linux64 = system(9, std::string("\x01\x82", 2));
    const std::string windows32 = system(0, std::string("\x02\0", 2));
    const std::string fault = std::string("\7\0\0\0\0\0\0\0\5\0\0\xC0", 12) + std::string(156, '\0');
    const std::string threads = std::string("\2\0\0\0\7\0\0\0", 8) + std::string(44, '\0');
    const std::pair<std::string, const char*> kRows[] = {
        {MakeDump({{7, windows32}, {6, fault}, {3, threads}}),
         "unknown process, exception 0xc0000005, address 0x0, threads 1 (others are missing), no list of modules\n"
         "of Windows x86\nthread 7, this one:\n  (The dump has no registers of the thread.)\n"},
        {MakeDump({{3, threads}, {7, linux64}}),
         "unknown process, no record of a fault, threads 1 (others are missing), no list of modules\n"
         "of Linux x86-64\nwhich thread crashed is unknown; --threads shows all\n"},
        {MakeDump({{15, std::string(24, '\0')}, {7, system(5, std::string("\x77\x77", 2))}}),
         "unknown process, no record of a fault, no list of threads, no list of modules\nof system 0x7777 ARM\n"},
    };
    const TempFolder folder;
    for (const auto& [bytes, part] : kRows)
    {
        folder.WriteFile("a.dmp", bytes);
        EXPECT_THAT(RunTev({"crash", "show", folder.Path("a.dmp").string()}).m_output, HasSubstr(part));
    }
}

TEST(TevCrash, DamagedReportsAreNamedAndNothingOfThemHarms)
{
    const TempFolder folder;
    const std::string dump = std::string("MDMP\x93\xA7\0\0\xFF\xFF\xFF\xFF\x20\0\0\0", 16) + std::string(200, '\xFF');
    folder.WriteFile("a.dmp", dump);
    folder.WriteFile("b.dmp", "no dump");
    EXPECT_THAT(RunTev({"crash", "show", folder.Path("a.dmp").string()}).m_output,
                HasSubstr("no list of threads, no list of modules\nof an unknown system"));
    for (const char* name : {"b.dmp", "missing.zip"})
    {
        EXPECT_THAT(RunTev({"crash", "show", folder.Path(name).string()}), FieldsAre(1, _, HasSubstr(name)));
    }
    CZip zip;
    ASSERT_TRUE(zip.Open(folder.WidePath("r.zip").c_str(), zipCreate, false, nullptr));
    ASSERT_TRUE(zip.AddNewFile(folder.WidePath("b.dmp").c_str(), L"evil.dmp", zipLevelDefault));
    zip.Close(true);
    EXPECT_THAT(RunTev({"crash", "show", folder.Path("r.zip").string()}),
                FieldsAre(1, _, HasSubstr("evil.dmp: The data is damaged")));

    // A good beginning, but as much behind it as no report holds.
    folder.WriteFile("large.dmp", dump + std::string(std::size_t{6} << 20, '\0'));
    ASSERT_TRUE(zip.Open(folder.WidePath("l.zip").c_str(), zipCreate, false, nullptr));
    ASSERT_TRUE(zip.AddNewFile(folder.WidePath("large.dmp").c_str(), L"large.dmp", zipLevelDefault));
    zip.Close(true);
    EXPECT_THAT(RunTev({"crash", "show", folder.Path("l.zip").string()}).m_error,
                HasSubstr("large.dmp: It would unpack to more than the limits allow."));
}
} // namespace
