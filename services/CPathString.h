#pragma once

#include "text/CXTString.h"

/// A path. Both '/' and '\' separate components; composed paths get the system's separator. A value: one thread at a
/// time.
class TEVTOOLS_API CPathString : public CXTString<wchar_t>
{
public:
    using CXTString<wchar_t>::CXTString;
    CPathString() = default;
    CPathString(const CXTString<wchar_t>& path) : CXTString<wchar_t>(path) {}

    /// The last component; empty when the path ends with a separator.
    CXTString<wchar_t> GetFileName() const;
    /// The last component without its extension. A name that begins with its only dot has none.
    CXTString<wchar_t> GetTitle() const;
    /// The extension of the last component with its dot, such that title and extension give the name.
    CXTString<wchar_t> GetExtension() const;
    /// All but the last component, without trailing separators unless it is the root; empty when there is none.
    CPathString GetFolder() const;

    /// Appends a path with exactly one separator between both, but keeps the two at the start of a network path; an
    /// empty one adds nothing. One that starts with a separator, or with a drive, is appended all the same.
    CPathString& operator/=(const CXTString<wchar_t>& path);
    friend CPathString operator/(CPathString folder, const CXTString<wchar_t>& path)
    {
        folder /= path;
        return folder;
    }

private:
    int NameStart() const noexcept;
    /// Index of the extension.
    int TitleEnd() const noexcept;
};
