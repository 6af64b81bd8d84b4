#pragma once

#include "text/FormatOutput.h"

namespace tev
{
/// Writes a C string of the width that the conversion says, "(null)" for a null pointer.
/// False when the text would become too long or the ANSI code page is unknown.
template <class T>
[[nodiscard]] bool WriteString(FormatOutput<T>& output, const FormatSpec& spec, const void* text);

/// Writes one character, NUL included.
template <class T>
[[nodiscard]] bool WriteCharacter(FormatOutput<T>& output, const FormatSpec& spec, long long value);
} // namespace tev
