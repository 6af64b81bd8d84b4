// Reading a text of 200 MB by lines, compared with the standard library's streams.

#include "files/CStdioFileEx.h"
#include "tests/support/TempFolder.h"

#include <benchmark/benchmark.h>

#include <fstream>
#include <locale>
#include <random>

namespace
{
constexpr std::size_t kTextSize = 200'000'000;
constexpr std::size_t kLineLength = 80;

enum Form
{
    kUtf8,
    kUtf16
};

// Words in lines of about 80 characters, one letter in `asciiRun` outside ASCII, from a fixed seed. The first megabyte is
// repeated.
std::wstring Prose(unsigned asciiRun)
{
    std::mt19937 random(11);
    std::wstring text;
    while (text.size() < 1'000'000)
    {
        std::wstring line;
        while (line.size() < kLineLength)
        {
            for (unsigned length = 1 + random() % 9; length > 0; --length)
                line += random() % asciiRun == 0 ? L"\u00E9\u00DF\u00F1\u65E5"[random() % 4]
                                                 : static_cast<wchar_t>(L'a' + random() % 26);
            line += L' ';
        }
        line.resize(kLineLength - 10 + random() % 20, L'.');
        text += line + L'\n';
    }
    return text;
}

// The same text in each form, made when it is first asked for and removed at the end of the program.
class Texts
{
public:
    const std::wstring& Path(Form form, unsigned asciiRun)
    {
        std::wstring& path = m_paths[form][asciiRun == kAscii];
        if (path.empty())
        {
            const std::wstring text = Prose(asciiRun);
            CXTString<char> bytes;
            if (!XEncodeText(text.data(), text.size(), form == kUtf8 ? xEncodingUtf8 : xEncodingUtf16, bytes))
                std::abort();
            std::string all = form == kUtf8 ? "" : "\xFF\xFE";
            const std::size_t size = form == kUtf8 ? kTextSize : 2 * kTextSize;
            while (all.size() < size)
                all.append(bytes.GetConstBuffer(), bytes.GetLength64());
            path = m_folder.WriteFile(std::to_string(form) + (asciiRun == kAscii ? "a" : "l"), all);
        }
        return path;
    }

    static constexpr unsigned kAscii = ~0u;
    static constexpr unsigned kLatin = 30;

private:
    tev::test::TempFolder m_folder;
    std::wstring m_paths[2][2];
};

Texts& TheTexts()
{
    static Texts texts;
    return texts;
}

std::string NarrowPath(const std::wstring& path)
{
    return std::filesystem::path(path).string();
}

void Account(benchmark::State& state, std::size_t lines)
{
    state.SetItemsProcessed(static_cast<std::int64_t>(lines));
}

template <class T>
void ReadOurs(benchmark::State& state, Form form, unsigned asciiRun)
{
    const std::wstring& path = TheTexts().Path(form, asciiRun);
    std::size_t lines = 0;
    for (auto _ : state)
    {
        CStdioFileEx file(path.c_str(), CXFile::typeText | CXFile::shareDenyNone | CStdioFileEx::kReadUtf8);
        CXTString<T> line;
        while (file.ReadString(line))
        {
            benchmark::DoNotOptimize(line.GetConstBuffer());
            ++lines;
        }
    }
    Account(state, lines);
}

template <class T>
void ReadStream(benchmark::State& state, unsigned asciiRun)
{
    const std::string path = NarrowPath(TheTexts().Path(kUtf8, asciiRun));
    std::size_t lines = 0;
    for (auto _ : state)
    {
        std::basic_ifstream<T> file;
        file.imbue(std::locale(std::locale::classic(), std::locale("C.UTF-8"), std::locale::ctype));
        file.open(path, std::ios::binary);
        std::basic_string<T> line;
        while (std::getline(file, line))
        {
            benchmark::DoNotOptimize(line.data());
            ++lines;
        }
    }
    Account(state, lines);
}

const bool g_registered = [] {
    const struct
    {
        std::string name;
        unsigned asciiRun;
    } texts[] = {{"/ascii", Texts::kAscii}, {"/latin", Texts::kLatin}};
    for (const auto& text : texts)
    {
        const unsigned run = text.asciiRun;
        const auto add = [&](const std::string& name, auto function) {
            benchmark::RegisterBenchmark((name + text.name).c_str(), function)->Unit(benchmark::kMillisecond);
        };
        add("TextFile/Utf8ToWideLines/ours", [=](auto& state) { ReadOurs<wchar_t>(state, kUtf8, run); });
        add("TextFile/Utf8ToWideLines/getline", [=](auto& state) { ReadStream<char>(state, run); });
        add("TextFile/Utf8ToWideLines/wgetline", [=](auto& state) { ReadStream<wchar_t>(state, run); });
        add("TextFile/NarrowLines/ours", [=](auto& state) { ReadOurs<char>(state, kUtf8, run); });
        add("TextFile/NarrowLines/getline", [=](auto& state) { ReadStream<char>(state, run); });
        add("TextFile/Utf16ToWideLines/ours", [=](auto& state) { ReadOurs<wchar_t>(state, kUtf16, run); });
        add("TextFile/Utf16ToWideLines/getline", [=](auto& state) { ReadStream<char>(state, run); });
    }
    return true;
}();
} // namespace
