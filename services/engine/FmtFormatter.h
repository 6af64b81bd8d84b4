#pragma once

// For programs that use {fmt}, 9 or newer: its functions take texts of the width of their formats, with the specifications
// that they have for strings. TevTools.h does not include this header.

#include "services/CPathString.h"
#include "text/CExLCString.h"
#include "text/CXTString.h"

#include <fmt/core.h>

template <class T>
struct fmt::formatter<CXTString<T>, T> : fmt::formatter<fmt::basic_string_view<T>, T>
{
    template <class Context>
    auto format(const CXTString<T>& text, Context& context) const
    {
        const fmt::basic_string_view<T> view(text.GetConstBuffer(), static_cast<std::size_t>(text.GetLength64()));
        return fmt::formatter<fmt::basic_string_view<T>, T>::format(view, context);
    }
};

template <>
struct fmt::formatter<CPathString, wchar_t> : fmt::formatter<CXTString<wchar_t>, wchar_t>
{
};

template <>
struct fmt::formatter<CExLCString, wchar_t> : fmt::formatter<CXTString<wchar_t>, wchar_t>
{
};
