// CHashMap compared with the maps a user would take instead. Each benchmark counts entries: the time is that of one
// operation.

#include "maps/CHashMap.h"
#include "tests/support/HashTableModel.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#if __has_include(<absl/container/flat_hash_map.h>)
#include <absl/container/flat_hash_map.h>
#define TEV_BENCH_ABSL
#endif
#if __has_include(<boost/unordered/unordered_flat_map.hpp>)
#include <boost/unordered/unordered_flat_map.hpp>
#define TEV_BENCH_BOOST
#endif
#if __has_include(<QHash>)
#include <QByteArray>
#include <QHash>
#define TEV_BENCH_QT
#endif

namespace
{
// One face for all: Put, Has, Take, Sum.

template <class KEY, class MAP>
struct Standard
{
    using Key = KEY;
    static constexpr bool kTexts = std::is_same_v<KEY, std::string>;

    MAP m_map;

    void Put(const KEY& key, int value) { m_map.emplace(key, value); }
    bool Has(const KEY& key) const { return m_map.find(key) != m_map.end(); }
    void Take(const KEY& key) { m_map.erase(key); }
    std::uint64_t Sum() const
    {
        std::uint64_t sum = 0;
        for (const auto& [key, value] : m_map)
            sum += static_cast<unsigned>(value);
        return sum;
    }
};

template <class KEY, class ARG_KEY>
struct Ours
{
    using Key = KEY;
    static constexpr bool kTexts = std::is_same_v<KEY, CXTString<char>>;

    CHashMap<KEY, ARG_KEY, int> m_map;

    void Put(const KEY& key, int value) { m_map.Insert(key, value); }
    bool Has(const KEY& key) const { return m_map.IsFound(key); }
    void Take(const KEY& key) { m_map.Remove(key, false); }
    std::uint64_t Sum() const
    {
        std::uint64_t sum = 0;
        int* value = nullptr;
        for (unsigned at = m_map.GetFirst(); at != 0xFFFFFFFF;)
        {
            const KEY* key = nullptr;
            m_map.GetNext(at, key, value);
            sum += static_cast<unsigned>(*value);
        }
        return sum;
    }
};

#ifdef TEV_BENCH_QT
template <class KEY>
struct Qt
{
    using Key = KEY;
    static constexpr bool kTexts = std::is_same_v<KEY, QByteArray>;

    QHash<KEY, int> m_map;

    void Put(const KEY& key, int value)
    {
        if constexpr (kTexts) // a text of its own, as the others have
            m_map.insert(KEY(key.constData(), key.size()), value);
        else
            m_map.insert(key, value);
    }
    bool Has(const KEY& key) const { return m_map.contains(key); }
    void Take(const KEY& key) { m_map.remove(key); }
    std::uint64_t Sum() const
    {
        std::uint64_t sum = 0;
        for (const int value : m_map)
            sum += static_cast<unsigned>(value);
        return sum;
    }
};
#endif

// Keys from a fixed seed, all different: the first half of them go into the maps, the others are asked for in vain.
template <class MAP>
const std::vector<typename MAP::Key>& Keys(std::size_t count)
{
    using Key = typename MAP::Key;
    static std::vector<Key> keys;
    if (keys.size() == 2 * count)
        return keys;
    std::vector<Key>().swap(keys);
    keys.reserve(2 * count);
    std::mt19937 random(3);
    const std::uint32_t offset = random();
    for (std::uint32_t i = 0; i < 2 * count; ++i)
    {
        // An odd factor and two shifts: every number once, in no order.
        std::uint32_t number = (i + offset) * 0x7FEB352DU;
        number = (number ^ (number >> 15)) * 0x846CA68BU;
        number ^= number >> 16;
        if constexpr (MAP::kTexts)
            keys.emplace_back(("materials/layer_" + std::to_string(number) + ".tex").c_str());
        else
            keys.push_back(static_cast<Key>(number));
    }
    return keys;
}

template <class MAP>
std::unique_ptr<MAP> Filled(std::size_t count)
{
    const auto& keys = Keys<MAP>(count);
    auto map = std::make_unique<MAP>();
    for (std::size_t i = 0; i < count; ++i)
        map->Put(keys[i], static_cast<int>(i));
    return map;
}

void CountEntries(benchmark::State& state, std::size_t each)
{
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * each));
}

template <class MAP>
void Insert(benchmark::State& state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    Keys<MAP>(count);
    for (auto _ : state)
        benchmark::DoNotOptimize(Filled<MAP>(count));
    CountEntries(state, count);
}

// The keys are asked for in another order than they went in.
template <class MAP>
void Look(benchmark::State& state, bool hits)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto map = Filled<MAP>(count);
    const auto& keys = Keys<MAP>(count);
    std::vector<typename MAP::Key> asked(keys.begin() + (hits ? 0 : count), keys.begin() + (hits ? count : 2 * count));
    std::shuffle(asked.begin(), asked.end(), std::mt19937(5));
    for (auto _ : state)
    {
        std::size_t found = 0;
        for (const auto& key : asked)
            found += map->Has(key);
        if (found != (hits ? count : 0))
            state.SkipWithError("wrong answer");
    }
    CountEntries(state, count);
}

template <class MAP>
void Hit(benchmark::State& state)
{
    Look<MAP>(state, true);
}

template <class MAP>
void Miss(benchmark::State& state)
{
    Look<MAP>(state, false);
}

