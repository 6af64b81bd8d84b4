// CXArchive over memory files, beside a loop of memcpy into a block of the same size.

#include "core/CXArchive.h"
#include "core/CXMemFile.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

namespace
{
constexpr unsigned kScalars = 1 << 22;
constexpr unsigned kFloats = 25 << 20;

void StoreIntegers(benchmark::State& state)
{
    CXMemFile file(kScalars * sizeof(int));
    for (auto _ : state)
    {
        file.SeekToBegin();
        CXArchive archive(&file, xArchiveStore);
        for (unsigned i = 0; i < kScalars; ++i)
            archive << i;
        archive.Close();
    }
    state.SetItemsProcessed(state.iterations() * kScalars);
}

void CopyIntegers(benchmark::State& state)
{
    std::vector<unsigned char> block(kScalars * sizeof(int));
    for (auto _ : state)
    {
        unsigned char* target = block.data();
        for (unsigned i = 0; i < kScalars; ++i)
        {
            benchmark::DoNotOptimize(i);
            std::memcpy(target, &i, sizeof i);
            target += sizeof i;
        }
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kScalars);
}

void LoadIntegers(benchmark::State& state)
{
    const std::vector<unsigned char> block(kScalars * sizeof(int), 7);
    CXMemFile file(block.data(), block.size(), false);
    for (auto _ : state)
    {
        file.SeekToBegin();
        CXArchive archive(&file, xArchiveLoad);
        unsigned sum = 0;
        for (unsigned i = 0; i < kScalars; ++i)
        {
            unsigned value;
            archive >> value;
            sum += value;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kScalars);
}

void SumIntegers(benchmark::State& state)
{
    const std::vector<unsigned char> block(kScalars * sizeof(int), 7);
    for (auto _ : state)
    {
        const unsigned char* source = block.data();
        unsigned sum = 0;
        for (unsigned i = 0; i < kScalars; ++i)
        {
            unsigned value;
            std::memcpy(&value, source, sizeof value);
            benchmark::DoNotOptimize(value);
            source += sizeof value;
            sum += value;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kScalars);
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
    state.SetBytesProcessed(state.iterations() * kFloats * 4);
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
    state.SetBytesProcessed(state.iterations() * kFloats * 4);
}

BENCHMARK(StoreIntegers)->Name("Archive/StoreIntegers/ours");
BENCHMARK(CopyIntegers)->Name("Archive/StoreIntegers/memcpy");
BENCHMARK(LoadIntegers)->Name("Archive/LoadIntegers/ours");
BENCHMARK(SumIntegers)->Name("Archive/LoadIntegers/memcpy");
BENCHMARK(StoreFloats)->Name("Archive/StoreFloats/ours");
BENCHMARK(CopyFloats)->Name("Archive/StoreFloats/memcpy");
} // namespace
