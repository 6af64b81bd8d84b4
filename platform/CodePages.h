#pragma once

#include <cstddef>
#include <string>

// Text in the code pages that the system supports, by number. The Unicode encodings are not among them: text/ converts
// those. Safe from several threads at once.

namespace tev::platform
{
/// Appends the bytes as wide text. A byte without meaning becomes U+FFFD, an incomplete character at the end becomes
/// one U+FFFD. False, with nothing appended, when the system lacks the code page.
[[nodiscard]] bool DecodeCodePage(unsigned codePage, const char* bytes, size_t size, std::wstring& text);

/// Appends the text, which holds no surrogates where a wide character is a whole code point, as bytes. What the code
/// page lacks becomes '?', never a similar character. False, with nothing appended, when the system lacks the code
/// page.
[[nodiscard]] bool EncodeCodePage(unsigned codePage, const wchar_t* text, size_t length, std::string& bytes);
} // namespace tev::platform