template <class MAP>
void Iterate(benchmark::State& state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto map = Filled<MAP>(count);
    for (auto _ : state)
        benchmark::DoNotOptimize(map->Sum());
    CountEntries(state, count);
}

// Full all the time: each step takes the oldest entry out and puts a new one in.
template <class MAP>
void Erase(benchmark::State& state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto map = Filled<MAP>(count);
    const auto& keys = Keys<MAP>(count);
    std::size_t oldest = 0;
    std::size_t next = count;
    for (auto _ : state)
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            map->Take(keys[oldest]);
            map->Put(keys[next], 1);
            oldest = oldest + 1 == keys.size() ? 0 : oldest + 1;
            next = next + 1 == keys.size() ? 0 : next + 1;
        }
    }
    CountEntries(state, count);
}

// Keys whose homes in CHashMap's table for that many entries are as few slots as there can be, so that each search passes
// many of them. The hash and the probing are fixed, since they decide the order of a walk; to the others these keys are
// random.
std::vector<std::uint32_t> CraftedKeys(std::size_t count)
{
    std::uint64_t size = 0;
    {
        CHashMap<unsigned, unsigned, int> map;
        for (unsigned i = 0; i < count; ++i)
            map.Insert(i, 0);
        size = map.GetHashTableSize();
    }
    std::vector<std::uint32_t> keys;
    for (std::uint64_t home = 0; keys.size() < count; ++home)
    {
        for (std::uint64_t hash = home; hash < (std::uint64_t(1) << 32) && keys.size() < count; hash += size)
            keys.push_back(HashTableModel::KeyOf(static_cast<std::uint32_t>(hash)));
    }
    return keys;
}

template <class MAP>
void CraftedInsert(benchmark::State& state)
{
    const auto keys = CraftedKeys(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
    {
        MAP map;
        for (const std::uint32_t key : keys)
            map.Put(key, 1);
        benchmark::DoNotOptimize(map);
    }
    CountEntries(state, keys.size());
}

template <class MAP>
void CraftedHit(benchmark::State& state)
{
    const auto keys = CraftedKeys(static_cast<std::size_t>(state.range(0)));
    MAP map;
    for (const std::uint32_t key : keys)
        map.Put(key, 1);
    for (auto _ : state)
    {
        std::size_t found = 0;
        for (const std::uint32_t key : keys)
            found += map.Has(key);
        if (found != keys.size())
            state.SkipWithError("wrong answer");
    }
    CountEntries(state, keys.size());
}

template <class MAP>
void RegisterMap(const char* who, const char* keys, const std::vector<std::int64_t>& counts)
{
    const struct
    {
        const char* m_name;
        void (*m_run)(benchmark::State&);
    } kinds[] = {{"Insert", Insert<MAP>},
                 {"Hit", Hit<MAP>},
                 {"Miss", Miss<MAP>},
                 {"Iterate", Iterate<MAP>},
                 {"Erase", Erase<MAP>}};
    for (const std::int64_t count : counts)
        for (const auto& kind : kinds)
            benchmark::RegisterBenchmark((std::string("Map") + kind.m_name + "/" + who + "/" + keys).c_str(),
                                         kind.m_run)
                ->Arg(count);
    if constexpr (!MAP::kTexts)
    {
        for (const std::int64_t count : {100000, 1000000})
        {
            benchmark::RegisterBenchmark((std::string("MapCraftedInsert/") + who).c_str(), CraftedInsert<MAP>)
                ->Arg(count);
            benchmark::RegisterBenchmark((std::string("MapCraftedHit/") + who).c_str(), CraftedHit<MAP>)->Arg(count);
        }
    }
}

const bool kRegistered = [] {
    const std::vector<std::int64_t> numbers = {1000, 10000, 100000, 1000000, 10000000};
    const std::vector<std::int64_t> texts = {1000, 100000, 1000000};
    using Hash32 = std::unordered_map<unsigned, int>;
    RegisterMap<Ours<unsigned, unsigned>>("ours", "unsigned", numbers);
    RegisterMap<Standard<unsigned, Hash32>>("std_unordered_map", "unsigned", numbers);
#ifdef TEV_BENCH_ABSL
    RegisterMap<Standard<unsigned, absl::flat_hash_map<unsigned, int>>>("absl_flat_hash_map", "unsigned", numbers);
#endif
#ifdef TEV_BENCH_BOOST
    RegisterMap<Standard<unsigned, boost::unordered_flat_map<unsigned, int>>>("boost_flat_map", "unsigned", numbers);
#endif
#ifdef TEV_BENCH_QT
    RegisterMap<Qt<unsigned>>("QHash", "unsigned", numbers);
#endif
    RegisterMap<Ours<CXTString<char>, const CXTString<char>&>>("ours", "text", texts);
    RegisterMap<Standard<std::string, std::unordered_map<std::string, int>>>("std_unordered_map", "text", texts);
#ifdef TEV_BENCH_ABSL
    RegisterMap<Standard<std::string, absl::flat_hash_map<std::string, int>>>("absl_flat_hash_map", "text", texts);
#endif
#ifdef TEV_BENCH_BOOST
    RegisterMap<Standard<std::string, boost::unordered_flat_map<std::string, int>>>("boost_flat_map", "text", texts);
#endif
#ifdef TEV_BENCH_QT
    RegisterMap<Qt<QByteArray>>("QHash", "text", texts);
#endif
    return true;
}();
} // namespace
