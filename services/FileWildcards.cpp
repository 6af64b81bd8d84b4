#include "services/FileWildcards.h"

#include <algorithm>
#include <string_view>

namespace
{
constexpr int kLongestList = 259;
constexpr wchar_t kQuote = L'"';

wchar_t UpperLowByte(wchar_t character) noexcept
{
    const auto low = static_cast<unsigned char>(character);
    return low >= 'a' && low <= 'z' ? static_cast<wchar_t>(character - ('a' - 'A')) : character;
}

/// The next word of the list from `position` on, which moves past it; an empty one at the end.
std::wstring_view NextWord(std::wstring_view list, std::size_t& position, bool singleWords)
{
    const std::size_t start = std::min(list.find_first_not_of(L' ', position), list.size());
    std::size_t end = std::min(list.find(L' ', start), list.size());
    if (!singleWords && start < end && list[start] == kQuote)
    {
        const std::size_t closing = list.find(kQuote, start + 1);
        if (closing != list.npos && closing >= end)
            end = closing + 1;
    }
    position = end;
    return list.substr(start, end - start);
}

/// An extension in quotes becomes a pattern, a name stays as it is.
CXTString<wchar_t> PatternOfQuoted(std::wstring_view word)
{
    CXTString<wchar_t> pattern(word.data(), static_cast<int>(word.size()));
    pattern.Remove(kQuote);
    if (pattern.IsEmpty())
        return pattern;
    const int dot = pattern.Find(L'.');
    if (dot == 0)
        pattern.Insert(0, L'*');
    else if (dot < 0)
        pattern.Insert(0, L"*.");
    return pattern;
}

CXTString<wchar_t> PatternOf(std::wstring_view word)
{
    if (word.front() == kQuote || word.back() == kQuote)
        return PatternOfQuoted(word);
    CXTString<wchar_t> pattern(word.data(), static_cast<int>(word.size()));
    if (word.find(L'?') != word.npos)
        return pattern;
    if (word.front() != L'*')
        pattern.Insert(0, L'*');
    if (word.back() != L'*')
        pattern += L'*';
    return pattern;
}
} // namespace

CXTString<wchar_t> fileCleanExtensionList(const CXTString<wchar_t>& list, bool singleWords,
                                          CHashTable<CXTString<wchar_t>>* set)
{
    CXTString<wchar_t> words = list;
    words.Replace(L',', L' ');
    words.Replace(L';', L' ');
    words.Trim().MakeLower();
    words = words.Left(kLongestList);

    CHashTable<CXTString<wchar_t>> ownSet;
    CHashTable<CXTString<wchar_t>>& patterns = set != nullptr ? *set : ownSet;
    CXTString<wchar_t> result;
    const std::wstring_view text(words, static_cast<std::size_t>(words.GetLength()));
    std::size_t position = 0;
    for (std::wstring_view word = NextWord(text, position, singleWords); !word.empty();
         word = NextWord(text, position, singleWords))
    {
        const CXTString<wchar_t> pattern = PatternOf(word);
        if (pattern.IsEmpty() || patterns.Insert(pattern) == 0)
            continue;
        if (!result.IsEmpty())
            result += L' ';
        result += pattern;
    }
    return result;
}

unsigned int fileGetHashFromExtensionList(CXTString<wchar_t>& list, CHashTable<CXTString<wchar_t>>& set,
                                          bool singleWords)
{
    set.Clear();
    list = fileCleanExtensionList(list, singleWords, &set);
    return set.GetCount();
}

bool fileMatchWilcards(const CXTString<wchar_t>& name, const CXTString<wchar_t>& pattern, bool caseSensitive) noexcept
{
    const wchar_t* n = name;
    const wchar_t* p = pattern;
    for (; *n != 0 && *p != L'*'; ++n, ++p)
    {
        const bool equal = caseSensitive ? *n == *p : UpperLowByte(*n) == UpperLowByte(*p);
        if (!equal && *p != L'?')
            return false;
    }

    // Behind the last '*' met, and where the name is tried against it next.
    const wchar_t* retryPattern = nullptr;
    const wchar_t* retryName = nullptr;
    while (*n != 0)
    {
        if (*p == L'*')
        {
            if (*++p == 0)
                return true;
            retryPattern = p;
            retryName = n + 1;
        }
        else if (*p == *n || *p == L'?')
        {
            ++p;
            ++n;
        }
        else
        {
            p = retryPattern;
            n = retryName++;
        }
    }
    while (*p == L'*')
        ++p;
    return *p == 0;
}

bool fileMatchWilcards(const CXTString<wchar_t>& name, const CHashTable<CXTString<wchar_t>>& set)
{
    CXTString<wchar_t> lowered = name;
    lowered.MakeLower();
    unsigned int position = set.GetFirst();
    const CXTString<wchar_t>* pattern = nullptr;
    while (set.GetNext(position, pattern))
    {
        if (fileMatchWilcards(lowered, *pattern, true))
            return true;
    }
    return false;
}
