// Archives that are listed, changed and made, compared with libzip and with the programs that people do it with.

#include "tests/support/TempFolder.h"
#include "zip/CZip.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <functional>
#include <random>
#include <string>

#if __has_include(<zip.h>)
#include <zip.h>
#define TEV_BENCH_LIBZIP
#endif

namespace
{
using tev::test::TempFolder;

constexpr int kListed = 100'000;
constexpr int kMany = 2'000;
constexpr std::size_t kLarge = 184'000'000;
constexpr std::size_t kStored = 85'000'000;

/// Numbers that differ in some digits, as in model files.
std::string ModelText(std::size_t size)
{
    std::mt19937 random(1);
    std::string text;
    while (text.size() < size)
        text += "v " + std::to_string(random() % 100000) + " 0." + std::to_string(random() % 100000) + "\n";
    text.resize(size);
    return text;
}

bool Shell(const TempFolder& folder, const std::string& command)
{
    return std::system(("cd " + folder.Path().string() + " && " + command + " >/dev/null").c_str()) == 0;
}

bool Change(const TempFolder& folder, const wchar_t* archive, ZipOpenMode mode, const std::function<bool(CZip&)>& work)
{
    CZip zip;
    const bool isDone = zip.Open((folder.WidePath() + L"/" + archive).c_str(), mode, false, nullptr) && work(zip);
    zip.Close(false);
    return isDone && zip.GetLastFailure() == XZipFailure::kNone;
}

/// What the rows work on, each made when the first of its rows is run.
class Inputs
{
public:
    static Inputs& Get()
    {
        static Inputs inputs;
        return inputs;
    }
    const TempFolder& Listed()
    {
        if (!m_listed.Exists("a.zip"))
        {
            m_listed.WriteFile("empty", "");
            Change(m_listed, L"a.zip", zipCreate, [&](CZip& zip) {
                bool good = true;
                for (int i = 0; i < kListed && good; ++i)
                    good =
                        zip.AddNewFile(m_listed.WidePath("empty").c_str(),
                                       (std::to_wstring(i / 100) + L"/" + std::to_wstring(i)).c_str(), zipLevelStore);
                return good;
            });
        }
        return m_listed;
    }
    const TempFolder& Files()
    {
        if (!m_files.Exists("large"))
        {
            m_files.WriteFile("small", "12345");
            m_files.WriteFile("large", ModelText(kLarge));
            const std::string text = ModelText(4'000'000);
            for (int i = 0; i < kMany; ++i)
                m_files.WriteFile("many/" + std::to_string(i), text.substr(static_cast<std::size_t>(i) * 900, 40'000));
            Shell(m_files, "head -c " + std::to_string(kStored) + " large >part && zip -q -0 stored.zip part");
        }
        return m_files;
    }

private:
    TempFolder m_listed;
    TempFolder m_files;
};

void Repeat(benchmark::State& state, const std::function<bool()>& before, const std::function<bool()>& work)
{
    bool isDone = true;
    for (auto _ : state)
    {
        state.PauseTiming();
        isDone = isDone && before();
        state.ResumeTiming();
        isDone = isDone && work();
    }
    if (!isDone)
        state.SkipWithError("not done");
}

void ListOurs(benchmark::State& state)
{
    const TempFolder& folder = Inputs::Get().Listed();
    Repeat(
        state, [] { return true; },
        [&] {
            return Change(folder, L"a.zip", zipOpenReadOnly, [](CZip& zip) {
                CZipFileInfo info;
                unsigned found = 0;
                for (unsigned i = 0; i < kListed; ++i)
                    found += zip.GetFileInfo(info, i) ? 1 : 0;
                return found == kListed;
            });
        });
}

#ifdef TEV_BENCH_LIBZIP
void ListLibZip(benchmark::State& state)
{
    const std::string path = Inputs::Get().Listed().Path("a.zip").string();
    Repeat(
        state, [] { return true; },
        [&] {
            zip_t* const zip = zip_open(path.c_str(), ZIP_RDONLY, nullptr);
            zip_stat_t entry;
            int found = 0;
            for (zip_uint64_t i = 0; zip != nullptr && i < kListed; ++i)
                found += zip_stat_index(zip, i, 0, &entry) == 0 ? 1 : 0;
            zip_discard(zip);
            return found == kListed;
        });
}
#endif

void ListByUnzip(benchmark::State& state)
{
    const TempFolder& folder = Inputs::Get().Listed();
    Repeat(
        state, [] { return true; }, [&] { return Shell(folder, "unzip -l a.zip"); });
}

/// With the five bytes of `small` in it, each time anew.
void Add(benchmark::State& state, bool ours)
{
    const TempFolder& folder = Inputs::Get().Files();
    Repeat(
        state, [&] { return Shell(folder, "cp stored.zip changed.zip && sync changed.zip"); },
        [&] {
            return ours ? Change(folder, L"changed.zip", zipOpenReadWrite,
                                 [&](CZip& zip) {
                                     return zip.AddNewFile(folder.WidePath("small").c_str(), L"small", zipLevelStore);
                                 })
                        : Shell(folder, "zip -q -0 changed.zip small");
        });
}

void Create(benchmark::State& state, bool ours, bool many)
{
    const TempFolder& folder = Inputs::Get().Files();
    const auto addOurs = [&](CZip& zip) {
        bool good = many || zip.AddNewFile(folder.WidePath("large").c_str(), L"large", zipLevelDefault);
        for (int i = 0; many && i < kMany && good; ++i)
        {
            const std::string name = "many/" + std::to_string(i);
            good = zip.AddNewFile(folder.WidePath(name).c_str(), std::wstring(name.begin(), name.end()).c_str(),
                                  zipLevelDefault);
        }
        return good;
    };
    Repeat(
        state, [&] { return Shell(folder, "rm -f made.zip"); },
        [&] {
            return ours ? Change(folder, L"made.zip", zipCreate, addOurs)
                        : Shell(folder, many ? "zip -q -r made.zip many" : "zip -q made.zip large");
        });
}

#define TEV_ZIP(function, name, ...)                                                                                   \
    BENCHMARK_CAPTURE(function, , __VA_ARGS__)->Name("Zip/" name)->Unit(benchmark::kMillisecond)->UseRealTime()

BENCHMARK(ListOurs)->Name("Zip/List100000/ours")->Unit(benchmark::kMillisecond)->UseRealTime();
#ifdef TEV_BENCH_LIBZIP
BENCHMARK(ListLibZip)->Name("Zip/List100000/libzip")->Unit(benchmark::kMillisecond)->UseRealTime();
#endif
BENCHMARK(ListByUnzip)->Name("Zip/List100000/unzip")->Unit(benchmark::kMillisecond)->UseRealTime();
TEV_ZIP(Add, "AddSmallToLarge/ours", true);
TEV_ZIP(Add, "AddSmallToLarge/zip", false);
TEV_ZIP(Create, "CreateFromMany/ours", true, true);
TEV_ZIP(Create, "CreateFromMany/zip", false, true);
TEV_ZIP(Create, "CreateFromLarge/ours", true, false);
TEV_ZIP(Create, "CreateFromLarge/zip", false, false);
} // namespace
