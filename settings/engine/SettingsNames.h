#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tev
{
/// A name as it is stored: UTF-8, in which a lone surrogate is encoded like any other code point.
struct SettingsName
{
    std::string spelling;
    std::string folded;
};

/// Converts a name. False when it contains an invalid code point or has more than `longest` 16-bit units.
[[nodiscard]] bool MakeSettingsName(std::wstring_view text, std::size_t longest, SettingsName& name);

/// Splits a path into the names of its keys. False when one of them is not valid.
[[nodiscard]] bool SplitSettingsPath(const wchar_t* path, std::vector<SettingsName>& names);

/// Converts a stored name, which may be any bytes.
std::wstring SettingsNameText(std::string_view stored);
} // namespace tev
