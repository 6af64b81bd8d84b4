#pragma once

// The members of CXTString that compare, search and edit. For CXTStringInstances.cpp, which instantiates the whole
// class.

#include "text/CXTString.h"
#include "text/TextSearch.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

namespace tev
{
inline int ToPosition(unsigned __int64 value) noexcept
{
    return value > INT_MAX ? INT_MAX : static_cast<int>(value);
}

/// A search result as the interface returns it: a position that `int` cannot hold counts as absent.
inline int ToFound(std::size_t position) noexcept
{
    return position > INT_MAX ? -1 : static_cast<int>(position);
}

/// A position or count; a negative one means 0.
inline std::size_t ToCount(int count) noexcept
{
    return count < 0 ? 0 : static_cast<std::size_t>(count);
}

/// A position or count; a negative one means that there is no bound.
inline std::size_t ToBound(int count) noexcept
{
    return count < 0 ? SIZE_MAX : static_cast<std::size_t>(count);
}

template <class T, class Predicate>
std::size_t FindIf(const CXTCharArray<T>& text, std::size_t start, Predicate predicate)
{
    const T* begin = text.m_data;
    const T* end = begin + text.m_length;
    const T* found = start < text.m_length ? std::find_if(begin + start, end, predicate) : end;
    return found == end ? kNotFound : static_cast<std::size_t>(found - begin);
}
} // namespace tev

template <class T>
int CXTString<T>::Compare(const T* text) const noexcept
{
    return CompareRun(text, tev::TextLength(text));
}

template <class T>
int CXTString<T>::Compare(const CXTString& other) const noexcept
{
    return CompareRun(other.m_text.m_data, other.m_text.m_length);
}

template <class T>
bool CXTString<T>::Equals(const CXTString& other) const noexcept
{
    return EqualsRun(other.m_text.m_data, other.m_text.m_length);
}

template <class T>
bool CXTString<T>::EqualsRun(const T* text, std::size_t length) const noexcept
{
    if (length != m_text.m_length)
        return false;
    return length == 0 || std::memcmp(m_text.m_data, text, length * sizeof(T)) == 0; // no text may be null
}

template <class T>
int CXTString<T>::CompareRun(const T* text, std::size_t length) const noexcept
{
    return tev::CompareText<T>(m_text.m_data, m_text.m_length, text, length);
}

template <class T>
int CXTString<T>::CompareNoCase(const T* text) const noexcept
{
    return text == nullptr ? !IsEmpty() : tev::CompareTextNoCase<T>(m_text.m_data, text);
}

template <class T>
int CXTString<T>::Collate(const T* text) const noexcept
{
    return text == nullptr ? !IsEmpty() : tev::CollateText(m_text.m_data, text);
}

template <class T>
int CXTString<T>::CollateNoCase(const T* text) const
{
    if (text == nullptr)
        return !IsEmpty();
    CXTString left(m_text.m_data);
    CXTString right(text);
    return left.MakeLower().Collate(right.MakeLower());
}

template <class T>
int CXTString<T>::Find(T character, int start) const noexcept
{
    return tev::ToFound(tev::FindText<T>(m_text.m_data, m_text.m_length, tev::ToCount(start), &character, 1));
}

template <class T>
int CXTString<T>::Find(const T* text, int start, bool noCase) const
{
    const auto find = noCase ? tev::FindTextNoCase<T> : tev::FindText<T>;
    return tev::ToFound(find(m_text.m_data, m_text.m_length, tev::ToCount(start), text, tev::TextLength(text)));
}

template <class T>
int CXTString<T>::FindEndPos(const T* text, int start, bool noCase) const
{
    const int found = Find(text, start, noCase);
    return found < 0 ? -1 : tev::ToFound(static_cast<std::size_t>(found) + tev::TextLength(text));
}

template <class T>
int CXTString<T>::FindOneOf(const T* characters, int start) const noexcept
{
    const tev::CharacterSet<T> set(characters);
    return tev::ToFound(tev::FindIf(m_text, tev::ToCount(start), [&](T c) { return set.Has(c); }));
}

template <class T>
int CXTString<T>::ReverseFind(T character, int start) const noexcept
{
    return tev::ToFound(tev::FindTextBackwards<T>(m_text.m_data, m_text.m_length, tev::ToBound(start), &character, 1));
}

