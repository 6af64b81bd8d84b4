#pragma once

#include "settings/CCustomData.h"
#include "tools/tev/Json.h"

#include <string>
#include <vector>

namespace tev::tool
{

/// How deep stores within each other are shown.
constexpr int kDeepestStore = 64;

/// The kind of a value in the words of the tool; its four characters where it has none.
std::string KindName(unsigned kind);

/// The kinds that SetValue takes, for help texts.
std::string SettableKinds();

/// The value as text, as SetValue takes it: numbers in full, text as it is, blocks in hexadecimal.
std::string ValueText(const CCustomData& store, unsigned id);
/// The value as JSON; a store within as the list of its values, null where it is damaged or lies too deep.
Json ValueJson(const CCustomData& store, unsigned id, int depth = 0);

/// The values of a store as a JSON list.
Json StoreJson(const CCustomData& store, int depth = 0);

/// Sets a value from text. Throws Failure for a kind that cannot be set so and for text that is no value of the kind.
void SetValue(CCustomData& store, unsigned id, const std::string& kind, const std::vector<std::string>& texts);

} // namespace tev::tool
