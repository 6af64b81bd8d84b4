#pragma once

#include "text/TextEncoding.h"

#include <string>

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

/// Whether the library converts the code page itself.
constexpr bool IsUnicode(unsigned codePage) noexcept
{
    return codePage == kCodePageUtf8 || codePage == kCodePageUtf16 || codePage == kCodePageUtf16BE ||
           codePage == kCodePageUtf32 || codePage == kCodePageUtf32BE;
}

/// The code page of text in bytes.
constexpr unsigned CodePageOf(xStringEncoding encoding) noexcept
{
    if (encoding == xEncodingUtf16)
        return kCodePageUtf16;
    return encoding == xEncodingUtf16BE ? kCodePageUtf16BE : NarrowCodePage(encoding);
}

/// The code page, with the number for ANSI replaced by the process's choice.
inline unsigned NamedCodePage(unsigned codePage) noexcept
{
    return codePage == kCodePageAnsi ? XGetAnsiCodePage() : codePage;
}

/// As XDecodeText and XEncodeText, but by code-page number.
[[nodiscard]] bool DecodeCodePage(const void* bytes, size_t byteCount, unsigned codePage, CXTString<wchar_t>& text);
[[nodiscard]] bool EncodeCodePage(const wchar_t* text, size_t length, unsigned codePage, CXTString<char>& bytes);

/// Whether narrow text in the ANSI code page is ASCII; false where that page may have other characters in its place.
[[nodiscard]] bool IsAnsiAscii(const char* text, size_t size) noexcept;
/// Little-endian.
void AsciiToUtf16(const char* text, size_t size, CXTString<char>& bytes);

/// Notes why a conversion failed of a text that may be null, and returns false.
bool NoteNoConversion(const char* operation, const void* text) noexcept;

[[nodiscard]] bool HoldsSurrogates(const wchar_t* text, size_t length) noexcept;
/// The text with its surrogate pairs joined where a wide character is a whole code point, and '?' for lone surrogates.
[[nodiscard]] std::wstring WithoutSurrogates(const wchar_t* text, size_t length);
} // namespace tev
