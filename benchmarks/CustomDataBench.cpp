// CCustomData compared with what a program would keep its settings in instead. Each benchmark counts values.

#include "settings/CCustomData.h"
#include "tests/support/TempFolder.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <any>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <numeric>
#include <random>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include <malloc.h>

#if __has_include(<QVariant>)
#include <QDataStream>
#include <QIODevice>
#include <QSettings>
#include <QVariant>
#define TEV_BENCH_QT
#endif
#if __has_include(<nlohmann/json.hpp>)
#include <nlohmann/json.hpp>
#define TEV_BENCH_JSON
#endif

namespace
{
using Block = std::array<unsigned char, 64>;
using tev::test::TempFolder;

constexpr unsigned kIdStep = 7919;       // identifiers are spread, as those of dialogs and plug-ins are
constexpr unsigned kTextNumber = 100000; // that texts begin with, so that all have one length

// One interface for all: Set and Get of int, long long, double, Text and Block under a Key.

struct Ours
{
    using Key = unsigned;
    using Text = CXTString<wchar_t>;
    CCustomData m_store;
    Text m_default;

    static Key KeyOf(unsigned id) { return id; }
    static Text TextOf(unsigned i) { return (L"a value of text " + std::to_wstring(kTextNumber + i)).c_str(); }
    void Set(Key key, int value) { m_store.SetInt(key, value); }
    void Set(Key key, long long value) { m_store.SetLongInt(key, value); }
    void Set(Key key, double value) { m_store.SetDouble(key, value); }
    void Set(Key key, const Text& value) { m_store.SetStringW(key, value); }
    void Set(Key key, const Block& value) { m_store.SetBinary(key, value.data(), sizeof value); }
    bool Get(Key key, int& value) const { return m_store.GetInt(key, value, 0); }
    bool Get(Key key, long long& value) const { return m_store.GetLongInt(key, value, 0); }
    bool Get(Key key, double& value) const { return m_store.GetDouble(key, value, 0); }
    bool Get(Key key, Text& value) const { return m_store.GetStringW(key, value, m_default); }
    bool Get(Key key, Block& value) const { return m_store.GetBinary(key, value.data(), sizeof value); }
};

struct Standard
{
    using Key = unsigned;
    using Text = std::wstring;
    std::unordered_map<unsigned, std::any> m_values;

    static Key KeyOf(unsigned id) { return id; }
    static Text TextOf(unsigned i) { return L"a value of text " + std::to_wstring(kTextNumber + i); }
    template <class T>
    void Set(Key key, const T& value)
    {
        m_values[key] = value;
    }
    template <class T>
    bool Get(Key key, T& value) const
    {
        const auto found = m_values.find(key);
        const T* held = found == m_values.end() ? nullptr : std::any_cast<T>(&found->second);
        if (held != nullptr)
            value = *held;
        return held != nullptr;
    }
};

#ifdef TEV_BENCH_QT
template <class MAP>
struct Qt
{
    using Key = QString;
    using Text = QString;
    MAP m_values;

    static Key KeyOf(unsigned id) { return QString::number(id); }
    static Text TextOf(unsigned i) { return QStringLiteral("a value of text ") + QString::number(kTextNumber + i); }
    template <class T>
    void Set(const Key& key, const T& value)
    {
        if constexpr (std::is_same_v<T, Block>)
            m_values.insert(key, QByteArray(reinterpret_cast<const char*>(value.data()), sizeof value));
        else
            m_values.insert(key, QVariant(value));
    }
    template <class T>
    bool Get(const Key& key, T& value) const
    {
        const auto found = m_values.constFind(key);
        if (found == m_values.constEnd())
            return false;
        if constexpr (std::is_same_v<T, Block>)
        {
            const QByteArray bytes = found->toByteArray();
            std::copy_n(bytes.constData(), value.size(), value.data());
        }
        else
            value = found->template value<T>();
        return true;
    }
};

class QtSettings
{
public:
    using Key = QString;
    using Text = QString;
    explicit QtSettings(const TempFolder& folder)
        : m_settings(QString::fromStdString(folder.Path("ini").string()), QSettings::IniFormat)
    {
    }

