#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tev::platform
{
/// Changes when CaseFolded maps a character differently: then stores hold names that are not found any more.
constexpr int kSettingsFoldingVersion = 1;

/// A name as the store holds it, in UTF-8, in which a lone surrogate stands like any other character.
struct SettingsName
{
    std::string spelling;
    std::string folded;
};

/// Converts a name. False when it holds what is no character, or has more than `longest` 16-bit units.
[[nodiscard]] bool MakeSettingsName(std::wstring_view text, std::size_t longest, SettingsName& name);

/// Takes a path apart into the names of its keys. False when one of them is none.
[[nodiscard]] bool SplitSettingsPath(const wchar_t* path, std::vector<SettingsName>& names);

/// A name out of the store, in which anything may stand.
std::wstring SettingsNameText(std::string_view stored);
} // namespace tev::platform
