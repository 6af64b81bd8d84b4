#pragma once

// Reading of numbers independently of the locale: the decimal point is '.', letters and digits are ASCII.

#include <cstddef>

namespace tev
{
/// The value of a digit in bases up to 16; a larger one for any other character.
template <class T>
constexpr unsigned DigitValue(T character) noexcept
{
    if (character >= '0' && character <= '9')
        return static_cast<unsigned>(character - '0');
    if (character >= 'a' && character <= 'f')
        return static_cast<unsigned>(character - 'a') + 10;
    if (character >= 'A' && character <= 'F')
        return static_cast<unsigned>(character - 'A') + 10;
    return 16;
}

/// An ASCII letter in lower case, any other ASCII character unchanged, NUL for all others.
template <class T>
constexpr char AsciiLower(T character) noexcept
{
    if (character >= 'A' && character <= 'Z')
        return static_cast<char>(character - 'A' + 'a');
    return character > 0 && character < 0x80 ? static_cast<char>(character) : 0;
}

/// Reads as much of the text as strtod would and returns its length; 0, with nothing read, when it is no number. A
/// number that is too large becomes infinite, one that is too close to 0 the nearest subnormal number or 0.
template <class Value>
std::size_t ReadFloat(const char* text, const char* end, Value& value);

extern template std::size_t ReadFloat(const char*, const char*, float&);
extern template std::size_t ReadFloat(const char*, const char*, double&);
extern template std::size_t ReadFloat(const char*, const char*, long double&);
} // namespace tev
