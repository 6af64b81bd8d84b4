#include "tools/tev/Encodings.h"

#include "text/CXTString.h"

#include <algorithm>
#include <cstring>

namespace tev::tool
{
namespace
{
// Encodings that are known by their code-page number.
constexpr unsigned kUtf32 = 12000;
constexpr unsigned kUtf32BE = 12001;

struct NamedEncoding
{
    const char* m_name;
    unsigned m_encoding;
};

// ANSI text is UTF-8, as in every program that does not set another code page.
constexpr NamedEncoding kNames[] = {
    {"utf-8", xEncodingUtf8},
    {"utf8", xEncodingUtf8},
    {"65001", xEncodingUtf8},
    {"utf-16", xEncodingUtf16},
    {"utf16", xEncodingUtf16},
    {"utf-16le", xEncodingUtf16},
    {"utf16le", xEncodingUtf16},
    {"1200", xEncodingUtf16},
    {"utf-16be", xEncodingUtf16BE},
    {"utf16be", xEncodingUtf16BE},
    {"1201", xEncodingUtf16BE},
    {"ansi", xEncodingUtf8},
    {"ascii", 20127},
    {"us-ascii", 20127},
    {"latin1", 28591},
    {"shift-jis", 932},
    {"shift_jis", 932},
    {"sjis", 932},
    {"gbk", 936},
    {"gb18030", 54936},
    {"big5", 950},
    {"euc-jp", 20932},
    {"euc-kr", 949},
    {"koi8-r", 20866},
    {"koi8-u", 21866},
    {"macintosh", 10000},
};

// Names that end in a number: the code page is that number plus a base.
constexpr NamedEncoding kNumberedNames[] = {
    {"windows-", 0}, {"cp", 0}, {"ibm", 0}, {"iso-8859-", 28590}, {"iso8859-", 28590}, {"", 0},
};

constexpr unsigned kSmallestCodePage = 37; // smaller numbers are no code pages
constexpr unsigned kLargestCodePage = 65535;

bool IsKnownHere(xStringEncoding encoding)
{
    CXTString<char> bytes;
    return XEncodeText(L"a", 1, encoding, bytes);
}

std::optional<unsigned> NumberAfter(const char* prefix, const std::string& name)
{
    const std::size_t start = std::strlen(prefix);
    const std::size_t digits = name.size() - std::min(start, name.size());
    if (name.compare(0, start, prefix) != 0 || digits == 0 || digits > 5 ||
        !std::all_of(name.begin() + static_cast<std::ptrdiff_t>(start), name.end(),
                     [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    return static_cast<unsigned>(std::stoul(name.substr(start)));
}
} // namespace

std::optional<xStringEncoding> FindEncoding(const std::string& name)
{
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });

    for (const NamedEncoding& known : kNames)
    {
        if (lower == known.m_name)
            return static_cast<xStringEncoding>(known.m_encoding);
    }
    for (const NamedEncoding& known : kNumberedNames)
    {
        const std::optional<unsigned> number = NumberAfter(known.m_name, lower);
        if (!number || *number + known.m_encoding < kSmallestCodePage || *number > kLargestCodePage)
            continue;
        const auto encoding = static_cast<xStringEncoding>(*number + known.m_encoding);
        if (IsKnownHere(encoding))
            return encoding;
    }
    return std::nullopt;
}

std::string EncodingName(xStringEncoding encoding)
{
    switch (static_cast<unsigned>(encoding))
    {
    case xEncodingUtf8:
        return "UTF-8";
    case xEncodingUtf16:
        return "UTF-16 little-endian";
    case xEncodingUtf16BE:
        return "UTF-16 big-endian";
    case kUtf32:
        return "UTF-32 little-endian";
    case kUtf32BE:
        return "UTF-32 big-endian";
    default:
        return "code page " + std::to_string(encoding);
    }
}

std::string EncodingNamesHelp()
{
    return "Encodings: a code-page number (1252, cp1252, windows-1252) or one of utf-8, utf-16 (utf-16le),\n"
           "utf-16be, ansi, ascii, latin1, iso-8859-1 to -16, shift-jis, euc-jp, gbk, gb18030, big5, euc-kr,\n"
           "koi8-r, koi8-u, macintosh.";
}

bool IsUtf16(xStringEncoding encoding)
{
    return encoding == xEncodingUtf16 || encoding == xEncodingUtf16BE;
}

bool IsUtf32(xStringEncoding encoding)
{
    return encoding == static_cast<xStringEncoding>(kUtf32) || encoding == static_cast<xStringEncoding>(kUtf32BE);
}

} // namespace tev::tool