template <class T>
int CXTString<T>::ReverseFind(const T* text, int start) const noexcept
{
    return tev::ToFound(
        tev::FindTextBackwards<T>(m_text.m_data, m_text.m_length, tev::ToBound(start), text, tev::TextLength(text)));
}

template <class T>
int CXTString<T>::Replace(T oldCharacter, T newCharacter, int maxCount, int limit, int start)
{
    return EditRuns(tev::FindText<T>, {&oldCharacter, 1}, {&newCharacter, 1}, maxCount, limit, start);
}

template <class T>
int CXTString<T>::Replace(const T* oldText, const T* newText, int maxCount, int limit, int start)
{
    if (oldText == nullptr || newText == nullptr)
        return 0;
    if (Contains(oldText) || Contains(newText))
        return Replace(CXTString(oldText), CXTString(newText), maxCount, limit, start);
    return EditRuns(tev::FindText<T>, {oldText, tev::TextLength(oldText)}, {newText, tev::TextLength(newText)},
                    maxCount, limit, start);
}

template <class T>
int CXTString<T>::Remove(T character, int start)
{
    return EditRuns(tev::FindText<T>, {&character, 1}, {nullptr, 0}, -1, -1, start);
}

template <class T>
int CXTString<T>::Remove(const T* text, bool noCase, int start)
{
    if (Contains(text))
        return Remove(CXTString(text), noCase, start);
    const auto find = noCase ? tev::FindTextNoCase<T> : tev::FindText<T>;
    return EditRuns(find, {text, tev::TextLength(text)}, {nullptr, 0}, -1, -1, start);
}

// The result is that of editing match by match, and `limit` refers to positions in the text edited so far. The matches
// are counted first; then the text is shifted to the back by what it grows, and each part is moved once, from the
// front.
template <class T>
int CXTString<T>::EditRuns(FindFunction find, Run oldRun, Run newRun, int maxCount, int limit, int start)
{
    const std::size_t most = tev::ToBound(maxCount);
    const std::size_t bound = tev::ToBound(limit);
    const std::size_t length = m_text.m_length;

    std::size_t count = 0;
    const std::size_t first = find(m_text.m_data, length, tev::ToCount(start), oldRun.m_data, oldRun.m_count);
    for (std::size_t at = first; at != tev::kNotFound && count < most; ++count)
    {
        if (at + count * newRun.m_count - count * oldRun.m_count >= bound)
            break;
        at = find(m_text.m_data, length, at + oldRun.m_count, oldRun.m_data, oldRun.m_count);
    }
    if (count == 0)
        return 0;

    const std::size_t result = length + count * newRun.m_count - count * oldRun.m_count;
    const std::size_t shift = result > length ? result - length : 0;
    T* data = result > length ? SetLength(result) : m_text.m_data;
    tev::CopyCharacters(data + first + shift, data + first, length - first);

    const T* source = data + shift;
    std::size_t from = first;
    T* target = data + first;
    for (std::size_t i = 0; i < count; ++i)
    {
        const std::size_t at = find(source, length, from, oldRun.m_data, oldRun.m_count);
        tev::CopyCharacters(target, source + from, at - from);
        tev::CopyCharacters(target + (at - from), newRun.m_data, newRun.m_count);
        target += at - from + newRun.m_count;
        from = at + oldRun.m_count;
    }
    tev::CopyCharacters(target, source + from, length - from);
    SetLength(result);
    return tev::ToPosition(count);
}

template <class T>
int CXTString<T>::Insert(int position, T character)
{
    return InsertRun(position, {&character, 1});
}

template <class T>
int CXTString<T>::Insert(int position, const T* text)
{
    if (Contains(text))
        return Insert(position, CXTString(text));
    return InsertRun(position, {text, tev::TextLength(text)});
}

template <class T>
int CXTString<T>::InsertRun(int position, Run run)
{
    const std::size_t length = m_text.m_length;
    const std::size_t at = std::min<std::size_t>(tev::ToCount(position), length);
    T* data = SetLength(length + run.m_count);
    tev::CopyCharacters(data + at + run.m_count, data + at, length - at);
    tev::CopyCharacters(data + at, run.m_data, run.m_count);
    return GetLength();
}

