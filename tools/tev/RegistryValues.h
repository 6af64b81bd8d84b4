#pragma once

#include "tools/tev/Json.h"

#include <string>
#include <vector>

namespace tev::tool
{

/// A value of the registry.
struct RegistryValue
{
    unsigned long m_type = 0;
    std::vector<unsigned char> m_data;
};

/// The type in the words of the tool; its number where it has none.
std::string RegistryTypeName(unsigned long type);

/// The types that ParseRegistryValue takes, for help texts.
std::string RegistryTypeNames();

/// A value from the words of the user. Throws Failure for texts that are no value of the type.
RegistryValue ParseRegistryValue(const std::string& type, const std::vector<std::string>& texts);

/// As ParseRegistryValue takes it: numbers in full, texts as they are, each of several on a line of its own, the rest in
/// hexadecimal.
std::string RegistryValueText(const RegistryValue& value);

/// In one line: texts in quotes, and no more than the start of large blocks.
std::string RegistryValueLine(const RegistryValue& value);

/// A number, a text, a list of texts, or the bytes in hexadecimal.
Json RegistryValueJson(const RegistryValue& value);

} // namespace tev::tool
