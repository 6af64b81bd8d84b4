// CBitArray compared with the bit sets of the standard library and of Boost.

#include "arrays/CBitArray.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <bitset>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#if __has_include(<boost/dynamic_bitset.hpp>)
#include <boost/dynamic_bitset.hpp>
#define TEV_BENCH_BOOST
#endif

namespace
{
constexpr std::size_t kFew = 10000;
constexpr std::size_t kMany = 10000000;

// One face for all, over bits that are set.

template <std::size_t SIZE>
struct Ours
{
    Ours() { m_bits.SetSize(SIZE, false); }

    void Set(std::size_t at) { m_bits.SetAt(static_cast<unsigned>(at), true); }
    bool Get(std::size_t at) const { return m_bits[static_cast<unsigned>(at)]; }
    std::size_t Count() const { return m_bits.GetCount(true); }
    bool Any() const { return m_bits.IsOneSet(true); }

    CBitArray m_bits;
};

template <std::size_t SIZE>
struct StandardBitset
{
    void Set(std::size_t at) { m_bits->set(at); }
    bool Get(std::size_t at) const { return m_bits->test(at); }
    std::size_t Count() const { return m_bits->count(); }
    bool Any() const { return m_bits->any(); }

    std::unique_ptr<std::bitset<SIZE>> m_bits = std::make_unique<std::bitset<SIZE>>();
};

template <std::size_t SIZE>
struct StandardVector
{
    void Set(std::size_t at) { m_bits[at] = true; }
    bool Get(std::size_t at) const { return m_bits[at]; }
    std::size_t Count() const { return static_cast<std::size_t>(std::count(m_bits.begin(), m_bits.end(), true)); }
    bool Any() const { return std::find(m_bits.begin(), m_bits.end(), true) != m_bits.end(); }

    std::vector<bool> m_bits = std::vector<bool>(SIZE);
};

#ifdef TEV_BENCH_BOOST
template <std::size_t SIZE>
struct Boost
{
    void Set(std::size_t at) { m_bits.set(at); }
    bool Get(std::size_t at) const { return m_bits.test(at); }
    std::size_t Count() const { return m_bits.count(); }
    bool Any() const { return m_bits.any(); }

    boost::dynamic_bitset<> m_bits = boost::dynamic_bitset<>(SIZE);
};
#endif

template <class BITS, std::size_t SIZE>
void CountBits(benchmark::State& state)
{
    BITS bits;
    std::mt19937 random(9);
    for (std::size_t i = 0; i < SIZE / 3; ++i)
        bits.Set(random() % SIZE);
    for (auto _ : state)
    {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(bits.Count());
    }
}

// Nothing is set but the last bit.
template <class BITS, std::size_t SIZE>
void FindAny(benchmark::State& state)
{
    BITS bits;
    bits.Set(SIZE - 1);
    for (auto _ : state)
    {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(bits.Any());
    }
}

template <class BITS, std::size_t SIZE>
void SetAndGet(benchmark::State& state)
{
    BITS bits;
    std::mt19937 random(9);
    std::vector<std::uint32_t> places(1000);
    for (std::uint32_t& place : places)
        place = random() % SIZE;
    for (auto _ : state)
    {
        std::size_t ones = 0;
        for (const std::uint32_t place : places)
        {
            bits.Set(place);
            ones += bits.Get(SIZE - 1 - place);
        }
        benchmark::DoNotOptimize(ones);
    }
}

template <template <std::size_t> class BITS, std::size_t SIZE>
void RegisterSize(const std::string& who)
{
    const std::string suffix = "/" + who + "/" + std::to_string(SIZE);
    benchmark::RegisterBenchmark(("BitCount" + suffix).c_str(), CountBits<BITS<SIZE>, SIZE>);
    benchmark::RegisterBenchmark(("BitAny" + suffix).c_str(), FindAny<BITS<SIZE>, SIZE>);
    benchmark::RegisterBenchmark(("BitSetAndGet" + suffix).c_str(), SetAndGet<BITS<SIZE>, SIZE>);
}

template <template <std::size_t> class BITS>
void RegisterBits(const std::string& who)
{
    RegisterSize<BITS, kFew>(who);
    RegisterSize<BITS, kMany>(who);
}

const bool kRegistered = [] {
    RegisterBits<Ours>("ours");
    RegisterBits<StandardBitset>("std_bitset");
    RegisterBits<StandardVector>("std_vector_bool");
#ifdef TEV_BENCH_BOOST
    RegisterBits<Boost>("boost_dynamic_bitset");
#endif
    return true;
}();
} // namespace
