#pragma once

// Search for line ends in the bytes of a text whose units have one byte (any 8-bit encoding) or two (UTF-16).

#include "text/TextEncoding.h"
#include "text/TextSearch.h"

#include <cstddef>

namespace tev
{
constexpr bool IsUtf16(xStringEncoding encoding) noexcept
{
    return encoding == xEncodingUtf16 || encoding == xEncodingUtf16BE;
}

/// Bytes of one unit of the encoding.
constexpr std::size_t UnitSize(xStringEncoding encoding) noexcept
{
    return IsUtf16(encoding) ? 2 : 1;
}

/// The part of so many bytes that is whole units.
constexpr std::size_t WholeUnits(std::size_t size, std::size_t unit) noexcept
{
    return size & ~(unit - 1);
}

/// Whether the unit at `unit` is the ASCII character.
inline bool IsUnit(const char* unit, xStringEncoding encoding, char character) noexcept
{
    if (!IsUtf16(encoding))
        return *unit == character;
    const int low = encoding == xEncodingUtf16 ? 0 : 1;
    return unit[low] == character && unit[1 - low] == 0;
}

std::size_t FindLineFeed16(const char* bytes, std::size_t size, xStringEncoding encoding) noexcept;

/// Offset of the first LF unit, tev::kNotFound when there is none. `size` is a multiple of the unit's size.
inline std::size_t FindLineFeed(const char* bytes, std::size_t size, xStringEncoding encoding) noexcept
{
    return IsUtf16(encoding) ? FindLineFeed16(bytes, size, encoding) : FindCharacter(bytes, size, '\n');
}

/// Offset of the first CR or LF unit, tev::kNotFound when there is none. `size` is a multiple of the unit's size.
std::size_t FindLineBreak(const char* bytes, std::size_t size, xStringEncoding encoding) noexcept;
} // namespace tev
