// CXArray compared with the arrays a user would take instead. Each benchmark counts elements: the time is that of one
// operation.

#include "arrays/CXArray.h"
#include "text/CXTString.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#if __has_include(<QList>)
#include <QList>
#define TEV_BENCH_QT
#endif

namespace
{
// One face for all.

template <class TYPE, int GROW_BY, bool PLAIN_DATA = std::is_trivially_copyable_v<TYPE>>
struct Ours
{
    using Type = TYPE;

    Ours() { m_array.PreAllocate(0, GROW_BY); }
    void Add(const TYPE& value) { m_array.Add(value); }
    void Insert(int at, const TYPE& value) { m_array.InsertAt(at, value); }
    void Remove(int at) { m_array.RemoveAt(at); }
    void RemoveAll(const TYPE& value) { m_array.Remove(value, false); }
    const TYPE* Data() const { return m_array.GetData(); }
    std::uint64_t Sum() const
    {
        std::uint64_t sum = 0;
        for (int i = 0; i < m_array.GetSize(); ++i)
            sum += static_cast<unsigned>(m_array[i]);
        return sum;
    }

    CXArray<TYPE, const TYPE&> m_array{PLAIN_DATA};
};

// One that grows as often, by so many elements.
template <class TYPE, std::size_t STEP = 0>
struct Standard
{
    using Type = TYPE;

    void Add(const TYPE& value)
    {
        if (STEP != 0 && m_array.size() == m_array.capacity())
            m_array.reserve(m_array.size() + STEP);
        m_array.push_back(value);
    }
    void Insert(int at, const TYPE& value) { m_array.insert(m_array.begin() + at, value); }
    void Remove(int at) { m_array.erase(m_array.begin() + at); }
    void RemoveAll(const TYPE& value)
    {
        m_array.erase(std::remove(m_array.begin(), m_array.end(), value), m_array.end());
    }
    const TYPE* Data() const { return m_array.data(); }
    std::uint64_t Sum() const
    {
        std::uint64_t sum = 0;
        for (std::size_t i = 0; i < m_array.size(); ++i)
            sum += static_cast<unsigned>(m_array.at(i));
        return sum;
    }

    std::vector<TYPE> m_array;
};

#ifdef TEV_BENCH_QT
template <class TYPE>
struct Qt
{
    using Type = TYPE;

    void Add(const TYPE& value) { m_array.append(value); }
    void Insert(int at, const TYPE& value) { m_array.insert(at, value); }
    void Remove(int at) { m_array.removeAt(at); }
    void RemoveAll(const TYPE& value) { m_array.removeAll(value); }
    const TYPE* Data() const { return m_array.constData(); }
    std::uint64_t Sum() const
    {
        std::uint64_t sum = 0;
        for (qsizetype i = 0; i < m_array.size(); ++i)
            sum += static_cast<unsigned>(m_array.at(i));
        return sum;
    }

