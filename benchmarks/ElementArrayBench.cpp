// CElementArray and COffsetArray compared with std::vector.

#include "arrays/CElementArray.h"
#include "arrays/COffsetArray.h"
#include "arrays/ElementKinds.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

namespace
{
constexpr unsigned kFew = 10000;
constexpr unsigned kMany = 10000000;

void ElementAppendOurs(benchmark::State& state)
{
    const auto count = static_cast<int>(state.range(0));
    for (auto _ : state)
    {
        CElementArray array(new CXIntElements);
        for (int i = 0; i < count; ++i)
            array.Add(&i);
        benchmark::DoNotOptimize(array.GetFirst());
    }
    state.SetItemsProcessed(state.iterations() * count);
}

void ElementAppendVector(benchmark::State& state)
{
    const auto count = static_cast<int>(state.range(0));
    for (auto _ : state)
    {
        std::vector<int> array;
        for (int i = 0; i < count; ++i)
            array.push_back(i);
        benchmark::DoNotOptimize(array.data());
    }
    state.SetItemsProcessed(state.iterations() * count);
}

// Offsets of a file of 2 GiB, or of one where the last half lies beyond 4 GiB.
std::uint64_t OffsetOf(unsigned i, unsigned count, bool large)
{
    return large ? (std::uint64_t{1} << 33) * i / count : std::uint64_t{i} * 200;
}

void OffsetAppendOurs(benchmark::State& state)
{
    const auto count = static_cast<unsigned>(state.range(0));
    for (auto _ : state)
    {
        COffsetArray array;
        for (unsigned i = 0; i < count; ++i)
            array.SetAtGrow(i, OffsetOf(i, count, state.range(1) != 0));
        benchmark::DoNotOptimize(array.GetAt(count / 2));
    }
    state.SetItemsProcessed(state.iterations() * count);
}

void OffsetAppendVector(benchmark::State& state)
{
    const auto count = static_cast<unsigned>(state.range(0));
    for (auto _ : state)
    {
        std::vector<std::uint64_t> array;
        for (unsigned i = 0; i < count; ++i)
            array.push_back(OffsetOf(i, count, state.range(1) != 0));
        benchmark::DoNotOptimize(array[count / 2]);
    }
    state.SetItemsProcessed(state.iterations() * count);
}

template <class ARRAY>
void SumOffsets(benchmark::State& state, const ARRAY& array, unsigned count)
{
    for (auto _ : state)
    {
        std::uint64_t sum = 0;
        for (unsigned i = 0, at = 0; i < count; ++i, at = (at + 7919) % count)
            sum += array[at];
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * count);
}

void OffsetGetOurs(benchmark::State& state)
{
    const auto count = static_cast<unsigned>(state.range(0));
    COffsetArray array;
    for (unsigned i = 0; i < count; ++i)
        array.SetAtGrow(i, OffsetOf(i, count, state.range(1) != 0));
    SumOffsets(state, array, count);
}

void OffsetGetVector(benchmark::State& state)
{
    const auto count = static_cast<unsigned>(state.range(0));
    std::vector<std::uint64_t> array;
    for (unsigned i = 0; i < count; ++i)
        array.push_back(OffsetOf(i, count, state.range(1) != 0));
    SumOffsets(state, array, count);
}

BENCHMARK(ElementAppendOurs)->Name("ElementAppend/ours")->Arg(kFew)->Arg(kMany);
BENCHMARK(ElementAppendVector)->Name("ElementAppend/std_vector")->Arg(kFew)->Arg(kMany);
BENCHMARK(OffsetAppendOurs)->Name("OffsetAppend/ours")->Args({kFew, 0})->Args({kMany, 0})->Args({kMany, 1});
BENCHMARK(OffsetAppendVector)->Name("OffsetAppend/std_vector")->Args({kFew, 0})->Args({kMany, 0})->Args({kMany, 1});
BENCHMARK(OffsetGetOurs)->Name("OffsetGet/ours")->Args({kFew, 0})->Args({kMany, 0})->Args({kMany, 1});
BENCHMARK(OffsetGetVector)->Name("OffsetGet/std_vector")->Args({kFew, 0})->Args({kMany, 0})->Args({kMany, 1});
} // namespace
