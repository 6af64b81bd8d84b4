// Search and conversion on a processor that has no AVX2, compared with the C library. The kernels are compiled into the
// benchmarks, because only their own tests and these can switch instructions off.

#include "text/InstructionSets.h"
#include "text/TextSearch.h"
#include "text/Utf.h"

#include <benchmark/benchmark.h>

#include <clocale>
#include <cstring>
#include <cwchar>
#include <locale.h>
#include <string>

namespace
{
class PlainInstructions
{
public:
    PlainInstructions() { tev::g_withoutAvx2 = true; }
    ~PlainInstructions() { tev::g_withoutAvx2 = false; }
    PlainInstructions(const PlainInstructions&) = delete;
    PlainInstructions& operator=(const PlainInstructions&) = delete;
};

/// A UTF-8 locale for the thread, for the C library's conversions.
class ThreadLocale
{
public:
    ThreadLocale() : m_locale(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)), m_before(uselocale(m_locale)) {}
    ~ThreadLocale()
    {
        uselocale(m_before);
        freelocale(m_locale);
    }
    ThreadLocale(const ThreadLocale&) = delete;
    ThreadLocale& operator=(const ThreadLocale&) = delete;

private:
    locale_t m_locale;
    locale_t m_before;
};

/// About 100,000 characters: a sentence of the script, repeated.
struct Script
{
    const char* m_name;
    const char* m_sentence;
};

constexpr Script kScripts[] = {
    {"Latin", "Ut enim ad minim veniam, quis nostrud exercitation ullamco laboris nisi. "},
    {"French", "L'été, la lumière frappe déjà les crêtes où naît la rivière, à côté du château. "},
    {"Russian", "Съешь же ещё этих мягких французских булок, да выпей чаю. "},
    {"Chinese", "视野无限广，窗外有蓝天；微风迎客，软语伴茶。"},
};

std::string Repeated(const std::string& sentence)
{
    std::string text;
    while (text.size() < 100000)
        text += sentence;
    return text;
}

std::wstring Decoded(const std::string& text)
{
    const tev::TextMeasure measure = tev::MeasureUtf8(text.data(), text.size());
    std::wstring wide(measure.m_length, L'\0');
    tev::Utf8ToWide(text.data(), text.size(), measure, wide.data());
    return wide;
}

void DecodePlainly(benchmark::State& state, const std::string& text)
{
    const PlainInstructions plain;
    std::wstring wide = Decoded(text);
    for (auto _ : state)
    {
        const tev::TextMeasure measure = tev::MeasureUtf8(text.data(), text.size());
        tev::Utf8ToWide(text.data(), text.size(), measure, wide.data());
        benchmark::DoNotOptimize(wide.data());
        benchmark::ClobberMemory();
    }
}

void DecodeByLibrary(benchmark::State& state, const std::string& text)
{
    const ThreadLocale locale;
    std::wstring wide(text.size() + 1, L'\0');
    for (auto _ : state)
    {
        const char* source = text.c_str();
        mbstate_t shift{};
        benchmark::DoNotOptimize(mbsrtowcs(wide.data(), &source, wide.size(), &shift));
        benchmark::ClobberMemory();
    }
}

void EncodePlainly(benchmark::State& state, const std::string& text)
{
    const PlainInstructions plain;
    const std::wstring wide = Decoded(text);
    std::string narrow(text.size(), '\0');
    for (auto _ : state)
    {
        const tev::TextMeasure measure = tev::MeasureWide(wide.data(), wide.size());
        tev::WideToUtf8(wide.data(), wide.size(), measure, narrow.data());
        benchmark::DoNotOptimize(narrow.data());
        benchmark::ClobberMemory();
    }
}

void EncodeByLibrary(benchmark::State& state, const std::string& text)
{
    const ThreadLocale locale;
    const std::wstring wide = Decoded(text);
    std::string narrow(text.size() + 1, '\0');
    for (auto _ : state)
    {
        const wchar_t* source = wide.c_str();
        mbstate_t shift{};
        benchmark::DoNotOptimize(wcsrtombs(narrow.data(), &source, narrow.size(), &shift));
        benchmark::ClobberMemory();
    }
}

const char* FindByLibrary(const char* text, const char* pattern)
{
    return std::strstr(text, pattern);
}

const wchar_t* FindByLibrary(const wchar_t* text, const wchar_t* pattern)
{
    return std::wcsstr(text, pattern);
}

/// Words over few letters, in which the letters of the pattern occur everywhere, and the pattern at the end.
template <class T>
void FindAtEnd(benchmark::State& state, bool ours)
{
    const PlainInstructions plain;
    const std::string narrow = Repeated(kScripts[0].m_sentence) + "voluptate";
    const std::string word = "voluptate";
    const std::basic_string<T> text(narrow.begin(), narrow.end());
    const std::basic_string<T> pattern(word.begin(), word.end());
    for (auto _ : state)
    {
        if (ours)
            benchmark::DoNotOptimize(tev::FindText(text.data(), text.size(), 0, pattern.data(), pattern.size()));
        else
            benchmark::DoNotOptimize(FindByLibrary(text.c_str(), pattern.c_str()));
        benchmark::ClobberMemory();
    }
}

const bool kPlainRegistered = [] {
    for (const Script& each : kScripts)
    {
        const std::string text = Repeated(each.m_sentence);
        const auto add = [&](const char* work, const char* who, auto function) {
            const std::string name = std::string("WithoutAvx2/") + work + "/" + each.m_name + "/" + who;
            benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) { function(state, text); });
        };
        add("Utf8ToWide", "ours", DecodePlainly);
        add("Utf8ToWide", "mbsrtowcs", DecodeByLibrary);
        add("WideToUtf8", "ours", EncodePlainly);
        add("WideToUtf8", "wcsrtombs", EncodeByLibrary);
    }
    for (const bool ours : {true, false})
    {
        const std::string who = ours ? "/ours" : "/libc";
        const auto add = [&](const std::string& name, auto function) {
            benchmark::RegisterBenchmark((name + who).c_str(), [=](auto& state) { function(state, ours); });
        };
        add("WithoutAvx2/Find/char", FindAtEnd<char>);
        add("WithoutAvx2/Find/wchar_t", FindAtEnd<wchar_t>);
    }
    return true;
}();
} // namespace
