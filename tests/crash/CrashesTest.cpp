// Real crashes, in a separate program.

#include "crash/ModuleFile.h"
#include "crash/XMinidump.h"
#include "tests/crash/CrashesFixture.h"
#include "tests/support/Debugger.h"
#include "tests/support/Eventually.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/OnThreads.h"
#include "tests/support/StoreBytes.h"

using namespace tev::test;

namespace
{
constexpr int kCaughtNoMemory = 30;
constexpr int kCaughtInvalidArgument = 31;

void Expect(const CrashRow& row, const std::string& helper)
{
    SCOPED_TRACE(testing::PrintToString(row.arguments) + helper);
    CrashingProgram program(row.arguments, helper);
    EXPECT_EQ(program.Wait(), row.exitCode);
    ExpectReport(program, row);
}

const CrashRow kRows[] = {
    {{"terminate"}, 1, 0},
    {{"exception"}, 1, 0, {"ThrowText", "main"}},
    {{"noexcept"}, 1, 0, {"ThrowText", "ThrowInNoexcept", "main"}},
    {{"own-exception"}, 1, 0},
    {{"joinable"}, 1, 0},
    {{"unexpected"}, 1, 0},
    {{"pure-call"}, kCaughtNoMemory, 0, {"Shape::Shape()", "main"}},
    {{"pure-call-unhooked"}, 77, kNoReport},
    {{"no-memory"}, kCaughtNoMemory, 0},
    {{"small-memory"}, 1, 0},
    {{"fault-without-memory"}, 1, SIGSEGV, {"WriteNowhere", "main"}, false},
    {{"invalid-parameter"}, kCaughtInvalidArgument, 0},
    {{"abort"}, 1, SIGABRT, {"abort", "main"}},
    {{"division"}, 1, SIGFPE},
    {{"illegal-instruction"}, 1, SIGILL},
    {{"interrupt"}, 1, SIGINT},
    {{"segment-violation"}, 1, SIGSEGV, {"WriteNowhere", "main"}},
    {{"termination"}, 1, SIGTERM},
    {{"trap"}, kBySignal + SIGTRAP, SIGTRAP},
    {{"processor-time"}, kBySignal + SIGXCPU, SIGXCPU},
    {{"system-call"}, kBySignal + SIGSYS, SIGSYS},
    {{"cut-file"}, kBySignal + SIGBUS, SIGBUS, {"ReadCutFile", "main"}},
    {{"null-call"}, 1, SIGSEGV},
    {{"freed-page"}, 1, SIGSEGV},
    {{"overflow"}, 1, SIGSEGV, {"Recurse", "Recurse"}},
    {{"deep"}, 1, SIGSEGV, {"WriteNowhere", "Recurse", "main"}},
    {{"smashed-stack"}, 1, SIGABRT, {"SmashStack"}},
    {{"double-free"}, 1, SIGABRT, {"FreeTwice", "main"}},
    {{"heap"}, 1, SIGABRT, {"DamageHeap", "main"}, false},
    {{"in-allocator"}, 1, SIGSEGV, {"FaultInAllocator", "main"}, false},
    {{"wild-writes"}, 1, SIGSEGV, {"WriteNowhere", "main"}, false},
    {{"log"}, 1, SIGSEGV},
    {{"log-elsewhere"}, 1, SIGSEGV},
    {{"bad-log-text"}, 1, SIGSEGV, {"WriteToLogFile", "main"}},
    {{"handler"}, 1, SIGSEGV, {"WriteNowhere", "InHandler", "main"}},
    {{"handler-on-own-stack"}, 1, SIGSEGV, {"WriteNowhere", "InHandler", "main"}},
    {{"handler-on-own-stack", "worker"}, 1, SIGSEGV, {"WriteNowhere", "InHandler", "CrashOnWorkers"}},
    {{"at-exit"}, 1, SIGSEGV, {"WriteNowhere", "exit", "main"}},
    {{"descriptors"}, 1, SIGSEGV},
    {{"closed-descriptors"}, 1, SIGSEGV},
    {{"no-descriptors"}, 1, SIGSEGV, {"WriteNowhere", "main"}, false},
    {{"file-size"}, 1, SIGSEGV},
    {{"other-user"}, 1, SIGSEGV},
    {{"folder-lock"}, 1, SIGSEGV},
    {{"undumpable"}, 1, SIGSEGV},
    {{"other-folder"}, 1, SIGSEGV},
    {{"others-blocked"}, 1, SIGSEGV},
    {{"dead-helper"}, 1, SIGSEGV, {"WriteNowhere", "main"}, false},
    {{"stopped-helper"}, 1, SIGSEGV, {"WriteNowhere", "main"}, false},
    {{"threadless-helper", "main", "exit-thread"}, 1, SIGSEGV, {"WriteNowhere", "main"}, false},
    {{"child"}, kBySignal + SIGSEGV, kNoReport},
    {{"child-with-handler"}, 1, SIGSEGV, {"WriteNowhere", "InChild", "main"}},
    {{"uninstalled"}, kBySignal + SIGSEGV, kNoReport},
    {{"blocked"}, kBySignal + SIGSEGV, kNoReport},
    {{"blocked-abort"}, 1, SIGABRT},
    {{"killed"}, kBySignal + SIGKILL, kNoReport},
    {{"overflow", "worker"}, 1, SIGSEGV, {"Recurse", "Recurse"}},
    {{"overflow", "bare"}, kBySignal + SIGSEGV, kNoReport},
    {{"heap", "worker"}, 1, SIGABRT, {"DamageHeap"}, false},
    {{"log", "worker"}, 1, SIGSEGV, {"WriteNowhere"}},
    {{"segment-violation", "two"}, 1, SIGSEGV, {"WriteNowhere"}},
    {{"segment-violation", "many"}, 1, SIGSEGV, {"WriteNowhere"}},
    {{"terminate", "two"}, 1, 0, {}},
    {{"segment-violation", "bare"}, kBySignal + SIGSEGV, SIGSEGV, {"WriteNowhere"}},
    {{"terminate", "bare"}, 1, SIGABRT, {"abort"}},
    {{"segment-violation", "main", "no-report"}, 1, kNoReport},
    {{"terminate", "main", "no-report"}, 1, kNoReport},
    {{"segment-violation", "main", "crash"}, 1, SIGSEGV},
    {{"segment-violation", "main", "throw"}, 1, SIGSEGV},
    {{"segment-violation", "main", "exit-thread"}, 1, SIGSEGV, {"WriteNowhere", "main"}, false},
    {{"demand", "main", "crash"}, 1, SIGSEGV},
    {{"demand"}, 0, 0},
    {{"demand-beside-unstoppable"}, 0, 0},
    {{"demand", "main", "no-report"}, 0, kNoReport},
    {{"segment-violation", "main", "hang"}, 1, SIGSEGV, {"WriteNowhere", "main"}, false},
};

// Several at a time, because some of them wait for a deadline.
TEST_F(CrashesThread, EachWayEndsAsDocumentedWithOneReport)
{
    constexpr int kWorkers = 12;
    std::atomic<std::size_t> next{0};
    OnThreads(kWorkers, [&next](int) {
        for (std::size_t index = next++; index < 2 * std::size(kRows); index = next++)
        {
            const CrashRow& row = kRows[index / 2];
            if (index % 2 == 0 || row.isTwiceTried)
                Expect(row, index % 2 == 0 ? "" : "/no/helper");
        }
    });
}

/// A report outside the usual places; its details.
std::string DetailsOf(const CrashingProgram& program, const std::string& report, const std::wstring& product)
{
    CZip zip;
    const TempFolder folder;
    EXPECT_TRUE(zip.Open(program.Folder().WidePath(report).c_str(), zipOpenReadOnly, false, nullptr));
    const std::wstring name = product + L".txt";
    const unsigned index = zip.FindFile(name.c_str(), true, false);
    EXPECT_EQ(zip.ExtractFile(index, folder.WidePath().c_str(), false, L"details.txt", false), zipExtracted);
    EXPECT_NE(zip.FindFile((product + L".dmp").c_str(), true, false), xZipNoEntry);
    return folder.ReadFile("details.txt");
}

TEST_F(CrashesThread, TheDetailsNameVersionUptimeAndException)
{
    const struct
    {
        const char* way;
        std::vector<std::string> lines;
    } kDetails[] = {
        {"exception",
         {"Application: Ways\nVersion: 2.5\nProgram: tevtools_crash_ways\nTime: 2", "\nRunning for: ", " s\n",
          "\nCause: std::terminate\n", "\nException: std::runtime_error\nMessage: the engine is on fire\n"}},
        {"own-exception", {"\nException: CXFileException*\nMessage: ", "scene.obj"}},
        {"segment-violation", {"\nCause: segment violation\nSignal: 11\nCode: 1\n"}},
        {"invalid-parameter",
         {"\nCause: invalid parameter\nFunction: XStrCopy\nExpression: errno 22\nFile: InvalidParameter.cpp\nLine: "}},
        {"heap", {"Application: Ways\nVersion: 2.5\n", "\nCause: abort\nSignal: 6\n"}},
    };
    const auto expect = [](CrashingProgram& program, const std::vector<std::string>& lines) {
        program.Wait();
        const std::string details = DetailsOf(program, "common/DebugReport.zip", L"tevtools_crash_ways");
        for (const std::string& line : lines)
            EXPECT_THAT(details, HasSubstr(line));
    };
    CrashingProgram byHelper({kDetails[0].way, "main", "hang"});
    for (const auto& row : kDetails)
    {
        SCOPED_TRACE(row.way);
        CrashingProgram program({row.way});
        expect(program, row.lines);
    }
    expect(byHelper, kDetails[0].lines);
}

TEST_F(CrashesThread, NameAndFolderAreThoseOfTheMomentOfTheCrash)
{
    CrashingProgram byHelper({"renamed", "main", "hang"});
    CrashingProgram program({"renamed"});
    EXPECT_EQ(program.Wait(), 1);
    EXPECT_EQ(program.Names("common/later"), std::set<std::string>{"DebugReport.zip"});
    EXPECT_EQ(program.Names("user/later"), (std::set<std::string>{"Renamed.dmp", "Renamed.txt"}));
    EXPECT_THAT(DetailsOf(program, "common/later/DebugReport.zip", L"Renamed"), HasSubstr("Program: Renamed\n"));
    // The helper learns of the name, but not of the process's environment.
    EXPECT_EQ(byHelper.Wait(), 1);
    EXPECT_THAT(DetailsOf(byHelper, "common/DebugReport.zip", L"Renamed"), HasSubstr("Program: Renamed\n"));
    EXPECT_EQ(byHelper.Names("user"), (std::set<std::string>{"crash.log", "Renamed.dmp", "Renamed.txt"}));
    // Nor does it ask for the address of technical support.
    const TempFolder folder;
    const std::string shown = folder.Path("shown").string();
    const std::string dialog = folder.Path("dialog").string();
    folder.WriteFile("dialog", "#!/bin/sh\necho \"$*\" >" + shown + ".new\nmv " + shown + ".new " + shown + "\n");
    std::filesystem::permissions(dialog, std::filesystem::perms::owner_all);
    CrashingProgram addressed({"late-address", "main", "exit-thread"}, {},
                              {"TEVTOOLS_CRASH_DIALOG=" + dialog, "DISPLAY=:0"});
    EXPECT_EQ(addressed.Wait(), 1);
    EXPECT_TRUE(Eventually([&folder] { return folder.Exists("shown"); }));
    EXPECT_THAT(folder.ReadFile("shown"), HasSubstr("--support late@example.org"));
}

TEST_F(CrashesThread, WithoutFoldersTheReportGoesToTheTemporaryFiles)
{
    for (const char* const helper : {"", "/no/helper"})
    {
        CrashingProgram program({"no-folders"}, helper);
        EXPECT_EQ(program.Wait(), 1);
        EXPECT_EQ(program.Names("common"), std::set<std::string>());
        // The archive alone, which has the dump and the details.
        const std::set<std::string> names = program.Names("temporary");
        ASSERT_THAT(names, testing::ElementsAre(testing::MatchesRegex(kProduct + "\\.[0-9a-f]*\\.DebugReport\\.zip")));
        const std::string report = "temporary/" + *names.begin();
        EXPECT_EQ(std::filesystem::status(program.Folder().Path(report)).permissions(),
                  std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
        EXPECT_THAT(DetailsOf(program, report, L"tevtools_crash_ways"), HasSubstr("segment violation"));
    }
}

TEST_F(CrashesThread, TheErrorOutputHasOneLineWhereAHostWantsIt)
{
    for (const char* const way : {"segment-violation", "heap", "demand", "demand-before-refused", "pure-call-unhooked"})
    {
        CrashingProgram silent({way});
        silent.Wait();
        EXPECT_THAT(silent.Errors(), testing::Not(HasSubstr("crash report"))) << way;
        EXPECT_THAT(silent.Errors(), testing::Not(HasSubstr("pure virtual"))) << way;
        CrashingProgram loud({way}, {}, {"TEVTOOLS_CRASH_OUTPUT=1"});
        loud.Wait();
        const std::string line = std::string(way) == "pure-call-unhooked"
                                     ? "pure virtual method called\n"
                                     : "crash report: " + loud.Folder().Path("common/DebugReport.zip").string() + "\n";
        const std::string errors = loud.Errors();
        EXPECT_THAT(errors, HasSubstr(line)) << way;
        EXPECT_EQ(errors.find("crash report", errors.find(line) + line.size()), errors.npos) << errors;
    }
}

/// The ranges of memory by the list in the dump's second stream, each with its size.
std::vector<std::pair<std::uint64_t, std::uint64_t>> MemoryOf(const std::string& bytes)
{
    const auto number = [&bytes](std::size_t at, std::size_t size) {
        std::uint64_t value = 0;
        bytes.copy(reinterpret_cast<char*>(&value), size, at);
        return value;
    };
    std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges;
    const std::size_t list = number(number(12, 4) + 12 + 8, 4);
    for (std::size_t i = 0; i < number(list, 4); ++i)
        ranges.emplace_back(number(list + 4 + i * 16, 8), number(list + 12 + i * 16, 4));
    std::sort(ranges.begin(), ranges.end());
    return ranges;
}

TEST_F(CrashesThread, ThreadsThatCrashTogetherHaveTheRegistersAndStacksOfTheirFaults)
{
    for (const char* const helper : {"", "/no/helper"})
    {
        // How many come to their fault before the dump is made is a matter of chance.
        constexpr int kMostAttempts = 50;
        int together = 0;
        for (int attempt = 0; attempt < kMostAttempts && together < 2; ++attempt)
        {
            CrashingProgram program({"segment-violation", "sixteen"}, helper);
            EXPECT_EQ(program.Wait(), 1);
            XMinidump dump;
            ASSERT_TRUE(dump.Load(program.Folder().WidePath("user/" + kProduct + ".dmp").c_str()));
            together = 0;
            for (int i = 0; i < static_cast<int>(dump.GetThreads().size()); ++i)
            {
                const std::vector<std::string> names = StackOf(dump, i);
                if (names.empty() || names.front().find("WriteNowhere") == std::string::npos)
                    continue;
                ++together;
                ExpectInOrder(names, {"WriteNowhere", "CrashOnWorkers"});
            }
        }
        EXPECT_GE(together, 2);
    }
}

TEST_F(CrashesThread, NoRangesOfMemoryOverlap)
{
    CrashingProgram program({"adjacent-stacks"});
    EXPECT_EQ(program.Wait(), 1);
    const std::string path = "user/" + kProduct + ".dmp";
    XMinidump dump;
    ASSERT_TRUE(dump.Load(program.Folder().WidePath(path).c_str()));
    int waiting = 0;
    for (int i = 0; i < static_cast<int>(dump.GetThreads().size()); ++i)
    {
        const std::vector<std::string> names = StackOf(dump, i);
        waiting += std::any_of(names.begin(), names.end(),
                               [](const std::string& name) { return name.find("WaitOnAdjacentStacks") != name.npos; });
    }
    EXPECT_EQ(waiting, 4);
    const auto ranges = MemoryOf(program.Folder().ReadFile(path));
    EXPECT_GE(ranges.size(), 3u);
    std::uint64_t end = 0;
    for (const auto& [start, size] : ranges)
    {
        EXPECT_GE(start, end);
        end = start + size;
    }
}

TEST_F(CrashesThread, TheStandardStreamsAreFilled)
{
    CrashingProgram program({"segment-violation"});
    program.Wait();
    XMinidump dump;
    ASSERT_TRUE(dump.Load(program.Folder().WidePath("user/" + kProduct + ".dmp").c_str()));
    EXPECT_LT(std::time(nullptr) - static_cast<std::time_t>(dump.GetTime()), 60);
    EXPECT_EQ(dump.GetSystemName(), L"Linux x86-64");
    EXPECT_EQ(dump.GetProcessorCount(), static_cast<unsigned>(sysconf(_SC_NPROCESSORS_ONLN)));
    EXPECT_THAT(std::string(CXTString<char>(dump.GetSystemText()).GetConstBuffer()), testing::StartsWith("Linux "));
    for (const XMinidumpPart part : {XMinidumpPart::kSystem, XMinidumpPart::kProcess, XMinidumpPart::kException,
                                     XMinidumpPart::kThreads, XMinidumpPart::kModules, XMinidumpPart::kMemory})
        EXPECT_TRUE(dump.Has(part) && !dump.IsCut(part)) << static_cast<int>(part);
    XMinidumpStackEnd end{};
    dump.GetStack(dump.GetFaultThread(), end);
    EXPECT_EQ(end, XMinidumpStackEnd::kComplete);
}

TEST_F(CrashesThread, TheSizesOfFilesDecideNoAllocation)
{
    CrashingProgram program({"segment-violation"});
    program.Wait();
    const std::string name = "user/" + kProduct + ".dmp";
    XMinidump dump;
    ASSERT_TRUE(dump.Load(program.Folder().WidePath(name).c_str()));
    const std::vector<XMinidumpFrame> stack = dump.GetStack(dump.GetFaultThread());
    const auto crashed = std::find_if(stack.begin(), stack.end(), [](const XMinidumpFrame& frame) {
        return frame.m_function.Find(L"WriteNowhere") >= 0;
    });
    ASSERT_NE(crashed, stack.end());
    const XMinidumpModule module = dump.GetModules()[static_cast<std::size_t>(crashed->m_module)];
    std::filesystem::copy_file(kCrashWays, program.Folder().Path("module"));
    std::filesystem::resize_file(program.Folder().Path("module"), 500u << 20);
    std::filesystem::resize_file(program.Folder().Path(name), std::uintmax_t{8} << 30);
    enum
    {
        kSame,
        kNoLoad,
        kOtherStack,
        kNoModule,
        kOtherFunction
    };
    EXPECT_EQ(kSame, ResultInChild([&] {
                  std::size_t pages = 0;
                  std::ifstream("/proc/self/statm") >> pages;
                  const rlim_t most = pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) + (64u << 20);
                  const rlimit little = {most, most};
                  setrlimit(RLIMIT_AS, &little);
                  if (!dump.Load(program.Folder().WidePath(name).c_str()))
                      return kNoLoad;
                  if (dump.GetStack(dump.GetFaultThread()).size() != stack.size())
                      return kOtherStack;
                  const auto file =
                      tev::ModuleFile::Open(program.Folder().WidePath("module").c_str(), module.m_buildId);
                  if (file == nullptr)
                      return kNoModule;
                  std::string function;
                  std::uint64_t offset = 0;
                  const bool isFound = file->FindFunction(crashed->m_instruction - module.m_base, function, offset);
                  return isFound && function.find("WriteNowhere") != function.npos ? kSame : kOtherFunction;
              }));
}

// By bytes that many records share, a small file could take any amount of memory.
TEST(Minidump, CountsInAFileDecideNoAllocation)
{
    constexpr unsigned kDirectory = 32;
    constexpr unsigned kList = kDirectory + 12;
    struct Row
    {
        unsigned stream;
        XMinidumpPart part;
        std::size_t recordSize;
        unsigned count;
        bool isCut;
    };
    const std::string name = Number(32768) + std::string(32768, 'a');
    for (const Row& row : {Row{3, XMinidumpPart::kThreads, 48, 65536, false},
                           {3, XMinidumpPart::kThreads, 48, 65537, true},
                           {4, XMinidumpPart::kModules, 108, 3000, false}})
    {
        const auto listSize = static_cast<unsigned>(4 + row.count * row.recordSize);
        std::string record(row.recordSize, '\0');
        record.replace(20, 4, Number(kList + listSize));
        std::string bytes = "MDMP" + Number(0xA793) + Number(1) + Number(kDirectory) + std::string(16, '\0');
        bytes += Number(row.stream) + Number(listSize) + Number(kList) + Number(row.count);
        for (unsigned i = 0; i < row.count; ++i)
            bytes += record;
        bytes += name;
        XMinidump dump;
        ASSERT_TRUE(dump.Parse(std::vector<unsigned char>(bytes.begin(), bytes.end())));
        EXPECT_EQ(dump.IsCut(row.part), row.isCut);
        EXPECT_EQ(std::max(dump.GetThreads().size(), dump.GetModules().size()), std::min(row.count, 65536u));
        std::size_t named = 0;
        for (const XMinidumpModule& module : dump.GetModules())
            named += module.m_path.GetLength() == 16384 ? 1 : 0;
        EXPECT_EQ(named, row.stream == 4 ? 2048u : 0u) << "64 MiB of names";
    }
}

TEST_F(CrashesThread, ADebuggerFindsTheSignalTheThreadsAndTheFunction)
{
    CrashingProgram program({"segment-violation", "many"});
    EXPECT_EQ(program.Wait(), 1);
    const std::string answer = AskDebugger(program.Folder().Path("user/" + kProduct + ".dmp").string(),
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
        ExpectReport(program, {{}, 1, signal, {}});
    }
}
} // namespace
