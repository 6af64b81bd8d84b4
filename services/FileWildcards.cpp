#include "services/FileWildcards.h"

#include "services/FoldedCase.h"
#include "text/TextView.h"

#include <algorithm>
#include <new>
#include <string_view>

namespace
{
using tev::ViewOf;

constexpr int kLongestWords = 259;
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

/// A quoted extension becomes a pattern, a name is kept.
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

/// A character of a pattern, not '*', and one of a name.
bool IsMatch(wchar_t p, wchar_t n) noexcept
{
    return p == n || p == L'?';
}

/// Whether a pattern that starts with '*' matches the whole name. Taking the first match of each piece between two '*'
/// leaves the most for the pieces behind it.
bool MatchesFromStar(std::wstring_view name, std::wstring_view pattern) noexcept
{
    for (;;)
    {
        pattern.remove_prefix(1);
        const std::size_t star = pattern.find(L'*');
        if (star == pattern.npos)
            break;
        const auto place = std::search(name.begin(), name.end(), pattern.begin(), pattern.begin() + star,
                                       [](wchar_t n, wchar_t p) { return IsMatch(p, n); });
        const auto skipped = static_cast<std::size_t>(place - name.begin());
        if (skipped + star > name.size())
            return false;
        name.remove_prefix(skipped + star);
        pattern.remove_prefix(star);
    }
    return name.size() >= pattern.size() &&
           std::equal(pattern.begin(), pattern.end(), name.end() - static_cast<std::ptrdiff_t>(pattern.size()),
                      IsMatch);
}
} // namespace

CXTString<wchar_t> fileCleanExtensionList(const CXTString<wchar_t>& list, bool singleWords,
                                          CHashTable<CXTString<wchar_t>>* set)
{
    CXTString<wchar_t> words = list;
    words.Replace(L',', L' ');
    words.Replace(L';', L' ');
    words = tev::FoldedCase(words.Trim().Left(kLongestWords));

    CHashTable<CXTString<wchar_t>> ownSet;
    CHashTable<CXTString<wchar_t>>& patterns = set != nullptr ? *set : ownSet;
    CXTString<wchar_t> result;
    const std::wstring_view text = ViewOf(words);
    std::size_t position = 0;
    for (std::wstring_view word = NextWord(text, position, singleWords); !word.empty();
         word = NextWord(text, position, singleWords))
    {
        const CXTString<wchar_t> pattern = PatternOf(word);
        if (pattern.IsEmpty() || patterns.Find(pattern) != nullptr)
            continue;
        if (patterns.Insert(pattern) == 0)
            throw std::bad_alloc();
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
    const std::wstring_view n = ViewOf(name);
    const std::wstring_view p = ViewOf(pattern);
    std::size_t i = 0;
    for (; i < p.size() && p[i] != L'*'; ++i)
    {
        if (i == n.size())
            return false;
        if (!IsMatch(p[i], n[i]) && (caseSensitive || UpperLowByte(p[i]) != UpperLowByte(n[i])))
            return false;
    }
    return i == p.size() ? i == n.size() : MatchesFromStar(n.substr(i), p.substr(i));
}

bool fileMatchWilcards(const CXTString<wchar_t>& name, const CHashTable<CXTString<wchar_t>>& set)
{
    const CXTString<wchar_t> lowered = tev::FoldedCase(name);
    unsigned int position = set.GetFirst();
    const CXTString<wchar_t>* pattern = nullptr;
    while (set.GetNext(position, pattern))
    {
        if (fileMatchWilcards(lowered, *pattern, true))
            return true;
    }
    return false;
}