template <class T>
int CXTString<T>::Delete(int position, int count)
{
    const std::size_t length = m_text.m_length;
    const std::size_t at = tev::ToCount(position);
    if (at < length)
    {
        const std::size_t removed = std::min(tev::ToBound(count), length - at);
        tev::CopyCharacters(m_text.m_data + at, m_text.m_data + at + removed, length - at - removed);
        SetLength(length - removed);
    }
    return GetLength();
}

template <class T>
CXTString<T> CXTString<T>::Mid(int first, int count) const
{
    return Part(tev::ToCount(first), tev::ToBound(count));
}

template <class T>
CXTString<T> CXTString<T>::Left(int count) const
{
    return Part(0, tev::ToCount(count));
}

template <class T>
CXTString<T> CXTString<T>::Right(int count) const
{
    const std::size_t kept = std::min<std::size_t>(tev::ToCount(count), m_text.m_length);
    return Part(m_text.m_length - kept, kept);
}

template <class T>
CXTString<T> CXTString<T>::SpanIncluding(const T* characters) const
{
    const tev::CharacterSet<T> set(characters);
    return Part(0, tev::FindIf(m_text, 0, [&](T c) { return !set.Has(c); }));
}

template <class T>
CXTString<T> CXTString<T>::SpanExcluding(const T* characters) const
{
    const tev::CharacterSet<T> set(characters);
    return Part(0, tev::FindIf(m_text, 0, [&](T c) { return set.Has(c); }));
}

template <class T>
CXTString<T> CXTString<T>::Tokenize(const T* separators, int& position) const
{
    const tev::CharacterSet<T> set(separators);
    const std::size_t first =
        position < 0 ? tev::kNotFound : tev::FindIf(m_text, tev::ToCount(position), [&](T c) { return !set.Has(c); });
    if (first == tev::kNotFound)
    {
        position = -1;
        return {};
    }
    const std::size_t end =
        std::min<std::size_t>(tev::FindIf(m_text, first, [&](T c) { return set.Has(c); }), m_text.m_length);
    position = tev::ToPosition(end < m_text.m_length ? end + 1 : end);
    return Part(first, end - first);
}

// At most `count` characters from `first` on; fewer where the text ends before.
template <class T>
CXTString<T> CXTString<T>::Part(std::size_t first, std::size_t count) const
{
    const std::size_t length = m_text.m_length;
    CXTString result;
    if (first < length)
        result.Assign(m_text.m_data + first, std::min(count, length - first));
    return result;
}

template <class T>
CXTString<T>& CXTString<T>::MakeUpper(int count)
{
    const std::size_t end = std::min<std::size_t>(tev::ToBound(count), m_text.m_length);
    std::transform(m_text.m_data, m_text.m_data + end, m_text.m_data, [](T c) { return tev::UpperCase(c); });
    return *this;
}

template <class T>
CXTString<T>& CXTString<T>::MakeLower(int count)
{
    const std::size_t end = std::min<std::size_t>(tev::ToBound(count), m_text.m_length);
    std::transform(m_text.m_data, m_text.m_data + end, m_text.m_data, [](T c) { return tev::LowerCase(c); });
    return *this;
}

template <class T>
CXTString<T>& CXTString<T>::MakeReverse()
{
    std::reverse(m_text.m_data, m_text.m_data + m_text.m_length);
    return *this;
}

template <class T>
template <class Predicate>
CXTString<T>& CXTString<T>::TrimWhere(TrimSides sides, Predicate isTrimmed)
{
    std::size_t first = 0;
    std::size_t end = m_text.m_length;
    if (sides != TrimSides::kRight)
    {
        while (first < end && isTrimmed(m_text.m_data[first]))
            ++first;
    }
    if (sides != TrimSides::kLeft)
    {
        while (end > first && isTrimmed(m_text.m_data[end - 1]))
            --end;
    }
    if (end - first == m_text.m_length)
        return *this;
    return KeepRange(first, end - first);
}

template <class T>
CXTString<T>& CXTString<T>::TrimSpace(TrimSides sides)
{
    return TrimWhere(sides, [](T c) { return tev::IsSpace(c); });
}

template <class T>
CXTString<T>& CXTString<T>::TrimCharacter(TrimSides sides, T character)
{
    return TrimWhere(sides, [&](T c) { return c == character; });
}

template <class T>
CXTString<T>& CXTString<T>::TrimSet(TrimSides sides, const T* characters)
{
    const tev::CharacterSet<T> set(characters);
    return TrimWhere(sides, [&](T c) { return set.Has(c); });
}
