#include "arrays/StringArrays.h"

#include "text/TextView.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace
{
using String = CXTString<wchar_t>;
using Strings = CXArray<String>;

using tev::ViewOf;

// Lower-casing for each comparison would cost two copies a time.
void SortByLoweredCollation(Strings& array)
{
    struct Entry
    {
        String m_lowered;
        String m_string;
    };
    std::vector<Entry> entries(static_cast<std::size_t>(array.GetSize()));
    for (std::size_t i = 0; i < entries.size(); ++i)
    {
        entries[i].m_lowered = array.GetData()[i];
        entries[i].m_lowered.MakeLower();
    }
    for (std::size_t i = 0; i < entries.size(); ++i)
        entries[i].m_string = std::move(array.GetData()[i]);
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry& a, const Entry& b) { return a.m_lowered.Collate(b.m_lowered) < 0; });
    for (std::size_t i = 0; i < entries.size(); ++i)
        array.GetData()[i] = std::move(entries[i].m_string);
}

void MoveBehind(Strings& array, int kept, Strings& fresh)
{
    array.SetSize(kept + fresh.GetSize());
    std::move(fresh.begin(), fresh.end(), array.begin() + kept);
}
} // namespace

void SortStringArray(Strings& array, _CompareStringsEnum order)
{
    switch (order)
    {
    case xCompare:
        std::stable_sort(array.begin(), array.end());
        return;
    case xCompareNoCase:
        std::stable_sort(array.begin(), array.end(),
                         [](const String& a, const String& b) { return a.CompareNoCase(b) < 0; });
        return;
    case xCollate:
        std::stable_sort(array.begin(), array.end(), [](const String& a, const String& b) { return a.Collate(b) < 0; });
        return;
    case xCollateNoCase:
        SortByLoweredCollation(array);
        return;
    }
    tev::ThrowInvalidArgument();
}

int CopyStringArray(Strings& target, const Strings& source, bool append, bool unique)
{
    const int kept = append ? target.GetSize() : 0;
    Strings fresh(true);
    if (unique)
    {
        std::unordered_set<std::wstring_view> known; // of strings that stay where they are until the end
        for (int i = 0; i < kept; ++i)
            known.insert(ViewOf(target[i]));
        for (const String& string : source)
        {
            if (known.insert(ViewOf(string)).second)
                fresh.Add(string);
        }
    }
    else
        fresh.AddArray(source);
    const int count = fresh.GetSize();
    MoveBehind(target, kept, fresh);
    return count;
}

int FindInStringArray(const Strings& array, const String& string, bool noCase)
{
    const auto* found = std::find_if(array.begin(), array.end(), [&](const String& one) {
        return noCase ? one.CompareNoCase(string) == 0 : one == string;
    });
    return found == array.end() ? -1 : static_cast<int>(found - array.begin());
}

int ExtractString(const String& list, Strings& array)
{
    Strings parts(true);
    for (int position = 0;;)
    {
        String part = list.Tokenize(L"|", position);
        if (position == -1)
            break;
        const int count = parts.GetSize();
        parts.SetSize(count + 1);
        parts[count] = std::move(part);
    }
    MoveBehind(array, 0, parts);
    return array.GetSize();
}
