#pragma once

#include "text/CXTString.h"

#include <optional>
#include <string>
#include <string_view>

// Names of archives' entries: in UTF-8 with '/' in the archive, wide with '/' or '\' towards the user.

namespace tev
{
/// How names are compared.
struct NameRule
{
    bool m_caseSensitive = true;
    bool m_nameOnly = false; ///< folders do not count
};

/// An entry's name, in which what no file's name can hold is replaced.
void DecodeEntryName(std::string_view name, CXTString<wchar_t>& wide);
std::wstring WideEntryName(std::string_view name);

/// What is equal for names that are the same by the rule. A separator at the end does not count.
std::wstring ComparableName(std::wstring_view name, const NameRule& rule);

/// The name that a new entry gets in the archive: without drive and root. Nothing for one that could not be extracted again.
std::optional<std::string> NewEntryName(std::wstring_view name, bool isFolder);
} // namespace tev
