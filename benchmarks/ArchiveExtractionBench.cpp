// Whole archives and compressed files unpacked to disk, compared with the programs that people unpack them with. Set
// TMPDIR to a folder in memory to leave the disk out.

#include "tests/support/TempFolder.h"
#include "zip/CMiniZip.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <string>

namespace
{
using tev::test::TempFolder;

constexpr std::size_t kTotal = 500'000'000;
constexpr std::size_t kSmallFile = 20'000;
constexpr std::size_t kLargeFile = 125'000'000;
constexpr std::size_t kFilesInFolder = 100;

bool Shell(const std::string& command)
{
    return std::system(command.c_str()) == 0;
}

/// As in model files: numbers that differ in some digits. Packs to about half.
std::string ModelText()
{
    std::mt19937 random(1);
    std::string text;
    char line[80];
    while (text.size() < kTotal / 50)
    {
        const auto number = [&] { return static_cast<unsigned>(random() % 100000); };
        std::snprintf(line, sizeof line, "v %u.%05u %u.%05u 0.%05u\nf %u %u %u\n", number() % 10, number(),
                      number() % 10, number(), number(), number(), number(), number());
        text += line;
    }
    return text;
}

/// The inputs, made by the programs whose kinds they are. They take minutes, and each row runs in a process of its own, so
/// they are kept beside the benchmarks.
struct Inputs
{
    Inputs()
    {
        if (std::filesystem::exists(m_folder))
            return;
        const TempFolder files;
        const std::string text = ModelText();
        const auto write = [&](const std::string& name, std::size_t from, std::size_t size) {
            std::string contents = text.substr(from % (text.size() / 2), size);
            while (contents.size() < size)
                contents += text.substr(0, size - contents.size());
            files.WriteFile(name, contents);
        };
        for (std::size_t i = 0; i < kTotal / kSmallFile; ++i)
        {
            const std::string folder = "small/" + std::to_string(i / kFilesInFolder);
            write(folder + "/" + std::to_string(i) + ".obj", i * 7919, kSmallFile / 2 + i * 31 % kSmallFile);
        }
        for (std::size_t i = 0; i < kTotal / kLargeFile; ++i)
            write("large/" + std::to_string(i) + ".obj", i * 7919, kLargeFile);
        const std::string unfinished =
            m_folder.string() + ".unfinished"; // so that a run that is ended leaves nothing half done
        m_isMade =
            Shell("cd " + files.Path().string() + " && rm -rf " + unfinished + " && mkdir " + unfinished +
                  " && (cd small && zip -q -r " + unfinished + "/small.zip .) && (cd large && zip -q -r " + unfinished +
                  "/large.zip .) && cat large/* | gzip >" + unfinished + "/one.gz && cat large/* | zstd -q -o " +
                  unfinished + "/one.zst && mv " + unfinished + " " + m_folder.string());
    }

    const std::filesystem::path m_folder =
        std::filesystem::read_symlink("/proc/self/exe").replace_filename("extraction-inputs");
    bool m_isMade = true;
};

const Inputs& SharedInputs()
{
    static const Inputs inputs;
    return inputs;
}

/// Unpacks one of the inputs again and again, each time into an empty folder; the path is that of what is to be written.
void Unpack(benchmark::State& state,
            const std::function<bool(const std::filesystem::path& inputs, const TempFolder& target)>& work)
{
    const Inputs& inputs = SharedInputs();
    bool isDone = inputs.m_isMade;
    for (auto _ : state)
    {
        state.PauseTiming();
        {
            const TempFolder target;
            state.ResumeTiming();
            isDone = isDone && work(inputs.m_folder, target);
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
    if (!isDone)
        state.SkipWithError("cannot be unpacked");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kTotal));
}

void ByZip(benchmark::State& state, const char* archive)
{
    Unpack(state, [&](const std::filesystem::path& inputs, const TempFolder& target) {
        CMiniZip zip;
        return zip.ExtractZip((inputs / archive).wstring().c_str(), target.WidePath().c_str(), true);
    });
}

void ByZFile(benchmark::State& state, const char* file)
{
    Unpack(state, [&](const std::filesystem::path& inputs, const TempFolder& target) {
        CMiniZip zip;
        return zip.ExtractZFile((inputs / file).wstring().c_str(), target.WidePath("out").c_str(), true);
    });
}

/// "@" stands for the input; the command runs in the target.
void ByCommand(benchmark::State& state, const char* command, const char* file)
{
    Unpack(state, [&](const std::filesystem::path& inputs, const TempFolder& target) {
        std::string line = command;
        line.replace(line.find('@'), 1, (inputs / file).string());
        return Shell("cd " + target.Path().string() + " && " + line);
    });
}

#define TEV_EXTRACTION(function, name, ...)                                                                            \
    BENCHMARK_CAPTURE(function, , __VA_ARGS__)->Name("Extraction/" name)->Unit(benchmark::kMillisecond)->UseRealTime()

TEV_EXTRACTION(ByZip, "ZipOfManySmall/ours", "small.zip");
TEV_EXTRACTION(ByCommand, "ZipOfManySmall/unzip", "unzip -qq @", "small.zip");
TEV_EXTRACTION(ByCommand, "ZipOfManySmall/bsdtar", "bsdtar -xf @", "small.zip");
TEV_EXTRACTION(ByZip, "ZipOfFewLarge/ours", "large.zip");
TEV_EXTRACTION(ByCommand, "ZipOfFewLarge/unzip", "unzip -qq @", "large.zip");
TEV_EXTRACTION(ByCommand, "ZipOfFewLarge/bsdtar", "bsdtar -xf @", "large.zip");
TEV_EXTRACTION(ByZFile, "GZip/ours", "one.gz");
TEV_EXTRACTION(ByCommand, "GZip/gzip", "gzip -dc @ >out", "one.gz");
TEV_EXTRACTION(ByZFile, "ZStd/ours", "one.zst");
TEV_EXTRACTION(ByCommand, "ZStd/zstd", "zstd -q -dc @ >out", "one.zst");
} // namespace