    static Key KeyOf(unsigned id) { return QString::number(id); }
    static Text TextOf(unsigned i) { return Qt<QVariantHash>::TextOf(i); }
    template <class T>
    void Set(const Key& key, const T& value)
    {
        m_settings.setValue(key, QVariant(value));
    }
    template <class T>
    bool Get(const Key& key, T& value) const
    {
        value = m_settings.value(key).template value<T>();
        return true;
    }
    void Save() { m_settings.sync(); }
    void Load() {} // loaded by the constructor

private:
    QSettings m_settings;
};
#endif

#ifdef TEV_BENCH_JSON
class Json
{
public:
    using Key = std::string;
    using Text = std::string;
    explicit Json(const TempFolder& folder) : m_path(folder.Path("json").string()) {}

    static Key KeyOf(unsigned id) { return std::to_string(id); }
    static Text TextOf(unsigned i) { return "a value of text " + std::to_string(kTextNumber + i); }
    template <class T>
    void Set(const Key& key, const T& value)
    {
        m_json[key] = value;
    }
    template <class T>
    bool Get(const Key& key, T& value) const
    {
        const auto found = m_json.find(key);
        if (found != m_json.end())
            found->get_to(value);
        return found != m_json.end();
    }
    void Save() { std::ofstream(m_path) << m_json; }
    void Load()
    {
        std::ifstream file(m_path);
        m_json = nlohmann::json::parse(file);
    }

private:
    std::string m_path;
    nlohmann::json m_json;
};
#endif

class OurFile : public Ours
{
public:
    explicit OurFile(const TempFolder& folder) : m_path(folder.WidePath("prefs")) {}

    void Save() { Check(m_store.SaveToPrefs(m_path.c_str(), 1, 2)); }
    void Load() { Check(m_store.LoadFromPrefs(m_path.c_str(), 1, 2, true)); }

private:
    static void Check(bool isDone)
    {
        if (!isDone)
            std::abort();
    }

    std::wstring m_path;
};

template <class STORE, class T>
T ValueOf(unsigned i)
{
    if constexpr (std::is_same_v<T, Block>)
        return {static_cast<unsigned char>(i)};
    else if constexpr (std::is_arithmetic_v<T>)
        return static_cast<T>(i) + T(1) / 4;
    else
        return STORE::TextOf(i);
}

/// The keys of that many values, in the order in which they are used.
template <class STORE>
std::vector<typename STORE::Key> Keys(std::size_t count)
{
    std::vector<unsigned> ids(count);
    std::iota(ids.begin(), ids.end(), 0U);
    std::shuffle(ids.begin(), ids.end(), std::mt19937(5));
    std::vector<typename STORE::Key> keys;
    keys.reserve(count);
    for (const unsigned id : ids)
        keys.push_back(STORE::KeyOf(id * kIdStep));
    return keys;
}

void CountValues(benchmark::State& state, std::size_t each)
{
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * each));
}

/// As many values as there are keys.
template <class T, class STORE>
void Fill(STORE& store, const std::vector<typename STORE::Key>& keys, std::size_t first = 0, std::size_t step = 1)
{
    for (std::size_t i = first; i < keys.size(); i += step)
        store.Set(keys[i], ValueOf<STORE, T>(static_cast<unsigned>(i)));
}

template <class STORE>
void FillMixed(STORE& store, const std::vector<typename STORE::Key>& keys)
{
    Fill<int>(store, keys, 0, 4);
    Fill<long long>(store, keys, 1, 4);
    Fill<double>(store, keys, 2, 4);
    Fill<typename STORE::Text>(store, keys, 3, 4);
}

// Values that are there already get new ones of their kind.
template <class STORE, class T>
void Set(benchmark::State& state)
{
    const auto keys = Keys<STORE>(static_cast<std::size_t>(state.range(0)));
    STORE store;
    Fill<T>(store, keys);
    const T value = ValueOf<STORE, T>(10);
    for (auto _ : state)
    {
        for (const auto& key : keys)
            store.Set(key, value);
    }
    CountValues(state, keys.size());
}

template <class STORE, class T>
void Get(benchmark::State& state)
{
    const auto keys = Keys<STORE>(static_cast<std::size_t>(state.range(0)));
    STORE store;
    Fill<T>(store, keys);
    T value = T();
    for (auto _ : state)
    {
        for (const auto& key : keys)
        {
            if (!store.Get(key, value))
                state.SkipWithError("wrong answer");
            benchmark::DoNotOptimize(value);
        }
    }
    CountValues(state, keys.size());
}

// One store that several threads read. Ours locks itself; the peers are guarded as a program would do it, by a mutex that a
// thread may take again.
template <class STORE>
struct Guarded
{
    STORE m_store;
    std::recursive_mutex m_mutex;

