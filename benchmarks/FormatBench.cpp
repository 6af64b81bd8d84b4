// Formatting into a new string each time, compared with fmt::sprintf, which returns one too, and the C library, which
// prints into a buffer that is large enough.

#include "text/CXTString.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cwchar>
#include <fmt/printf.h>
#include <fmt/xchar.h>
#include <string>

namespace
{
constexpr double kNumbers[] = {3.14159, 1234.5678, -0.001, 99999.99, 42, -2.5, 1e10, 0.1};

template <class T>
const T* Choose(const char* narrow, const wchar_t* wide)
{
    if constexpr (sizeof(T) == sizeof(char))
        return narrow;
    else
        return wide;
}

struct Ours
{
    static constexpr const char* kName = "ours";

    template <class T, class... Values>
    static void Format(const T* format, Values... values)
    {
        CXTString<T> text;
        text.Format(format, values...);
        benchmark::DoNotOptimize(text.GetConstBuffer());
    }
};

struct Fmt
{
    static constexpr const char* kName = "fmt";

    template <class T, class... Values>
    static void Format(const T* format, Values... values)
    {
        const std::basic_string<T> text = fmt::sprintf(format, values...);
        benchmark::DoNotOptimize(text.data());
    }
};

struct CLibrary
{
    static constexpr const char* kName = "libc";
    static constexpr size_t kCapacity = 4096;

    template <class... Values>
    static void Format(const char* format, Values... values)
    {
        char text[kCapacity];
        benchmark::DoNotOptimize(std::snprintf(text, kCapacity, format, values...));
        benchmark::DoNotOptimize(text);
    }

    template <class... Values>
    static void Format(const wchar_t* format, Values... values)
    {
        wchar_t text[kCapacity];
        benchmark::DoNotOptimize(std::swprintf(text, kCapacity, format, values...));
        benchmark::DoNotOptimize(text);
    }
};

// "%ls" is wide text for all three.
struct Mixed
{
    static constexpr const char* kName = "FiveMixed";

    template <class T, class Engine>
    static void Run(int i, const T* text)
    {
        Engine::Format(Choose<T>("%d %s %.2f %08x %c", L"%d %ls %.2f %08x %c"), i, text, kNumbers[i & 7], i * 7919,
                       'x');
    }
};

struct Integers
{
    static constexpr const char* kName = "Integers";

    template <class T, class Engine>
    static void Run(int i, const T*)
    {
        Engine::Format(Choose<T>("%d %5d %u %lld", L"%d %5d %u %lld"), i, -i, i * 7919u, i * 1234567890123LL);
    }
};

struct Doubles
{
    static constexpr const char* kName = "Doubles";

    template <class T, class Engine>
    static void Run(int i, const T*)
    {
        Engine::Format(Choose<T>("v %f %g %.3e", L"v %f %g %.3e"), kNumbers[i & 7], kNumbers[(i + 1) & 7],
                       kNumbers[(i + 2) & 7]);
    }
};

struct LongText
{
    static constexpr const char* kName = "LongText";

    template <class T, class Engine>
    static void Run(int, const T*)
    {
        static const std::basic_string<T> text(1500, T('t'));
        Engine::Format(Choose<T>("%s: %s", L"%ls: %ls"), text.c_str(), text.c_str());
    }
};

template <class T, class Case, class Engine>
void Measure(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state)
        Case::template Run<T, Engine>(i++, Choose<T>("material", L"material"));
}

template <class T, class Case, class Engine>
void Register(const char* width)
{
    const std::string name = std::string("Format/") + Case::kName + "/" + width + "/" + Engine::kName;
    benchmark::RegisterBenchmark(name.c_str(), Measure<T, Case, Engine>);
}

template <class... Cases>
int RegisterAll()
{
    const auto withEngine = [](auto engine) {
        using Engine = decltype(engine);
        (Register<char, Cases, Engine>("char"), ...);
        (Register<wchar_t, Cases, Engine>("wchar_t"), ...);
    };
    withEngine(Ours{});
    withEngine(Fmt{});
    withEngine(CLibrary{});
    return 0;
}

const int g_registered = RegisterAll<Mixed, Integers, Doubles, LongText>();
} // namespace
