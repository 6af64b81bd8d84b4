// The type of a file by its name, and names matched against wildcards, compared with Qt and the C library.

#include "services/FileTypeRegistry.h"
#include "services/FileWildcards.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include <fnmatch.h>

#if __has_include(<QMimeDatabase>)
#include <QMimeDatabase>
#include <QRegularExpression>
#include <QString>
#define TEV_BENCH_QT
#endif

namespace
{
constexpr int kNames = 1000000;

std::vector<std::string> MakeNames()
{
    const char* const extensions[] = {".bmp", ".tif", ".wmv", ".html", ".zip", ".unknown", "", ".mp3"};
    std::vector<std::string> names;
    for (int i = 0; i < kNames; ++i)
        names.push_back("picture" + std::to_string(i) + extensions[i % 8]);
    return names;
}

const std::vector<std::string>& Names()
{
    static const std::vector<std::string> names = MakeNames();
    return names;
}

std::vector<CXTString<wchar_t>> WideNames(int count)
{
    std::vector<CXTString<wchar_t>> names;
    for (int i = 0; i < count; ++i)
        names.emplace_back(Names()[i].c_str());
    return names;
}

void CountNames(benchmark::State& state, std::size_t each)
{
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * each));
}

void ClassOurs(benchmark::State& state)
{
    const auto names = WideNames(kNames);
    for (auto _ : state)
    {
        for (const CXTString<wchar_t>& name : names)
            benchmark::DoNotOptimize(fileGetClass(name));
    }
    CountNames(state, names.size());
}
BENCHMARK(ClassOurs)->Name("FileNames/class/ours")->Unit(benchmark::kMillisecond);

// Few enough for the cache: matching is timed, not memory access.
constexpr int kMatchedNames = 10000;
constexpr const char* kPattern = "pic*7?.tif";

void MatchOurs(benchmark::State& state)
{
    const auto names = WideNames(kMatchedNames);
    const CXTString<wchar_t> pattern(kPattern);
    for (auto _ : state)
    {
        for (const CXTString<wchar_t>& name : names)
            benchmark::DoNotOptimize(fileMatchWilcards(name, pattern, true));
    }
    CountNames(state, names.size());
}
BENCHMARK(MatchOurs)->Name("FileNames/match/ours")->Unit(benchmark::kMicrosecond);

void MatchC(benchmark::State& state)
{
    const std::vector<std::string> names(Names().begin(), Names().begin() + kMatchedNames);
    for (auto _ : state)
    {
        for (const std::string& name : names)
            benchmark::DoNotOptimize(fnmatch(kPattern, name.c_str(), FNM_NOESCAPE));
    }
    CountNames(state, names.size());
}
BENCHMARK(MatchC)->Name("FileNames/match/fnmatch")->Unit(benchmark::kMicrosecond);

#ifdef TEV_BENCH_QT
std::vector<QString> QtNames(int count)
{
    std::vector<QString> names;
    for (int i = 0; i < count; ++i)
        names.push_back(QString::fromStdString(Names()[i]));
    return names;
}

void ClassQt(benchmark::State& state)
{
    const auto names = QtNames(kNames / 100); // which take long enough
    const QMimeDatabase database;
    for (auto _ : state)
    {
        for (const QString& name : names)
            benchmark::DoNotOptimize(database.mimeTypeForFile(name, QMimeDatabase::MatchExtension).isValid());
    }
    CountNames(state, names.size());
}
BENCHMARK(ClassQt)->Name("FileNames/class/QMimeDatabase")->Unit(benchmark::kMillisecond);

void MatchQt(benchmark::State& state)
{
    const auto names = QtNames(kMatchedNames);
    const QRegularExpression pattern(QRegularExpression::wildcardToRegularExpression(kPattern));
    for (auto _ : state)
    {
        for (const QString& name : names)
            benchmark::DoNotOptimize(pattern.match(name).hasMatch());
    }
    CountNames(state, names.size());
}
BENCHMARK(MatchQt)->Name("FileNames/match/QRegularExpression")->Unit(benchmark::kMicrosecond);
#endif
} // namespace
