#pragma once

#include <cstddef>

namespace tev::platform
{
/// The decimal point of the C library's current locale, in that locale's own bytes; it lives until the locale changes.
const char* DecimalPoint() noexcept;

/// Reads a number from the front of a C string as strtof, strtod and strtold do in the "C" locale. Returns its length;
/// 0 when it is no number.
std::size_t ReadFloatInCLocale(const char* text, float& value) noexcept;
std::size_t ReadFloatInCLocale(const char* text, double& value) noexcept;
std::size_t ReadFloatInCLocale(const char* text, long double& value) noexcept;
} // namespace tev::platform
