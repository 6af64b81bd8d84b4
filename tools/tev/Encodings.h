#pragma once

#include "text/TextEncoding.h"

#include <optional>
#include <string>

// Encodings by name.
namespace tev::tool
{

/// Takes names ("utf-8", "Windows-1252", "latin1") and code-page numbers ("1252", "cp1252"), case-insensitively.
/// Nothing for an unknown name or a code page that this system does not have.
std::optional<xStringEncoding> FindEncoding(const std::string& name);

/// "UTF-8", "UTF-16 little-endian", "code page 1252", ...
std::string EncodingName(xStringEncoding encoding);

/// The names that FindEncoding accepts, for help texts.
std::string EncodingNamesHelp();

bool IsUtf16(xStringEncoding encoding);
bool IsUtf32(xStringEncoding encoding);

} // namespace tev::tool
