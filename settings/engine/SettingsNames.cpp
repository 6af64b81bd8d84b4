#include "settings/engine/SettingsNames.h"

#include "settings/engine/SettingsStore.h"
#include "text/CaseFolding.h"
#include "text/Utf.h"

#include <algorithm>

namespace tev
{
namespace
{
constexpr char32_t kHighestCodePoint = 0x10FFFF;

void AppendStored(std::string& text, char32_t c)
{
    if (c < 0x80)
    {
        text += static_cast<char>(c);
        return;
    }
    const int following = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    constexpr unsigned char kLeads[] = {0, 0xC0, 0xE0, 0xF0};
    text += static_cast<char>(kLeads[following] | c >> 6 * following);
    for (int left = following - 1; left >= 0; --left)
        text += static_cast<char>(0x80 | (c >> 6 * left & 0x3F));
}

void AppendWide(std::wstring& text, char32_t c)
{
    if (sizeof(wchar_t) == 2 && c >= 0x10000)
    {
        text += static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10));
        text += static_cast<wchar_t>(0xDC00 + (c & 0x3FF));
    }
    else
        text += static_cast<wchar_t>(c);
}

/// The size of the character at the front, 0 when the bytes are invalid.
std::size_t DecodeStored(std::string_view text, char32_t& c)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    c = byte(0);
    if (c < 0x80)
        return c != 0 ? 1 : 0;
    const std::size_t size = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : 2;
    if (c < 0xC0 || c > 0xF7 || text.size() < size)
        return 0;
    c &= 0x7Fu >> size;
    for (std::size_t i = 1; i < size; ++i)
    {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
        c = c << 6 | (byte(i) & 0x3Fu);
    }
    return c > 0 && c <= kHighestCodePoint ? size : 0;
}
} // namespace

bool MakeSettingsName(std::wstring_view text, std::size_t longest, SettingsName& name)
{
    if (text.size() > longest)
        return false;
    name.spelling.clear();
    name.folded.clear();
    std::size_t units = 0;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        auto c = static_cast<char32_t>(text[i]) & (sizeof(wchar_t) == 2 ? 0xFFFFu : 0xFFFFFFFFu);
        if (IsHighSurrogate(c) && i + 1 < text.size() && IsLowSurrogate(static_cast<char32_t>(text[i + 1])))
            c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(text[++i]) - 0xDC00);
        if (c > kHighestCodePoint)
            return false;
        units += c >= 0x10000 ? 2 : 1;
        AppendStored(name.spelling, c);
        AppendStored(name.folded, platform::CaseFolded(c));
    }
    return units <= longest;
}

bool SplitSettingsPath(const wchar_t* path, std::vector<SettingsName>& names)
{
    names.clear();
    std::wstring_view rest = path != nullptr ? path : L"";
    while (!rest.empty())
    {
        const std::wstring_view part = rest.substr(0, rest.find(L'\\'));
        rest.remove_prefix(std::min(part.size() + 1, rest.size()));
        if (part.empty())
            continue;
        if (!MakeSettingsName(part, kLongestSettingsKeyName, names.emplace_back()))
            return false;
    }
    return true;
}

std::wstring SettingsNameText(std::string_view stored)
{
    std::wstring text;
    text.reserve(stored.size());
    while (!stored.empty())
    {
        char32_t c = 0;
        const std::size_t size = DecodeStored(stored, c);
        AppendWide(text, size != 0 ? c : kReplacement);
        stored.remove_prefix(std::max<std::size_t>(size, 1));
    }
    return text;
}
} // namespace tev
