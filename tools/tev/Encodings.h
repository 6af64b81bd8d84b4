#pragma once

#include "text/TextEncoding.h"

#include <cstddef>
#include <optional>
#include <string>

// Encodings by name, and byte-order marks.
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
/// Bytes of the smallest part that a character has: 2 in UTF-16, 4 in UTF-32, else 1.
std::size_t UnitSize(xStringEncoding encoding);

/// A byte-order mark: U+FEFF in one of the Unicode encodings. Size 0 where there is none.
struct ByteOrderMark
{
    xStringEncoding m_encoding = xEncodingUnknown;
    std::size_t m_size = 0;
};

/// The number of bytes to detect any mark.
constexpr std::size_t kLongestMark = 3;

ByteOrderMark FindMark(const char* bytes, std::size_t size);

} // namespace tev::tool