    bool Get(const typename STORE::Key& key, int& value)
    {
        const std::lock_guard<std::recursive_mutex> lock(m_mutex);
        return m_store.Get(key, value);
    }
};

template <>
struct Guarded<Ours>
{
    Ours m_store;

    bool Get(unsigned key, int& value) const { return m_store.Get(key, value); }
};

template <class STORE>
void GetShared(benchmark::State& state)
{
    static Guarded<STORE> shared;
    static const auto keys = [] {
        auto all = Keys<STORE>(1000);
        Fill<int>(shared.m_store, all);
        return all;
    }();
    int value = 0;
    for (auto _ : state)
    {
        for (const auto& key : keys)
        {
            if (!shared.Get(key, value))
                state.SkipWithError("wrong answer");
            benchmark::DoNotOptimize(value);
        }
    }
    CountValues(state, keys.size());
}

// One value gets another size, and its first one again: ours is appended at the end each time, and the gaps are closed together.
template <class STORE>
void Resize(benchmark::State& state)
{
    const auto keys = Keys<STORE>(static_cast<std::size_t>(state.range(0)));
    STORE store;
    FillMixed(store, keys);
    const auto small = ValueOf<STORE, int>(1);
    const auto large = ValueOf<STORE, double>(1);
    std::size_t at = 0;
    for (auto _ : state)
    {
        at = (at + 1) % keys.size();
        store.Set(keys[at], small);
        store.Set(keys[at], large);
    }
    CountValues(state, 2);
}

// From nothing to a store of mixed values.
template <class STORE>
void Build(benchmark::State& state)
{
    const auto keys = Keys<STORE>(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
    {
        STORE store;
        FillMixed(store, keys);
        benchmark::DoNotOptimize(store);
    }
    CountValues(state, keys.size());
}

// The memory of a store of ints is counted, not its time.
template <class STORE>
void Memory(benchmark::State& state)
{
    const auto keys = Keys<STORE>(static_cast<std::size_t>(state.range(0)));
    const auto inUse = [] {
        const struct mallinfo2 info = mallinfo2();
        return static_cast<double>(info.uordblks + info.hblkhd);
    };
    for (auto _ : state)
    {
        const double before = inUse();
        STORE store;
        Fill<int>(store, keys);
        state.counters["bytes_per_value"] = (inUse() - before) / static_cast<double>(keys.size());
    }
}

constexpr std::size_t kSentValues = 1000;

void OurBytesOut(benchmark::State& state)
{
    Ours store;
    FillMixed(store, Keys<Ours>(kSentValues));
    for (auto _ : state)
    {
        unsigned __int64 size = 0;
        void* block = store.m_store.SerializeToData(size);
        benchmark::DoNotOptimize(block);
        CCustomData::Free(block);
    }
    CountValues(state, kSentValues);
}
BENCHMARK(OurBytesOut)->Name("StoreToBytes/ours");

void OurBytesIn(benchmark::State& state)
{
    Ours store;
    FillMixed(store, Keys<Ours>(kSentValues));
    unsigned __int64 size = 0;
    void* block = store.m_store.SerializeToData(size);
    for (auto _ : state)
    {
        CCustomData loaded;
        if (!loaded.SerializeFromData(block, size))
            state.SkipWithError("wrong answer");
    }
    CCustomData::Free(block);
    CountValues(state, kSentValues);
}
BENCHMARK(OurBytesIn)->Name("StoreFromBytes/ours");

#ifdef TEV_BENCH_QT
template <class MAP>
QByteArray StreamOf(const MAP& values)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << values;
    return bytes;
}

template <class MAP>
void QtBytesOut(benchmark::State& state)
{
    Qt<MAP> store;
    FillMixed(store, Keys<Qt<MAP>>(kSentValues));
    for (auto _ : state)
        benchmark::DoNotOptimize(StreamOf(store.m_values));
    CountValues(state, kSentValues);
}
BENCHMARK_TEMPLATE(QtBytesOut, QVariantMap)->Name("StoreToBytes/QDataStream_map");
BENCHMARK_TEMPLATE(QtBytesOut, QVariantHash)->Name("StoreToBytes/QDataStream_hash");

