#pragma once

#include "text/CXTString.h"
#include "text/StandardText.h"
#include "text/TextEncoding.h"

#include <functional>
#include <type_traits>
#include <utility>

/// A path. It is made from std::filesystem::path and becomes one, so that it can be given to the functions of that library;
/// a character of U+DC80 to U+DCFF is the byte 0x80 to 0xFF of a name that is not UTF-8. Both '/' and '\' separate
/// components; composed paths get the system's separator. A value: one thread at a time.
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

    /// Empty for a text that no name can have.
    template <class Path, tev::IfPath<Path, wchar_t> = 0>
    operator Path() const
    {
        if constexpr (std::is_same_v<typename Path::value_type, wchar_t>)
            return Path(GetConstBuffer());
        else
        {
            CXTString<char> path;
            return XEncodePath(*this, path) ? Path(path.GetConstBuffer()) : Path();
        }
    }

    // Both kinds of paths with each other: composed, the result has the type of the folder; compared as paths.

    template <class Path, tev::IfPath<Path, wchar_t> = 0>
    friend CPathString operator/(CPathString folder, const Path& path)
    {
        return std::move(folder) / CXTString<wchar_t>(path);
    }
    template <class Path, tev::IfPath<Path, wchar_t> = 0>
    friend Path operator/(const Path& folder, const CPathString& path)
    {
        return folder / Path(path);
    }
    template <class Path, tev::IfPath<Path, wchar_t> = 0>
    friend bool operator==(const CPathString& a, const Path& b)
    {
        return Path(a) == b;
    }
    template <class Path, tev::IfPath<Path, wchar_t> = 0>
    friend bool operator==(const Path& a, const CPathString& b)
    {
        return a == Path(b);
    }
    template <class Path, tev::IfPath<Path, wchar_t> = 0>
    friend bool operator!=(const CPathString& a, const Path& b)
    {
        return !(a == b);
    }
    template <class Path, tev::IfPath<Path, wchar_t> = 0>
    friend bool operator!=(const Path& a, const CPathString& b)
    {
        return !(a == b);
    }

private:
    int NameStart() const noexcept;
    /// Index of the extension.
    int TitleEnd() const noexcept;
};

template <>
struct std::hash<CPathString> : std::hash<CXTString<wchar_t>>
{
};
