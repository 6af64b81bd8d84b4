#pragma once

#include <cstddef>
#include <string>

// Text in the code pages that the system supports, by number. The Unicode encodings are not among them: text/ converts
// those. Safe from several threads at once.

namespace tev::platform
{
/// What a conversion replaced.
struct ReplacedText
{
    std::size_t m_count = 0;
    std::size_t m_first = 0; ///< the index of the first byte or character that was replaced
};

/// Appends the bytes as wide text. A byte without meaning becomes U+FFFD, an incomplete character at the end becomes
/// one U+FFFD. False, with nothing appended, when the system lacks the code page.
[[nodiscard]] bool DecodeCodePage(unsigned codePage, const char* bytes, size_t size, std::wstring& text,
                                  ReplacedText* replaced = nullptr);

/// Appends the text, which holds no surrogates where a wide character is a whole code point, as bytes. What the code
/// page lacks becomes '?', never a similar character. False, with nothing appended, when the system lacks the code
/// page.
[[nodiscard]] bool EncodeCodePage(unsigned codePage, const wchar_t* text, size_t length, std::string& bytes,
                                  ReplacedText* replaced = nullptr);
} // namespace tev::platform