template <class MAP>
void QtBytesIn(benchmark::State& state)
{
    Qt<MAP> store;
    FillMixed(store, Keys<Qt<MAP>>(kSentValues));
    const QByteArray bytes = StreamOf(store.m_values);
    for (auto _ : state)
    {
        MAP loaded;
        QDataStream stream(bytes);
        stream >> loaded;
        if (loaded.size() != store.m_values.size())
            state.SkipWithError("wrong answer");
    }
    CountValues(state, kSentValues);
}
BENCHMARK_TEMPLATE(QtBytesIn, QVariantMap)->Name("StoreFromBytes/QDataStream_map");
BENCHMARK_TEMPLATE(QtBytesIn, QVariantHash)->Name("StoreFromBytes/QDataStream_hash");
#endif

constexpr std::size_t kSavedValues = 10000;

template <class SETTINGS>
void Save(benchmark::State& state)
{
    const TempFolder folder;
    const auto keys = Keys<SETTINGS>(kSavedValues);
    SETTINGS settings(folder);
    FillMixed(settings, keys);
    int change = 0;
    for (auto _ : state)
    {
        settings.Set(keys[0], ++change);
        settings.Save();
    }
    CountValues(state, kSavedValues);
}

// Each value is asked for once, since some only then make what they say of what they read.
template <class SETTINGS>
void Load(benchmark::State& state)
{
    const TempFolder folder;
    const auto keys = Keys<SETTINGS>(kSavedValues);
    {
        SETTINGS settings(folder);
        FillMixed(settings, keys);
        settings.Save();
    }
    typename SETTINGS::Text text;
    int number = 0;
    long long large = 0;
    double real = 0;
    for (auto _ : state)
    {
        SETTINGS settings(folder);
        settings.Load();
        std::size_t found = 0;
        for (std::size_t i = 0; i < keys.size(); i += 4)
            found += settings.Get(keys[i], number) && settings.Get(keys[i + 1], large) &&
                     settings.Get(keys[i + 2], real) && settings.Get(keys[i + 3], text);
        if (found != keys.size() / 4 || text != ValueOf<SETTINGS, typename SETTINGS::Text>(kSavedValues - 1))
            state.SkipWithError("wrong answer");
    }
    CountValues(state, kSavedValues);
}

template <class SETTINGS>
void RegisterFile(const std::string& who)
{
    benchmark::RegisterBenchmark(("StoreSave/" + who).c_str(), Save<SETTINGS>)->UseRealTime();
    benchmark::RegisterBenchmark(("StoreLoad/" + who).c_str(), Load<SETTINGS>)->UseRealTime();
}

template <class STORE, class T>
void RegisterKind(const std::string& who, const std::string& kind)
{
    for (const std::int64_t count : {10, 1000, 100000})
    {
        benchmark::RegisterBenchmark(("StoreSet/" + kind + "/" + who).c_str(), Set<STORE, T>)->Arg(count);
        benchmark::RegisterBenchmark(("StoreGet/" + kind + "/" + who).c_str(), Get<STORE, T>)->Arg(count);
    }
}

template <class STORE>
void RegisterStore(const std::string& who)
{
    RegisterKind<STORE, int>(who, "int");
    RegisterKind<STORE, long long>(who, "int64");
    RegisterKind<STORE, double>(who, "double");
    RegisterKind<STORE, typename STORE::Text>(who, "text");
    RegisterKind<STORE, Block>(who, "binary");
    for (const std::int64_t count : {10, 1000, 100000})
    {
        benchmark::RegisterBenchmark(("StoreBuild/" + who).c_str(), Build<STORE>)->Arg(count);
        benchmark::RegisterBenchmark(("StoreResize/" + who).c_str(), Resize<STORE>)->Arg(count);
    }
    for (const int threads : {1, 4})
        benchmark::RegisterBenchmark(("StoreGetShared/" + std::to_string(threads) + "_threads/" + who).c_str(),
                                     GetShared<STORE>)
            ->Threads(threads)
            ->UseRealTime();
    benchmark::RegisterBenchmark(("StoreMemory/" + who).c_str(), Memory<STORE>)->Arg(100000)->Iterations(1);
}

const bool kRegistered = [] {
    RegisterStore<Ours>("ours");
    RegisterStore<Standard>("std_unordered_map_any");
    RegisterFile<OurFile>("ours");
#ifdef TEV_BENCH_QT
    RegisterStore<Qt<QVariantMap>>("QVariantMap");
    RegisterStore<Qt<QVariantHash>>("QVariantHash");
    RegisterFile<QtSettings>("QSettings");
#endif
#ifdef TEV_BENCH_JSON
    RegisterFile<Json>("nlohmann_json");
#endif
    return true;
}();
} // namespace
