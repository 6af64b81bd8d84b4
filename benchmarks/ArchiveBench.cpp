// CXArchive compared with a loop of memcpy and other serializers: numbers in memory, and blocks to a disk file.

#include "files/CXArchive.h"
#include "files/CXMemFile.h"
#include "tests/support/TempFolder.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <streambuf>
#include <string>
#include <vector>

#if __has_include(<QDataStream>)
#include <QBuffer>
#include <QByteArray>
#include <QDataStream>
#define TEVTOOLS_BENCH_QT
#endif

#ifdef TEVTOOLS_BENCH_BOOST
#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#endif

namespace
{
constexpr unsigned kScalars = 100000000;
constexpr unsigned kScalarBytes = kScalars * sizeof(unsigned);
constexpr unsigned kFloats = 25 << 20;
constexpr std::size_t kBlock = 1 << 20;
constexpr int kBlocks = 256;

// One face for all: Store and Load hand a function what takes or gives one number. The memory is kept from run to run, so
// that it is the numbers that cost time and not the first touch of each page.

class Ours
{
public:
    template <class Function>
    void Store(Function function)
    {
        m_file.SeekToBegin();
        CXArchive archive(&m_file, xArchiveStore);
        function([&archive](unsigned value) { archive << value; });
        archive.Close();
    }
    template <class Function>
    void Load(Function function)
    {
        m_file.SeekToBegin();
        CXArchive archive(&m_file, xArchiveLoad);
        function([&archive] {
            unsigned value;
            archive >> value;
            return value;
        });
    }

private:
    CXMemFile m_file{kScalarBytes};
};

class Memcpy
{
public:
    template <class Function>
    void Store(Function function)
    {
        unsigned char* target = m_block.get();
        function([&target](unsigned value) {
            benchmark::DoNotOptimize(value);
            std::memcpy(target, &value, sizeof value);
            target += sizeof value;
        });
    }
    template <class Function>
    void Load(Function function)
    {
        const unsigned char* source = m_block.get();
        function([&source] {
            unsigned value;
            std::memcpy(&value, source, sizeof value);
            benchmark::DoNotOptimize(value);
            source += sizeof value;
            return value;
        });
    }

private:
    std::unique_ptr<unsigned char[]> m_block{new unsigned char[kScalarBytes]()};
};

// As above, but the position lives in an object that others can see, as an archive's must.
class MemcpyAtMember
{
public:
    template <class Function>
    void Store(Function function)
    {
        m_at = m_block.get();
        function([this](unsigned value) {
            unsigned char* const target = m_at;
            std::memcpy(target, &value, sizeof value);
            m_at = target + sizeof value;
            benchmark::ClobberMemory();
        });
    }
    template <class Function>
    void Load(Function function)
    {
        m_at = m_block.get();
        function([this] {
            unsigned value;
            const unsigned char* const source = m_at;
            std::memcpy(&value, source, sizeof value);
            m_at += sizeof value;
            benchmark::ClobberMemory();
            return value;
        });
    }

private:
    std::unique_ptr<unsigned char[]> m_block{new unsigned char[kScalarBytes]()};
    unsigned char* m_at = nullptr;
};

#ifdef TEVTOOLS_BENCH_QT
class Qt
{
public:
    Qt() { m_buffer.open(QIODevice::ReadWrite); }
    template <class Function>
    void Store(Function function)
    {
        m_buffer.seek(0);
        QDataStream stream(&m_buffer);
        function([&stream](unsigned value) { stream << value; });
    }
    template <class Function>
    void Load(Function function)
    {
        m_buffer.seek(0);
        QDataStream stream(&m_buffer);
        function([&stream] {
            unsigned value;
            stream >> value;
            return value;
        });
    }

private:
    QByteArray m_bytes{static_cast<qsizetype>(kScalarBytes), '\0'};
    QBuffer m_buffer{&m_bytes};
};
#endif

#ifdef TEVTOOLS_BENCH_BOOST
class Boost
{
public:
    template <class Function>
    void Store(Function function)
    {
        Memory memory(m_block.get());
        boost::archive::binary_oarchive archive(memory, boost::archive::no_header);
        function([&archive](unsigned value) { archive << value; });
    }
    template <class Function>
    void Load(Function function)
    {
        Memory memory(m_block.get());
        boost::archive::binary_iarchive archive(memory, boost::archive::no_header);
        function([&archive] {
            unsigned value;
            archive >> value;
            return value;
        });
    }

private:
    struct Memory : std::streambuf
    {
        explicit Memory(char* block)
        {
            setp(block, block + kScalarBytes);
            setg(block, block, block + kScalarBytes);
        }
    };
    std::unique_ptr<char[]> m_block{new char[kScalarBytes]()};
};
#endif

constexpr auto kStoreAll = [](auto store) {
    for (unsigned i = 0; i < kScalars; ++i)
        store(i);
};

template <class Archiver>
void StoreIntegers(benchmark::State& state)
{
    Archiver archiver;
    benchmark::DoNotOptimize(&archiver);
    archiver.Store(kStoreAll);
    for (auto _ : state)
    {
        archiver.Store(kStoreAll);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t{kScalars});
}

// Four in a row, as an object does that stores its members.
template <class Archiver>
void StoreMembers(benchmark::State& state)
{
    Archiver archiver;
    benchmark::DoNotOptimize(&archiver);
    archiver.Store(kStoreAll);
    for (auto _ : state)
    {
        archiver.Store([](auto store) {
            for (unsigned i = 0; i < kScalars; i += 4)
            {
                store(i);
                store(i + 1);
                store(i + 2);
                store(i + 3);
            }
        });
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t{kScalars});
}

template <class Archiver>
void LoadIntegers(benchmark::State& state)
{
    Archiver archiver;
    benchmark::DoNotOptimize(&archiver);
    archiver.Store(kStoreAll);
    for (auto _ : state)
    {
        archiver.Load([](auto load) {
            unsigned sum = 0;
            for (unsigned i = 0; i < kScalars; ++i)
                sum += load();
            benchmark::DoNotOptimize(sum);
        });
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t{kScalars});
}

void StoreFloats(benchmark::State& state)
{
    const std::vector<float> floats(kFloats, 1.5f);
    for (auto _ : state)
    {
        CXMemFile file;
        CXArchive archive(&file, xArchiveStore);
        archive.Write(floats.data(), floats.size() * sizeof(float));
        archive.Close();
        benchmark::DoNotOptimize(file.GetBuffer());
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t{kFloats} * 4);
}

void CopyFloats(benchmark::State& state)
{
    const std::vector<float> floats(kFloats, 1.5f);
    for (auto _ : state)
    {
        std::unique_ptr<unsigned char[]> block(new unsigned char[floats.size() * sizeof(float)]);
        std::memcpy(block.get(), floats.data(), floats.size() * sizeof(float));
        benchmark::DoNotOptimize(block.get());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t{kFloats} * 4);
}

// Out to a file and back, in blocks, with a few bytes between them as containers write: the blocks lie at odd offsets.

void BlocksOurs(benchmark::State& state)
{
    const tev::test::TempFolder folder;
    const auto path = folder.WidePath("blocks");
    std::string block(kBlock, 'x');
    for (auto _ : state)
    {
        {
            CXFile file(path.c_str(), CXFile::modeWrite | CXFile::modeCreate);
            CXArchive archive(&file, xArchiveStore);
            for (int i = 0; i < kBlocks; ++i)
            {
                archive.WriteCount(kBlock);
                archive.Write(block.data(), block.size());
            }
            archive.Close();
        }
        CXFile file(path.c_str(), CXFile::modeRead);
        CXArchive archive(&file, xArchiveLoad);
        for (int i = 0; i < kBlocks; ++i)
            archive.EnsureRead(block.data(), archive.ReadCount());
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t{kBlocks} * std::int64_t{kBlock} * 2);
}

// The same bytes through the C library without its buffer: a system call for each count and each block.
void BlocksPlain(benchmark::State& state)
{
    const tev::test::TempFolder folder;
    const std::string path = folder.Path("blocks");
    std::string count(6, '\xFF');
    std::string block(kBlock, 'x');
    for (auto _ : state)
    {
        for (const char* mode : {"wb", "rb"})
        {
            std::FILE* file = std::fopen(path.c_str(), mode);
            std::setvbuf(file, nullptr, _IONBF, 0);
            for (int i = 0; i < kBlocks; ++i)
            {
                for (std::string* bytes : {&count, &block})
                {
                    const std::size_t moved = *mode == 'w' ? std::fwrite(bytes->data(), 1, bytes->size(), file)
                                                           : std::fread(bytes->data(), 1, bytes->size(), file);
                    if (moved != bytes->size())
                        state.SkipWithError("the disk is full");
                }
            }
            std::fclose(file);
        }
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t{kBlocks} * std::int64_t{kBlock} * 2);
}

template <class Archiver>
void RegisterNumbers(const std::string& who)
{
    benchmark::RegisterBenchmark(("Archive/StoreIntegers/" + who).c_str(), StoreIntegers<Archiver>);
    benchmark::RegisterBenchmark(("Archive/StoreMembers/" + who).c_str(), StoreMembers<Archiver>);
    benchmark::RegisterBenchmark(("Archive/LoadIntegers/" + who).c_str(), LoadIntegers<Archiver>);
}

const bool kRegistered = [] {
    RegisterNumbers<Ours>("ours");
    RegisterNumbers<Memcpy>("memcpy");
    RegisterNumbers<MemcpyAtMember>("memcpy_at_member");
#ifdef TEVTOOLS_BENCH_QT
    RegisterNumbers<Qt>("QDataStream");
#endif
#ifdef TEVTOOLS_BENCH_BOOST
    RegisterNumbers<Boost>("Boost.Serialization");
#endif
    return true;
}();

BENCHMARK(StoreFloats)->Name("Archive/StoreFloats/ours");
BENCHMARK(CopyFloats)->Name("Archive/StoreFloats/memcpy");
BENCHMARK(BlocksOurs)->Name("Archive/Blocks/ours");
BENCHMARK(BlocksPlain)->Name("Archive/Blocks/plain");
} // namespace
