#pragma once

// For programs that use std::format: it takes texts of the width of its format, with the specifications that it has for
// strings. Has nothing where the standard library lacks std::format. TevTools.h does not include this header.

#include "services/CPathString.h"
#include "services/TextFormatter.h"
#include "text/CExLCString.h"
#include "text/CXTString.h"

#if __has_include(<version>)
#include <version>
#endif

#if defined(__cpp_lib_format)
#include <format>

template <class T>
struct std::formatter<CXTString<T>, T>
    : tev::TextFormatter<std::formatter<std::basic_string_view<T>, T>, std::basic_string_view<T>>
{
};

template <>
struct std::formatter<CPathString, wchar_t> : std::formatter<CXTString<wchar_t>, wchar_t>
{
};

template <>
struct std::formatter<CExLCString, wchar_t> : std::formatter<CXTString<wchar_t>, wchar_t>
{
};
#endif
