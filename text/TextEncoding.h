#pragma once

#include "base/TevTypes.h"

#include <cstddef>

// Exported here too: clang takes the visibility of the instantiations from the first declaration.
template <class T>
class TEVTOOLS_API CXTString;

/// The encoding of text in bytes. Any value that is not listed is a code-page number (1252, 932, ...); among these are
/// 0 for the ANSI code page, 1200 and 1201 for UTF-16, 12000 and 12001 for UTF-32 (the second one big-endian) and 65001
/// for UTF-8.
enum xStringEncoding : unsigned int
{
    xEncodingAnsi = 1, ///< the process's ANSI code page, see XGetAnsiCodePage
    xEncodingUtf8 = 2,
    xEncodingUtf16 = 3,            ///< little-endian
    xEncodingUtf16BE = 4,          ///< big-endian
    xEncodingUnknown = 0xFFFFFFFFu ///< converted like xEncodingAnsi
};

/// The code page that "ANSI" means in this process: 65001 (UTF-8) until a host sets another one.
/// Safe from several threads at once.
TEVTOOLS_API unsigned XGetAnsiCodePage() noexcept;

/// Chooses the ANSI code page for the whole process. Conversions fail while it names a code page that the system lacks.
/// Formatting assumes that its first 128 characters are those of ASCII, as they are in every true ANSI code page.
/// Safe from several threads at once.
TEVTOOLS_API void XSetAnsiCodePage(unsigned codePage) noexcept;

/// Turns bytes of the given encoding into wide text, embedded NULs included. The bytes must not lie in `text` itself.
/// Bytes that are invalid in the encoding become U+FFFD; a lone surrogate of UTF-16 passes through unchanged. False,
/// with `text` empty, when `bytes` is null or the code page is unknown. A byte-order mark is text like any other.
[[nodiscard]] TEVTOOLS_API bool XDecodeText(const void* bytes, std::size_t byteCount, xStringEncoding encoding,
                                            CXTString<wchar_t>& text);

/// Turns wide text into bytes of the given encoding, embedded NULs included.
/// A character that the encoding lacks becomes '?'. For UTF-16 the result holds two bytes a unit.
/// False, with `bytes` empty, when `text` is null or the code page is unknown; XLastFailure() says so, here and above.
[[nodiscard]] TEVTOOLS_API bool XEncodeText(const wchar_t* text, std::size_t length, xStringEncoding encoding,
                                            CXTString<char>& bytes);

/// Turns a path as the system has it, up to its NUL, into text: UTF-8, in which each byte that is not part of it becomes
/// one of U+DC80 to U+DCFF. Null counts as empty.
TEVTOOLS_API void XDecodePath(const char* path, CXTString<wchar_t>& text);

/// The inverse, with '\' as '/'. False, with `path` empty, for a text that no name can have: one with another lone
/// surrogate or a value above U+10FFFF. NUL ends the text; null counts as empty.
[[nodiscard]] TEVTOOLS_API bool XEncodePath(const wchar_t* text, CXTString<char>& path);
