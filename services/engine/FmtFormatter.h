#pragma once

// For programs that use {fmt}, 9 or newer: its functions take texts of the width of their formats, with the specifications
// that they have for strings. TevTools.h does not include this header.

#include "services/CPathString.h"
#include "services/TextFormatter.h"
#include "text/CExLCString.h"
#include "text/CXTString.h"

#include <fmt/core.h>

template <class T>
struct fmt::formatter<CXTString<T>, T>
    : tev::TextFormatter<fmt::formatter<fmt::basic_string_view<T>, T>, fmt::basic_string_view<T>>
{
};

template <>
struct fmt::formatter<CPathString, wchar_t> : fmt::formatter<CXTString<wchar_t>, wchar_t>
{
};

template <>
struct fmt::formatter<CExLCString, wchar_t> : fmt::formatter<CXTString<wchar_t>, wchar_t>
{
};