    QList<TYPE> m_array;
};
#endif

template <class TYPE>
TYPE Value(int number)
{
    if constexpr (std::is_same_v<TYPE, int>)
        return number;
    else
        return ("textures/wood_" + std::to_string(number % 10) + ".png").c_str();
}

void CountElements(benchmark::State& state)
{
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

template <class ARRAY>
void Append(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    const auto value = Value<typename ARRAY::Type>(7);
    for (auto _ : state)
    {
        ARRAY array;
        for (int i = 0; i < count; ++i)
            array.Add(value);
        benchmark::DoNotOptimize(array.Data());
    }
    CountElements(state);
}

template <class ARRAY>
std::unique_ptr<ARRAY> Filled(int count)
{
    auto array = std::make_unique<ARRAY>();
    for (int i = 0; i < count; ++i)
        array->Add(Value<typename ARRAY::Type>(i));
    return array;
}

// Into the middle of an array of so many elements and out of it again.
template <class ARRAY>
void InsertAndRemove(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    const auto array = Filled<ARRAY>(count);
    const auto value = Value<typename ARRAY::Type>(7);
    for (auto _ : state)
    {
        array->Insert(count / 2, value);
        array->Remove(count / 3);
        benchmark::DoNotOptimize(array->Data());
    }
}

// A tenth of the elements equal the value.
template <class ARRAY>
void RemoveValue(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    using Type = typename ARRAY::Type;
    for (auto _ : state)
    {
        state.PauseTiming();
        auto array = std::make_unique<ARRAY>();
        for (int i = 0; i < count; ++i)
            array->Add(Value<Type>(i % 10));
        state.ResumeTiming();
        array->RemoveAll(Value<Type>(3));
        benchmark::DoNotOptimize(array->Data());
    }
    CountElements(state);
}

template <class ARRAY>
void Index(benchmark::State& state)
{
    const auto array = Filled<ARRAY>(static_cast<int>(state.range(0)));
    for (auto _ : state)
    {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(array->Sum());
    }
    CountElements(state);
}

template <class ARRAY>
void Register(const char* kind, const std::string& who, void (*run)(benchmark::State&),
              std::initializer_list<std::int64_t> counts)
{
    for (const std::int64_t count : counts)
        benchmark::RegisterBenchmark((std::string(kind) + "/" + who).c_str(), run)->Arg(count);
}

template <class ARRAY>
void RegisterUse(const std::string& who)
{
    Register<ARRAY>("ArrayInsertRemove", who, InsertAndRemove<ARRAY>, {1000, 100000});
    Register<ARRAY>("ArrayRemoveValue", who, RemoveValue<ARRAY>, {100000});
}

const bool kRegistered = [] {
    using Text = CXTString<char>;
    const std::initializer_list<std::int64_t> numbers = {10, 1000, 100000, 10000000};
    const std::initializer_list<std::int64_t> texts = {1000, 1000000};
    Register<Ours<int, 0>>("ArrayAppend", "ours/int/automatic", Append<Ours<int, 0>>, numbers);
    Register<Standard<int>>("ArrayAppend", "std_vector/int/automatic", Append<Standard<int>>, numbers);
    Register<Ours<int, -2>>("ArrayAppend", "ours/int/twofold", Append<Ours<int, -2>>, numbers);
    Register<Standard<int>>("ArrayAppend", "std_vector/int/twofold", Append<Standard<int>>, numbers);
    Register<Ours<int, 1000>>("ArrayAppend", "ours/int/step", Append<Ours<int, 1000>>, numbers);
    Register<Standard<int, 1000>>("ArrayAppend", "std_vector/int/step", Append<Standard<int, 1000>>,
                                  {10, 1000, 100000});
    Register<Ours<Text, 0>>("ArrayAppend", "ours/text/automatic", Append<Ours<Text, 0>>, texts);
    Register<Ours<Text, 0, true>>("ArrayAppend", "ours/text_as_bytes/automatic", Append<Ours<Text, 0, true>>, texts);
    RegisterUse<Ours<int, 0>>("ours/int");
    RegisterUse<Standard<int>>("std_vector/int");
    RegisterUse<Ours<Text, 0>>("ours/text");
    RegisterUse<Ours<Text, 0, true>>("ours/text_as_bytes");
    for (const char* peer : {"std_vector/text", "std_vector/text_as_bytes"})
    {
        Register<Standard<Text>>("ArrayAppend", std::string(peer) + "/automatic", Append<Standard<Text>>, texts);
        RegisterUse<Standard<Text>>(peer);
    }
    Register<Ours<int, 0>>("ArrayIndex", "ours/int", Index<Ours<int, 0>>, {100000});
    Register<Standard<int>>("ArrayIndex", "std_vector_at/int", Index<Standard<int>>, {100000});
#ifdef TEV_BENCH_QT
    Register<Qt<int>>("ArrayAppend", "QList/int/automatic", Append<Qt<int>>, numbers);
    Register<Qt<int>>("ArrayAppend", "QList/int/twofold", Append<Qt<int>>, numbers);
    Register<Qt<Text>>("ArrayAppend", "QList/text/automatic", Append<Qt<Text>>, texts);
    RegisterUse<Qt<int>>("QList/int");
    RegisterUse<Qt<Text>>("QList/text");
    Register<Qt<int>>("ArrayIndex", "QList/int", Index<Qt<int>>, {100000});
#endif
    return true;
}();
} // namespace
