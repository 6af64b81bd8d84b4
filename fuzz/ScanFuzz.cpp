// Numbers, words and sets scanned from arbitrary text in both widths, compared with the C library's strtol family and with
// a walk over the characters.

#include "text/CXTString.h"

#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{
constexpr const char* kBlanks = " \t\n\v\f\r";

[[noreturn]] void Report(const char* format, const std::string& text)
{
    std::fprintf(stderr, "\"%s\" of \"%s\" differs\n", format, text.c_str());
    std::abort();
}

void Check(bool holds, const char* format, const std::string& text)
{
    if (!holds)
        Report(format, text);
}

// What every conversion gives besides its value: the number of targets, and how far it read.
struct Outcome
{
    int m_count;
    int m_length;
};

template <class T, class... Targets>
Outcome Scan(const std::string& text, const std::string& format, Targets... targets)
{
    // The bytes stand for the characters of the same number in wide text.
    std::basic_string<T> source;
    for (const char character : text)
        source += static_cast<T>(static_cast<unsigned char>(character));
    const std::string withLength = format + "%n";
    Outcome outcome{0, -1};
    outcome.m_count =
        CXTString<T>(source.c_str())
            .ScanS(std::basic_string<T>(withLength.begin(), withLength.end()).c_str(), targets..., &outcome.m_length);
    return outcome;
}

// `end` is where the C library stopped.
void CheckOutcome(const Outcome& outcome, const char* end, const char* format, const std::string& text)
{
    if (text.find_first_not_of(kBlanks) == std::string::npos)
        Check(outcome.m_count == -1, format, text);
    else if (end == text.c_str())
        Check(outcome.m_count == 0, format, text);
    else
        Check(outcome.m_count == 1 && outcome.m_length == end - text.c_str(), format, text);
}

template <class T, class Value, class Convert>
void CheckNumber(const std::string& text, const char* format, Convert convert)
{
    char* end = nullptr;
    const Value expected = convert(text.c_str(), &end);
    Value value{};
    CheckOutcome(Scan<T>(text, format, &value), end, format, text);
    if constexpr (std::is_floating_point_v<Value>)
    {
        if (end == text.c_str())
            return;
        const bool same = value == expected || (std::isnan(value) && std::isnan(expected));
        Check(same && std::signbit(value) == std::signbit(expected), format, text);
    }
    else
    {
        Check(value == expected, format, text);
    }
}

// The run of characters of the set, or of those that are not in it.
void CheckRun(const char* found, int count, const std::string& text, const std::string& run, size_t capacity,
              const char* format)
{
    if (text.empty())
        Check(count == -1 && found[0] == '?', format, text);
    else if (run.empty())
        Check(count == 0 && found[0] == '?', format, text);
    else if (run.size() >= capacity)
        Check(count == 0 && found[0] == 0, format, text);
    else
        Check(count == 1 && run == found, format, text);
}

template <class T>
void CheckAll(const std::string& text)
{
    CheckNumber<T, long>(text, "%ld", [](const char* at, char** end) { return std::strtol(at, end, 10); });
    CheckNumber<T, long>(text, "%li", [](const char* at, char** end) { return std::strtol(at, end, 0); });
    CheckNumber<T, unsigned long>(text, "%lx", [](const char* at, char** end) { return std::strtoul(at, end, 16); });
    CheckNumber<T, unsigned long long>(text, "%llo",
                                       [](const char* at, char** end) { return std::strtoull(at, end, 8); });
    CheckNumber<T, double>(text, "%lf", [](const char* at, char** end) { return std::strtod(at, end); });
    CheckNumber<T, float>(text, "%f", [](const char* at, char** end) { return std::strtof(at, end); });
    CheckNumber<T, long double>(text, "%Lf", [](const char* at, char** end) { return std::strtold(at, end); });
}

void CheckText(const std::string& text)
{
    constexpr size_t kCapacity = 8;
    char target[kCapacity] = "?";
    const size_t first = text.find_first_not_of(kBlanks);
    const std::string word =
        first == std::string::npos ? "" : text.substr(first, text.find_first_of(kBlanks, first) - first);
    const CXTString<char> source(text.c_str());
    CheckRun(target, source.ScanS("%s", target, static_cast<unsigned>(kCapacity)), word, word, kCapacity, "%s");
    std::strcpy(target, "?");
    const std::string letters = text.substr(0, text.find_first_not_of("abcdefxyz-"));
    CheckRun(target, source.ScanS("%[a-fx-z-]", target, static_cast<unsigned>(kCapacity)), text, letters, kCapacity,
             "%[a-fx-z-]");
    std::strcpy(target, "?");
    const std::string others = text.substr(0, text.find_first_of("],0123456789"));
    CheckRun(target, source.ScanS("%[^],0-9]", target, static_cast<unsigned>(kCapacity)), text, others, kCapacity,
             "%[^],0-9]");
}

// An arbitrary format writes to nothing else than its targets, and ends.
template <class T>
void TryFormat(const std::string& text, const std::string& format)
{
    std::basic_string<T> suppressed;
    for (const char character : format)
    {
        suppressed += static_cast<T>(static_cast<unsigned char>(character));
        if (character == '%')
            suppressed += T('*');
    }
    const std::basic_string<T> source(text.begin(), text.end());
    const int count = CXTString<T>(source.c_str()).ScanS(suppressed.c_str());
    Check(count == 0 || count == -1, format.c_str(), text);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string text(reinterpret_cast<const char*>(data), size);
    const std::string format = text.find('\0') == std::string::npos ? "" : text.substr(text.find('\0') + 1).c_str();
    text = text.c_str();
    CheckAll<char>(text);
    CheckAll<wchar_t>(text);
    CheckText(text);
    TryFormat<char>(text, format);
    TryFormat<wchar_t>(text, format);
    return 0;
}
