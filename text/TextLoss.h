#pragma once

#include "text/TextEncoding.h"

#include <cstddef>

/// What a conversion could not keep.
struct XTextLoss
{
    unsigned __int64 m_count = 0; ///< characters that were replaced
    unsigned __int64 m_first = 0; ///< where the first one stands in the source, counted from 0; 0 when there is none
};

/// As the function of text/TextEncoding.h, and says how many U+FFFD stand for bytes without meaning; one that is in the
/// source itself is no loss. `m_first` counts bytes.
[[nodiscard]] TEVTOOLS_API bool XDecodeText(const void* bytes, std::size_t byteCount, xStringEncoding encoding,
                                            CXTString<wchar_t>& text, XTextLoss& loss);

/// As the function of text/TextEncoding.h, and says how many '?' stand for characters that the encoding lacks. `m_first`
/// counts wide characters.
[[nodiscard]] TEVTOOLS_API bool XEncodeText(const wchar_t* text, std::size_t length, xStringEncoding encoding,
                                            CXTString<char>& bytes, XTextLoss& loss);
