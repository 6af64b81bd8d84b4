#pragma once

#include "text/TextEncoding.h"

namespace tev
{
constexpr unsigned kCodePageAnsi = 0; ///< what XGetAnsiCodePage returns at the time of the conversion
constexpr unsigned kCodePageUtf16 = 1200;
constexpr unsigned kCodePageUtf16BE = 1201;
constexpr unsigned kCodePageUtf32 = 12000;
constexpr unsigned kCodePageUtf32BE = 12001;
constexpr unsigned kCodePageUtf8 = 65001;

/// The code page of narrow text: any value but ANSI, unknown and UTF-8 is a number already, the two of UTF-16 included.
constexpr unsigned NarrowCodePage(xStringEncoding encoding) noexcept
{
    if (encoding == xEncodingAnsi || encoding == xEncodingUnknown)
        return kCodePageAnsi;
    return encoding == xEncodingUtf8 ? kCodePageUtf8 : static_cast<unsigned>(encoding);
}

/// As XDecodeText and XEncodeText, but by code-page number.
[[nodiscard]] bool DecodeCodePage(const void* bytes, size_t byteCount, unsigned codePage, CXTString<wchar_t>& text);
[[nodiscard]] bool EncodeCodePage(const wchar_t* text, size_t length, unsigned codePage, CXTString<char>& bytes);
} // namespace tev
