#pragma once

#include "text/FormatOutput.h"

#include <cstdarg>

namespace tev
{
/// Carries out a format. False, with `output` unspecified, when the format has a fault or the text would become too long.
template <class T>
[[nodiscard]] bool FormatText(FormatOutput<T>& output, const T* format, va_list arguments);

extern template bool FormatText(FormatOutput<char>&, const char*, va_list);
extern template bool FormatText(FormatOutput<wchar_t>&, const wchar_t*, va_list);
} // namespace tev
