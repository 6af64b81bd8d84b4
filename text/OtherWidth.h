#pragma once

#include "text/TextEncoding.h"

namespace tev
{
/// Converts text to the other width through the ANSI code page. False, with `converted` empty, when that page is
/// unknown or `text` is null.
[[nodiscard]] inline bool ConvertText(const char* text, size_t length, CXTString<wchar_t>& converted)
{
    return XDecodeText(text, length, xEncodingAnsi, converted);
}

[[nodiscard]] inline bool ConvertText(const wchar_t* text, size_t length, CXTString<char>& converted)
{
    return XEncodeText(text, length, xEncodingAnsi, converted);
}
} // namespace tev
