#pragma once

#include "text/FormatOutput.h"

namespace tev
{
// False when the text would become too long.

/// Writes an argument of the conversions d i u o x X, cut to the integer that the modifier names.
template <class T>
[[nodiscard]] bool WriteInteger(FormatOutput<T>& output, const FormatSpec& spec, long long value);

/// Writes an address in hexadecimal, "(nil)" for null.
template <class T>
[[nodiscard]] bool WritePointer(FormatOutput<T>& output, const FormatSpec& spec, const void* value);

/// Writes what the C library prints in its current locale.
template <class T>
[[nodiscard]] bool WriteFloat(FormatOutput<T>& output, const FormatSpec& spec, double value);
template <class T>
[[nodiscard]] bool WriteFloat(FormatOutput<T>& output, const FormatSpec& spec, long double value);
} // namespace tev
