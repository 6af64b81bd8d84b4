#pragma once

#include "text/CXTString.h"

/// Wide text kept in lower case, for searching without regard to case. Lower case is what the C library's current
/// locale makes of each character at the moment of assignment; characters that are changed through the base class
/// afterwards are not lower-cased. One thread at a time.
class TEVTOOLS_API CExLCString : public CXTString<wchar_t>
{
public:
    CExLCString() = default;
    CExLCString(const CXTString<wchar_t>& text);
    CExLCString& operator=(const CXTString<wchar_t>& text);

    /// Position of the lower-cased `text` at `start` or later, -1 when it is absent. Hides the searches of the base,
    /// which would look for capitals that are never there.
    int Find(const CXTString<wchar_t>& text, int start = 0) const;
};
