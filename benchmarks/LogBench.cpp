// The log with its flush after each message, compared with spdlog set to do the same.

#include "services/LogFile.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#if __has_include(<spdlog/spdlog.h>)
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#define TEV_BENCH_SPDLOG
#endif

namespace
{
std::filesystem::path LogPath(const char* name)
{
    return std::filesystem::temp_directory_path() / name;
}

void OpenOurs(const benchmark::State&)
{
    SetLogFile(LogPath("tevtools-bench.log").wstring().c_str(), xLogCreate, 5);
}

void CloseOurs(const benchmark::State&)
{
    CloseLogFile();
    std::filesystem::remove(LogPath("tevtools-bench.log"));
}

void WriteOurs(benchmark::State& state)
{
    int number = 0;
    for (auto _ : state)
        WriteToLogFile(3U, "loading object %d of %s\n", ++number, "house.3d");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(WriteOurs)->Name("Log/write/ours")->Setup(OpenOurs)->Teardown(CloseOurs)->UseRealTime();
BENCHMARK(WriteOurs)->Name("Log/write_by_four/ours")->Setup(OpenOurs)->Teardown(CloseOurs)->Threads(4)->UseRealTime();

void FilterOurs(benchmark::State& state)
{
    int number = 0;
    for (auto _ : state)
        WriteToLogFile(6U, "loading object %d of %s\n", ++number, "house.3d");
}
BENCHMARK(FilterOurs)->Name("Log/filtered_out/ours")->Setup(OpenOurs)->Teardown(CloseOurs);

#ifdef TEV_BENCH_SPDLOG
std::shared_ptr<spdlog::logger> g_logger;

void OpenSpdlog(const benchmark::State&)
{
    g_logger = spdlog::basic_logger_mt("bench", LogPath("tevtools-bench-spd.log").string(), true);
    g_logger->set_pattern("%v");
    g_logger->flush_on(spdlog::level::trace);
    g_logger->set_level(spdlog::level::info);
}

void CloseSpdlog(const benchmark::State&)
{
    spdlog::drop("bench");
    g_logger.reset();
    std::filesystem::remove(LogPath("tevtools-bench-spd.log"));
}

void WriteSpdlog(benchmark::State& state)
{
    int number = 0;
    for (auto _ : state)
        g_logger->info("loading object {} of {}", ++number, "house.3d");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(WriteSpdlog)->Name("Log/write/spdlog")->Setup(OpenSpdlog)->Teardown(CloseSpdlog)->UseRealTime();
BENCHMARK(WriteSpdlog)
    ->Name("Log/write_by_four/spdlog")
    ->Setup(OpenSpdlog)
    ->Teardown(CloseSpdlog)
    ->Threads(4)
    ->UseRealTime();

void FilterSpdlog(benchmark::State& state)
{
    int number = 0;
    for (auto _ : state)
        g_logger->debug("loading object {} of {}", ++number, "house.3d");
}
BENCHMARK(FilterSpdlog)->Name("Log/filtered_out/spdlog")->Setup(OpenSpdlog)->Teardown(CloseSpdlog);
#endif
} // namespace
