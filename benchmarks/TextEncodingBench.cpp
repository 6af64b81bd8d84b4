// UTF-8 to and from wide text: whole calls that measure and size their result, compared with peers that are given a
// buffer that is large enough and convert in a single pass.

#include "text/CXTString.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <iconv.h>
#include <iterator>
#include <locale.h>
#include <string>
#include <unicode/ustring.h>
#include <vector>

namespace
{
struct Sample
{
    std::string m_name;
    std::string m_utf8;
    std::wstring m_wide;
};

Sample MakeSample(const std::string& name, const std::string& utf8)
{
    CXTString<wchar_t> wide;
    if (!XDecodeText(utf8.data(), utf8.size(), xEncodingUtf8, wide))
        return {};
    return {name, utf8, std::wstring(wide.GetConstBuffer(), wide.GetLength64())};
}

/// Short texts, and the long ones of the corpus where it is there.
std::vector<Sample> LoadSamples()
{
    std::vector<Sample> samples;
    samples.push_back(MakeSample("ShortAscii", "material_07.diffuse"));
    samples.push_back(MakeSample("ShortFrench", "D\xC3\xA9j\xC3\xA0 enregistr\xC3\xA9"));
    samples.push_back(MakeSample("ShortChinese", "\xE6\x9D\x90\xE8\xB4\xA8\xE8\xB4\xB4\xE5\x9B\xBE"));
    for (const char* language :
         {"Latin", "Russian", "Arabic", "Hebrew", "Hindi", "Chinese", "Japanese", "Korean", "Emoji"})
    {
        const std::filesystem::path folder = TEVTOOLS_SOURCE_DIR "/../shared/corpora/text/lipsum";
        std::ifstream file(folder / (std::string(language) + "-Lipsum.utf8.txt"), std::ios::binary);
        const std::string utf8(std::istreambuf_iterator<char>(file), {});
        if (!utf8.empty())
            samples.push_back(MakeSample(language, utf8));
    }
    return samples;
}

void Count(benchmark::State& state, const Sample& sample)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * sample.m_utf8.size()));
}

void DecodeOurs(benchmark::State& state, const Sample& sample)
{
    CXTString<wchar_t> text;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(XDecodeText(sample.m_utf8.data(), sample.m_utf8.size(), xEncodingUtf8, text));
        benchmark::ClobberMemory();
    }
    Count(state, sample);
}

void EncodeOurs(benchmark::State& state, const Sample& sample)
{
    CXTString<char> bytes;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(XEncodeText(sample.m_wide.data(), sample.m_wide.size(), xEncodingUtf8, bytes));
        benchmark::ClobberMemory();
    }
    Count(state, sample);
}

/// Sets a UTF-8 locale for the thread until the end of the scope.
class Utf8Locale
{
public:
    Utf8Locale() : m_locale(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)), m_before(uselocale(m_locale)) {}
    ~Utf8Locale()
    {
        uselocale(m_before);
        freelocale(m_locale);
    }
    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

private:
    locale_t m_locale;
    locale_t m_before;
};

void DecodeCLibrary(benchmark::State& state, const Sample& sample)
{
    const Utf8Locale locale;
    std::wstring text(sample.m_wide.size() + 1, L'\0');
    for (auto _ : state)
    {
        const char* source = sample.m_utf8.c_str();
        mbstate_t shift{};
        benchmark::DoNotOptimize(mbsrtowcs(text.data(), &source, text.size(), &shift));
        benchmark::ClobberMemory();
    }
    Count(state, sample);
}

void EncodeCLibrary(benchmark::State& state, const Sample& sample)
{
    const Utf8Locale locale;
    std::string bytes(sample.m_utf8.size() + 1, '\0');
    for (auto _ : state)
    {
        const wchar_t* source = sample.m_wide.c_str();
        mbstate_t shift{};
        benchmark::DoNotOptimize(wcsrtombs(bytes.data(), &source, bytes.size(), &shift));
        benchmark::ClobberMemory();
    }
    Count(state, sample);
}

template <class From, class To>
void Iconv(benchmark::State& state, const Sample& sample, const char* to, const char* from,
           const std::basic_string<From>& source, std::basic_string<To> target)
{
    const iconv_t descriptor = iconv_open(to, from);
    for (auto _ : state)
    {
        char* in = reinterpret_cast<char*>(const_cast<From*>(source.data()));
        char* out = reinterpret_cast<char*>(target.data());
        size_t inLeft = source.size() * sizeof(From);
        size_t outLeft = target.size() * sizeof(To);
        benchmark::DoNotOptimize(iconv(descriptor, &in, &inLeft, &out, &outLeft));
        benchmark::ClobberMemory();
    }
    iconv_close(descriptor);
    Count(state, sample);
}

/// ICU's own text is UTF-16; this is what its users convert to.
void DecodeIcu(benchmark::State& state, const Sample& sample)
{
    std::u16string text(sample.m_utf8.size() + 1, u'\0');
    for (auto _ : state)
    {
        UErrorCode error = U_ZERO_ERROR;
        int32_t length = 0;
        u_strFromUTF8(text.data(), static_cast<int32_t>(text.size()), &length, sample.m_utf8.data(),
                      static_cast<int32_t>(sample.m_utf8.size()), &error);
        benchmark::DoNotOptimize(length);
        benchmark::ClobberMemory();
    }
    Count(state, sample);
}

void EncodeIcu(benchmark::State& state, const Sample& sample)
{
    std::u16string text(sample.m_utf8.size() + 1, u'\0');
    std::string bytes(sample.m_utf8.size() + 1, '\0');
    UErrorCode error = U_ZERO_ERROR;
    int32_t units = 0;
    u_strFromUTF8(text.data(), static_cast<int32_t>(text.size()), &units, sample.m_utf8.data(),
                  static_cast<int32_t>(sample.m_utf8.size()), &error);
    for (auto _ : state)
    {
        int32_t length = 0;
        u_strToUTF8(bytes.data(), static_cast<int32_t>(bytes.size()), &length, text.data(), units, &error);
        benchmark::DoNotOptimize(length);
        benchmark::ClobberMemory();
    }
    Count(state, sample);
}

template <class Function>
void Register(const char* operation, const Sample& sample, const char* who, Function function)
{
    benchmark::RegisterBenchmark((std::string(operation) + "/" + sample.m_name + "/" + who).c_str(),
                                 [&sample, function](benchmark::State& state) { function(state, sample); });
}

const bool kRegistered = [] {
    static const std::vector<Sample> samples = LoadSamples();
    for (const Sample& sample : samples)
    {
        Register("Utf8ToWide", sample, "ours", DecodeOurs);
        Register("Utf8ToWide", sample, "mbsrtowcs", DecodeCLibrary);
        Register("Utf8ToWide", sample, "iconv", [](benchmark::State& state, const Sample& each) {
            Iconv(state, each, "WCHAR_T", "UTF-8", each.m_utf8, each.m_wide);
        });
        Register("Utf8ToWide", sample, "ICU", DecodeIcu);
        Register("WideToUtf8", sample, "ours", EncodeOurs);
        Register("WideToUtf8", sample, "wcsrtombs", EncodeCLibrary);
        Register("WideToUtf8", sample, "iconv", [](benchmark::State& state, const Sample& each) {
            Iconv(state, each, "UTF-8", "WCHAR_T", each.m_wide, each.m_utf8);
        });
        Register("WideToUtf8", sample, "ICU", EncodeIcu);
    }
    return true;
}();
} // namespace
