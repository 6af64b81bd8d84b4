// Memory files compared with the containers that bytes are gathered in otherwise, and disk files compared with the C
// library's.

#include "files/CXMemFile.h"
#include "tests/support/TempFolder.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

namespace
{
constexpr size_t kGathered = 16 << 20;

class Proportional
{
public:
    void Append(const std::string& piece) { m_file.Write(piece.data(), static_cast<unsigned>(piece.size())); }
    unsigned char* Bytes() { return m_file.GetBuffer(); }

private:
    CCustomMemFile m_file{CCustomMemFile::growProportionally};
};

class Vector
{
public:
    void Append(const std::string& piece) { m_bytes.insert(m_bytes.end(), piece.begin(), piece.end()); }
    unsigned char* Bytes() { return m_bytes.data(); }

private:
    std::vector<unsigned char> m_bytes;
};

class String
{
public:
    void Append(const std::string& piece) { m_bytes.append(piece); }
    char* Bytes() { return m_bytes.data(); }

private:
    std::string m_bytes;
};

template <class Target>
void Gather(benchmark::State& state)
{
    const std::string piece(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state)
    {
        Target target;
        for (size_t gathered = 0; gathered < kGathered; gathered += piece.size())
            target.Append(piece);
        benchmark::DoNotOptimize(target.Bytes());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kGathered));
}
BENCHMARK_TEMPLATE(Gather, Proportional)->Name("MemFile/Gather16MiB/ours")->Arg(4)->Arg(64)->Arg(4096);
BENCHMARK_TEMPLATE(Gather, Vector)->Name("MemFile/Gather16MiB/vector")->Arg(4)->Arg(64)->Arg(4096);
BENCHMARK_TEMPLATE(Gather, String)->Name("MemFile/Gather16MiB/string")->Arg(4)->Arg(64)->Arg(4096);

class OurFile
{
public:
    static std::wstring PathIn(const tev::test::TempFolder& folder) { return folder.WidePath("file"); }
    OurFile(const std::wstring& path, bool writes)
        : m_file(path.c_str(), writes ? CXFile::modeWrite | CXFile::modeCreate | CXFile::modeNoInherit
                                      : CXFile::modeRead | CXFile::shareDenyWrite | CXFile::modeNoInherit)
    {
    }
    void Write(const std::string& block) { m_file.Write(block.data(), static_cast<unsigned>(block.size())); }
    bool Read(std::string& block)
    {
        return m_file.Read(block.data(), static_cast<unsigned>(block.size())) == block.size();
    }

private:
    CXFile m_file;
};

class StdioFile
{
public:
    static std::string PathIn(const tev::test::TempFolder& folder) { return folder.Path("file").string(); }
    StdioFile(const std::string& path, bool writes) : m_file(std::fopen(path.c_str(), writes ? "wbe" : "rbe")) {}
    ~StdioFile() { std::fclose(m_file); }
    StdioFile(const StdioFile&) = delete;
    StdioFile& operator=(const StdioFile&) = delete;
    void Write(const std::string& block) { std::fwrite(block.data(), 1, block.size(), m_file); }
    bool Read(std::string& block) { return std::fread(block.data(), 1, block.size(), m_file) == block.size(); }

private:
    FILE* m_file;
};

template <class File>
void OpenAndClose(benchmark::State& state)
{
    const tev::test::TempFolder folder;
    folder.WriteFile("file", "x");
    const auto path = File::PathIn(folder);
    for (auto _ : state)
        File file(path, false);
}
BENCHMARK_TEMPLATE(OpenAndClose, OurFile)->Name("File/OpenAndClose/ours");
BENCHMARK_TEMPLATE(OpenAndClose, StdioFile)->Name("File/OpenAndClose/stdio");

template <class File>
void WriteAndRead(benchmark::State& state)
{
    const tev::test::TempFolder folder;
    const auto path = File::PathIn(folder);
    std::string block(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state)
    {
        {
            File file(path, true);
            for (size_t written = 0; written < kGathered; written += block.size())
                file.Write(block);
        }
        File file(path, false);
        while (file.Read(block))
            benchmark::DoNotOptimize(block.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(2 * kGathered));
}
BENCHMARK_TEMPLATE(WriteAndRead, OurFile)->Name("File/WriteAndRead16MiB/ours")->Arg(64 << 10)->Arg(1 << 20);
BENCHMARK_TEMPLATE(WriteAndRead, StdioFile)->Name("File/WriteAndRead16MiB/stdio")->Arg(64 << 10)->Arg(1 << 20);
} // namespace
