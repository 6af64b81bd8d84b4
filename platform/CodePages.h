#pragma once

#include <cstddef>
#include <string>

// Text in the code pages that the system knows, by number. The Unicode forms are none of them: core/ converts those itself.
// Safe from several threads at once.

namespace tev::platform
{
/// Appends the bytes as wide text. A byte without meaning becomes U+FFFD, an incomplete character at the end becomes one
/// U+FFFD. False, with nothing appended, when the system lacks the code page.
[[nodiscard]] bool DecodeCodePage(unsigned codePage, const char* bytes, size_t size, std::wstring& text);

/// Appends the text, which holds no surrogates where a wide character is a whole code point, as bytes. What the code page
/// lacks becomes '?', never something that looks similar. False, with nothing appended, when the system lacks the code page.
[[nodiscard]] bool EncodeCodePage(unsigned codePage, const wchar_t* text, size_t length, std::string& bytes);
} // namespace tev::platform
