// CXTString compared with std::basic_string, on the most frequent operations of an application.

#include "text/CXTString.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cwctype>
#include <random>
#include <string>

namespace
{
// Words of natural length over a natural distribution of letters, from a fixed seed: a search for a letter stops often.
const std::wstring& Prose()
{
    static const std::wstring text = [] {
        const std::wstring letters =
            L"eeeeeeeeeeeetttttttttaaaaaaaaooooooooiiiiiiinnnnnnnsssssshhhhhhrrrrrrddddllllccuum"
            L"mwwffggyyppbbvkjxqz";
        std::mt19937 random(7);
        std::wstring result;
        while (result.size() < 100000)
        {
            for (unsigned length = 1 + random() % 9; length > 0; --length)
                result += letters[random() % letters.size()];
            result += L' ';
        }
        return result;
    }();
    return text;
}

template <class T>
std::basic_string<T> ProseAs()
{
    return {Prose().begin(), Prose().end()};
}

template <class T>
std::basic_string<T> Literal(const char* ascii)
{
    return {ascii, ascii + std::char_traits<char>::length(ascii)};
}

template <class T>
const T* Characters(const std::basic_string<T>& text)
{
    return text.c_str();
}

template <class T>
const T* Characters(const CXTString<T>& text)
{
    return text;
}

template <class String, class T>
void AppendCharacters(benchmark::State& state)
{
    for (auto _ : state)
    {
        String text;
        for (int i = 0; i < 1000; ++i)
            text += static_cast<T>('a' + i % 26);
        benchmark::DoNotOptimize(Characters(text));
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}

template <class String, class T>
void AppendWords(benchmark::State& state)
{
    const auto word = Literal<T>("settings/");
    for (auto _ : state)
    {
        String text;
        for (int i = 0; i < 100; ++i)
            text += word.c_str();
        benchmark::DoNotOptimize(Characters(text));
    }
    state.SetItemsProcessed(state.iterations() * 100);
}

template <class String, class T>
void Copy(benchmark::State& state)
{
    const String text(ProseAs<T>().substr(0, static_cast<size_t>(state.range(0))).c_str());
    for (auto _ : state)
    {
        String copy(text);
        benchmark::DoNotOptimize(Characters(copy));
    }
}

template <class T>
int FindIn(const CXTString<T>& text, const T* pattern)
{
    return text.Find(pattern);
}

template <class T>
int FindIn(const std::basic_string<T>& text, const T* pattern)
{
    return static_cast<int>(text.find(pattern));
}

template <class String, class T>
void Find(benchmark::State& state)
{
    const auto prose = ProseAs<T>() + Literal<T>("eighteen letters");
    const String text(prose.c_str());
    const auto pattern = Literal<T>("eighteen");
    for (auto _ : state)
        benchmark::DoNotOptimize(FindIn(text, pattern.c_str()));
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(prose.size()));
}

template <class T>
int FindNoCaseIn(const CXTString<T>& text, const T* pattern)
{
    return text.FindNoCase(pattern);
}

// What a program without a search of its own writes.
template <class T>
int FindNoCaseIn(const std::basic_string<T>& text, const T* pattern)
{
    const auto lower = [](T c) { return static_cast<T>(std::towlower(static_cast<wint_t>(c))); };
    const std::basic_string<T> wanted(pattern);
    const auto found = std::search(text.begin(), text.end(), wanted.begin(), wanted.end(),
                                   [&](T a, T b) { return lower(a) == lower(b); });
    return static_cast<int>(found - text.begin());
}

template <class String, class T>
void FindNoCase(benchmark::State& state)
{
    const auto prose = ProseAs<T>() + Literal<T>("eighteen letters");
    const String text(prose.c_str());
    const auto pattern = Literal<T>("EightEEN");
    for (auto _ : state)
        benchmark::DoNotOptimize(FindNoCaseIn(text, pattern.c_str()));
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(prose.size()));
}

template <class T>
void ReplaceIn(CXTString<T>& text, const std::basic_string<T>& from, const std::basic_string<T>& to)
{
    text.Replace(from.c_str(), to.c_str());
}

template <class T>
void ReplaceIn(std::basic_string<T>& text, const std::basic_string<T>& from, const std::basic_string<T>& to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::basic_string<T>::npos; at += to.size())
        text.replace(at, from.size(), to);
}

template <class String, class T>
void Replace(benchmark::State& state)
{
    const String text(ProseAs<T>().substr(0, 10000).c_str());
    const auto from = Literal<T>("he");
    const auto to = Literal<T>("they");
    for (auto _ : state)
    {
        String edited(text);
        ReplaceIn(edited, from, to);
        benchmark::DoNotOptimize(Characters(edited));
    }
}

template <class T>
int CompareTo(const CXTString<T>& a, const CXTString<T>& b)
{
    return a.Compare(b);
}

template <class T>
int CompareTo(const std::basic_string<T>& a, const std::basic_string<T>& b)
{
    return a.compare(b);
}

template <class String, class T>
void Compare(benchmark::State& state)
{
    auto prose = ProseAs<T>().substr(0, static_cast<size_t>(state.range(0)));
    const String left(prose.c_str());
    prose.back() = 'X';
    const String right(prose.c_str());
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(Characters(left));
        benchmark::DoNotOptimize(CompareTo(left, right));
    }
}

// Named ours/peer alike, so that the table of ratios finds the pairs.
#define PAIR(family, T, ...)                                                                                           \
    BENCHMARK_TEMPLATE2(family, CXTString<T>, T)->Name("String/" #family "/" #T "/ours") __VA_ARGS__;                  \
    BENCHMARK_TEMPLATE2(family, std::basic_string<T>, T)->Name("String/" #family "/" #T "/std") __VA_ARGS__

#define PAIRS(family, ...)                                                                                             \
    PAIR(family, char, __VA_ARGS__);                                                                                   \
    PAIR(family, wchar_t, __VA_ARGS__)

PAIRS(AppendCharacters, );
PAIRS(AppendWords, );
PAIRS(Copy, ->Arg(10)->Arg(1000));
PAIRS(Find, );
PAIRS(FindNoCase, );
PAIRS(Replace, );
PAIRS(Compare, ->Arg(12)->Arg(1000));
} // namespace
