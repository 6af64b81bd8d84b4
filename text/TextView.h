#pragma once

#include "text/CXTString.h"

#include <cstddef>
#include <string_view>

namespace tev
{
/// The whole text, NULs within it included; valid until the string changes.
template <class T>
std::basic_string_view<T> ViewOf(const CXTString<T>& text) noexcept
{
    return {text.GetConstBuffer(), static_cast<std::size_t>(text.GetLength64())};
}
} // namespace tev
