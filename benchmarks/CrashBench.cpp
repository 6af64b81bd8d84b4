// The cost of installing the crash handler, and the time from a fault to the finished report. The benchmarks' packages have
// nothing to compare with.

#include "arrays/CXArray.h"
#include "crash/CCrashHandler.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
/// A folder for the reports, deleted with the object.
class Scratch
{
public:
    Scratch()
    {
        std::filesystem::create_directories(m_path);
        setenv("TEVTOOLS_USER_DATA", (m_path / "user").c_str(), 1);
        setenv("TEVTOOLS_COMMON_DATA", (m_path / "common").c_str(), 1);
    }
    ~Scratch() { std::filesystem::remove_all(m_path); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

private:
    const std::filesystem::path m_path =
        std::filesystem::temp_directory_path() / ("tevtools-bench-crash-" + std::to_string(getpid()));
};

void InstallOurs(benchmark::State& state)
{
    const Scratch scratch;
    for (auto _ : state)
    {
        CrashInstall(nullptr, L"Benchmark", L"1", xCrashReport);
        state.PauseTiming();
        CrashUninstall();
        state.ResumeTiming();
    }
}

void ReportOnDemandOurs(benchmark::State& state)
{
    const Scratch scratch;
    CrashInstall(nullptr, L"Benchmark", L"1", xCrashReport);
    for (auto _ : state)
    {
        CrashGenerateErrorReport(nullptr, true);
        state.PauseTiming();
        std::filesystem::remove_all(std::getenv("TEVTOOLS_COMMON_DATA"));
        state.ResumeTiming();
    }
    CrashUninstall();
}

/// Starts that many threads, and crashes when all run. Writes to the descriptor just before.
[[noreturn]] void CrashWithThreads(int threads, int descriptor)
{
    CrashInstall(nullptr, L"Benchmark", L"1", xCrashReport);
    std::atomic<int> running{0};
    std::vector<std::thread> all;
    for (int i = 0; i < threads; ++i)
    {
        all.emplace_back([&running] {
            ++running;
            for (;;)
                pause();
        });
    }
    while (running != threads)
        std::this_thread::yield();
    if (write(descriptor, "x", 1) == 1)
        std::raise(SIGSEGV);
    std::_Exit(2);
}

/// From the fault to the end of the process, when the report is complete.
void FaultToReportOurs(benchmark::State& state)
{
    const Scratch scratch;
    for (auto _ : state)
    {
        int ends[2];
        if (pipe(ends) != 0)
            return state.SkipWithError("no pipe");
        const pid_t child = fork();
        if (child == 0)
            CrashWithThreads(static_cast<int>(state.range(0)), ends[1]);
        char ready = 0;
        if (read(ends[0], &ready, 1) != 1)
            return state.SkipWithError("the child did not start");
        const auto fault = std::chrono::steady_clock::now();
        int status = 0;
        waitpid(child, &status, 0);
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - fault).count());
        close(ends[0]);
        close(ends[1]);
        const std::filesystem::path reports = std::getenv("TEVTOOLS_COMMON_DATA");
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 1 || !std::filesystem::exists(reports / "DebugReport.zip"))
            return state.SkipWithError("no report");
        std::filesystem::remove_all(reports);
    }
}

BENCHMARK(InstallOurs)->Name("crash/install/ours")->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(ReportOnDemandOurs)->Name("crash/report-on-demand/ours")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(FaultToReportOurs)
    ->Name("crash/fault-to-report/ours")
    ->Arg(1)
    ->Arg(200)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
} // namespace
