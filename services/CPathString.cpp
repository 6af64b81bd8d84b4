#include "services/CPathString.h"

#include "platform/PathNames.h"
#include "text/TextView.h"

#include <algorithm>
#include <string_view>

namespace
{
constexpr const wchar_t* kSeparators = L"/\\";

using tev::ViewOf;
} // namespace

int CPathString::NameStart() const noexcept
{
    return static_cast<int>(ViewOf(*this).find_last_of(kSeparators) + 1);
}

int CPathString::TitleEnd() const noexcept
{
    const int dot = ReverseFind(L'.');
    return dot > NameStart() ? dot : GetLength();
}

CXTString<wchar_t> CPathString::GetFileName() const
{
    return Mid(NameStart());
}

CXTString<wchar_t> CPathString::GetTitle() const
{
    return Mid(NameStart(), TitleEnd() - NameStart());
}

CXTString<wchar_t> CPathString::GetExtension() const
{
    return Mid(TitleEnd());
}

CPathString CPathString::GetFolder() const
{
    const std::wstring_view folder = ViewOf(*this).substr(0, static_cast<std::size_t>(NameStart()));
    const std::size_t last = folder.find_last_not_of(kSeparators);
    return Left(static_cast<int>(last == folder.npos ? folder.size() : last + 1));
}

CPathString& CPathString::operator/=(const CXTString<wchar_t>& path)
{
    const std::wstring_view added = ViewOf(path);
    const std::size_t start = std::min(added.find_first_not_of(kSeparators), added.size());
    const CXTString<wchar_t> rest = path.Mid(static_cast<int>(start));
    if (rest.IsEmpty())
        return *this;
    const std::wstring_view own = ViewOf(*this);
    const std::size_t end = own.find_last_not_of(kSeparators) + 1; // 0 where there is nothing else
    const std::size_t separators = own.size() - end;
    const bool isNetwork = end == 0 && separators == 2; // the start of a network path, which has two of them
    if (separators > 1 && !isNetwork)
        *this = Left(static_cast<int>(end + 1));
    else if (separators == 0 && !own.empty())
        *this += tev::platform::kPathSeparator;
    *this += rest;
    return *this;
}
