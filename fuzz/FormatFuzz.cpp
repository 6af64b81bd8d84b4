// Formats of up to three conversions with arguments of fitting types, compared with the C library's narrow formatter.

#include "text/CXTString.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace
{
class Bytes
{
public:
    Bytes(const uint8_t* data, size_t size) : m_data(data), m_left(size) {}

    bool IsEmpty() const { return m_left == 0; }

    unsigned Take(unsigned choices)
    {
        if (m_left == 0)
            return 0;
        --m_left;
        return *m_data++ % choices;
    }

    template <class T>
    T TakeValue()
    {
        T value{};
        const size_t size = m_left < sizeof(T) ? m_left : sizeof(T);
        std::memcpy(&value, m_data, size);
        m_data += size;
        m_left -= size;
        return value;
    }

private:
    const uint8_t* m_data;
    size_t m_left;
};

[[noreturn]] void Report(const char* what, const char* format, const std::string& expected, const std::string& found)
{
    std::fprintf(stderr, "%s of \"%s\": expected \"%s\", found \"%s\"\n", what, format, expected.c_str(),
                 found.c_str());
    std::abort();
}

template <class... Values>
void Compare(const std::string& format, Values... values)
{
    // The C library ignores the 0; without any argument clang takes the format for user input.
    const int length = std::snprintf(nullptr, 0, format.c_str(), values..., 0);
    if (length < 0)
        return;
    std::string expected(static_cast<size_t>(length), ' ');
    std::snprintf(expected.data(), expected.size() + 1, format.c_str(), values..., 0);

    CXTString<char> narrow("left over");
    narrow.Format(format.c_str(), values...);
    const std::string found(narrow.GetConstBuffer(), static_cast<size_t>(narrow.GetLength()));
    if (found != expected || narrow.GetConstBuffer()[narrow.GetLength()] != 0)
        Report("narrow text", format.c_str(), expected, found);

    // A narrow string is "%hs" in either width, and the texts are ASCII.
    CXTString<wchar_t> wide;
    wide.Format(std::wstring(format.begin(), format.end()).c_str(), values...);
    const std::wstring foundWide(wide.GetConstBuffer(), static_cast<size_t>(wide.GetLength()));
    if (foundWide != std::wstring(expected.begin(), expected.end()))
        Report("wide text", format.c_str(), expected, std::string(foundWide.begin(), foundWide.end()));

    const CXTString<char> once = narrow;
    narrow.AppendFormat(format.c_str(), values...);
    if (narrow != once + once)
        Report("appended text", format.c_str(), expected, narrow.GetConstBuffer());
}

void AddField(std::string& format, Bytes& bytes, const char* flags)
{
    format += '%';
    for (unsigned count = bytes.Take(4); count > 0; --count)
        format += flags[bytes.Take(static_cast<unsigned>(std::strlen(flags)))];
    if (bytes.Take(2) != 0)
        format += std::to_string(bytes.Take(2) != 0 ? 1 + bytes.Take(30) : 1 + bytes.Take(255) * 9);
    if (bytes.Take(2) != 0)
    {
        format += '.';
        if (bytes.Take(8) != 0)
            format += std::to_string(bytes.Take(4) != 0 ? bytes.Take(25) : bytes.Take(255) * 9);
    }
}

const char* Pick(Bytes& bytes, const std::vector<const char*>& choices)
{
    return choices[bytes.Take(static_cast<unsigned>(choices.size()))];
}

constexpr unsigned kMostConversions = 3;

// Adds the next conversion and its argument, and continues with one argument more.
template <class... Values>
void Extend(Bytes& bytes, std::string format, const std::string& text, Values... values)
{
    if constexpr (sizeof...(Values) == kMostConversions)
    {
        Compare(format, values...);
    }
    else
    {
        if (bytes.IsEmpty())
            return Compare(format, values...);
        format += Pick(bytes, {"", " ", "%%", "abc ", "\n"});
        switch (bytes.Take(6))
        {
        case 0:
            AddField(format, bytes, "-+ 0");
            format += Pick(bytes, {"d", "i", "hhd", "hd"});
            return Extend(bytes, format, text, values..., bytes.TakeValue<int>());
        case 1:
            AddField(format, bytes, "-#0");
            format += Pick(bytes, {"llx", "lX", "jo", "zx", "tx"});
            return Extend(bytes, format, text, values..., bytes.TakeValue<long long>());
        case 2:
            AddField(format, bytes, "-+ #0");
            format += Pick(bytes, {"f", "F", "e", "E", "g", "G", "a", "A", "lg"});
            return Extend(bytes, format, text, values..., bytes.TakeValue<double>());
        case 3: {
            AddField(format, bytes, "-+ #0");
            format += Pick(bytes, {"Lf", "LE", "Lg", "La"});
            // Not every pattern of bits is a number of this type.
            const auto value = static_cast<long double>(bytes.TakeValue<double>()) * 1e300L / 3;
            return Extend(bytes, format, text, values..., value);
        }
        case 4:
            AddField(format, bytes, "-");
            format += "hs";
            return Extend(bytes, format, text, values..., bytes.Take(16) == 0 ? nullptr : text.c_str());
        default:
            format += Pick(bytes, {"%p", "%20p", "%-20p|"});
            return Extend(bytes, format, text, values..., bytes.TakeValue<const void*>());
        }
    }
}

// A format without conversions gives its own text.
void TryPlainText(const uint8_t* data, size_t size)
{
    const std::string text = std::string(reinterpret_cast<const char*>(data), size).c_str();
    std::string format;
    for (const char character : text)
        format += character == '%' ? std::string("%%") : std::string(1, character);
    CXTString<char> found;
    found.Format(format.c_str());
    if (found != text.c_str())
        Report("plain text", format.c_str(), text, found.GetConstBuffer());
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    constexpr uint8_t kPlainText = 0xFF;
    if (data[0] == kPlainText)
    {
        TryPlainText(data + 1, size - 1);
        return 0;
    }
    Bytes bytes(data + 1, size - 1);
    Extend(bytes, std::string(), std::string(data[0] * 3u, 't'));
    return 0;
}
