#pragma once

#include <cstdarg>

namespace tev
{
/// Scans a C string in the manner of sscanf_s. Returns the number of targets filled, or -1 when the text ends before the
/// first of them was. A conversion that does not exist ends the scan like text that does not match.
template <class T>
[[nodiscard]] int ScanText(const T* text, const T* format, va_list arguments);

extern template int ScanText(const char*, const char*, va_list);
extern template int ScanText(const wchar_t*, const wchar_t*, va_list);
} // namespace tev
