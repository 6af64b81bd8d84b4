#pragma once

#include "text/CXTString.h"

#include <cstddef>

namespace tev
{
/// Bytes after a padded text that can be read; their values do not matter.
constexpr std::size_t kTextPadding = 64;

struct PaddedText
{
    bool m_decoded; ///< false: the text needs XDecodeText
    bool m_hasNul;
};

/// Decodes a padded text that ends with LF in one pass, and leaves LF or CR LF away: for lines, which are too short to
/// be measured first. Declines what is not plain UTF-8 or UTF-16 and what the processor is not made for, with `text`
/// changed.
PaddedText DecodePaddedLine(const char* bytes, std::size_t size, xStringEncoding encoding, CXTString<wchar_t>& text);

/// Does the same with a short line at the front of what can be read, and returns the size that it has with its end. 0
/// for any other line, with `text` empty. `ascii` is the guess whether the line is ASCII, and becomes the truth.
std::size_t DecodeShortLine(const char* bytes, std::size_t available, xStringEncoding encoding,
                            CXTString<wchar_t>& text, bool& hasNul, bool& ascii);
} // namespace tev
