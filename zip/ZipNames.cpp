#include "zip/ZipNames.h"

#include "text/CaseFolding.h"
#include "text/TextEncoding.h"
#include "text/TextView.h"
#include "zip/EntryName.h"

#include <algorithm>

namespace tev
{
namespace
{
constexpr wchar_t kSeparator = L'/';

std::wstring WithSlashes(std::wstring_view name)
{
    std::wstring result(name);
    std::replace(result.begin(), result.end(), L'\\', kSeparator);
    return result;
}

std::wstring_view WithoutDriveAndRoot(std::wstring_view name)
{
    if (name.size() >= 2 && name[1] == L':')
        name.remove_prefix(2);
    name.remove_prefix(std::min(name.find_first_not_of(kSeparator), name.size()));
    return name;
}
} // namespace

void DecodeEntryName(std::string_view name, CXTString<wchar_t>& wide)
{
    static_cast<void>(XDecodeText(name.data(), name.size(), xEncodingUtf8, wide));
    if (name.find('\0') == name.npos)
        return;
    // A name that cannot be a file's is shown whole.
    std::wstring whole(ViewOf(wide));
    std::replace(whole.begin(), whole.end(), L'\0', L'\uFFFD');
    wide = whole.c_str();
}

std::wstring WideEntryName(std::string_view name)
{
    CXTString<wchar_t> wide;
    DecodeEntryName(name, wide);
    return std::wstring(ViewOf(wide));
}

std::wstring ComparableName(std::wstring_view name, const NameRule& rule)
{
    std::wstring result = WithSlashes(name);
    if (!result.empty() && result.back() == kSeparator)
        result.pop_back();
    if (rule.m_nameOnly)
        result.erase(0, result.rfind(kSeparator) + 1);
    if (!rule.m_caseSensitive)
    {
        for (wchar_t& c : result)
            c = static_cast<wchar_t>(platform::CaseFolded(static_cast<char32_t>(c)));
    }
    return result;
}

std::optional<std::string> NewEntryName(std::wstring_view name, bool isFolder)
{
    const std::wstring slashed = WithSlashes(name);
    const std::wstring_view relative = WithoutDriveAndRoot(slashed);
    CXTString<char> text;
    if (!XEncodeText(relative.data(), relative.size(), xEncodingUtf8, text))
        return std::nullopt;
    const std::string_view utf8 = ViewOf(text);
    // What is no Unicode would come back as another name.
    std::optional<EntryName> safe = SafeEntryName(utf8);
    if (!safe || WideEntryName(utf8) != relative || (safe->m_isFolder && !isFolder))
        return std::nullopt;
    return isFolder ? safe->m_path + "/" : safe->m_path;
}
} // namespace tev
