#pragma once

#include "text/CXTString.h"
#include "text/CaseFolding.h"

namespace tev
{
/// By the library's own table: the C library's has other pairs of letters in some locales.
inline wchar_t FoldedCase(wchar_t character) noexcept
{
    return static_cast<wchar_t>(platform::CaseFolded(static_cast<char32_t>(character)));
}

inline CXTString<wchar_t> FoldedCase(CXTString<wchar_t> text)
{
    for (int i = 0; i < text.GetLength(); ++i)
        text.SetAt(i, FoldedCase(text.GetAt(i)));
    return text;
}
} // namespace tev
