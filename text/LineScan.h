#pragma once

// Search for line ends in the bytes of a text whose units have one byte (any 8-bit encoding), two (UTF-16) or four (UTF-32).

#include "text/TextEncoding.h"
#include "text/TextSearch.h"

#include <cstddef>

namespace tev
{
constexpr bool IsUtf16(xStringEncoding encoding) noexcept
{
    return encoding == xEncodingUtf16 || encoding == xEncodingUtf16BE;
}

/// UTF-32 has no name of its own: it goes by its code-page numbers.
inline constexpr unsigned kUtf32Encoding = 12000;
inline constexpr unsigned kUtf32BEEncoding = 12001;

constexpr bool IsUtf32(xStringEncoding encoding) noexcept
{
    return encoding == kUtf32Encoding || encoding == kUtf32BEEncoding;
}

/// Bytes of one unit of the encoding.
constexpr std::size_t UnitSize(xStringEncoding encoding) noexcept
{
    return IsUtf16(encoding) ? 2 : IsUtf32(encoding) ? 4 : 1;
}

/// The part of so many bytes that is whole units.
constexpr std::size_t WholeUnits(std::size_t size, std::size_t unit) noexcept
{
    return size & ~(unit - 1);
}

/// Whether the unit at `unit` is the ASCII character.
inline bool IsUnit(const char* unit, xStringEncoding encoding, char character) noexcept
{
    const std::size_t size = UnitSize(encoding);
    if (size == 1)
        return *unit == character;
    const bool bigEndian = encoding == xEncodingUtf16BE || encoding == kUtf32BEEncoding;
    const std::size_t low = bigEndian ? size - 1 : 0;
    for (std::size_t i = 0; i < size; ++i)
    {
        if (unit[i] != (i == low ? character : '\0'))
            return false;
    }
    return true;
}

std::size_t FindWideLineFeed(const char* bytes, std::size_t size, xStringEncoding encoding) noexcept;

/// Offset of the first LF unit, tev::kNotFound when there is none. `size` is a multiple of the unit's size.
inline std::size_t FindLineFeed(const char* bytes, std::size_t size, xStringEncoding encoding) noexcept
{
    return UnitSize(encoding) == 1 ? FindCharacter(bytes, size, '\n') : FindWideLineFeed(bytes, size, encoding);
}

/// Offset of the first CR or LF unit, tev::kNotFound when there is none. `size` is a multiple of the unit's size.
std::size_t FindLineBreak(const char* bytes, std::size_t size, xStringEncoding encoding) noexcept;

/// The same of the last one.
std::size_t FindLastLineBreak(const char* bytes, std::size_t size, xStringEncoding encoding) noexcept;
} // namespace tev
