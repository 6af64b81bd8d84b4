#pragma once

// The members of CXTString that own the buffer: construction, assignment, growth and access. For
// CXTStringInstances.cpp, which instantiates the whole class.

#include "text/CXTString.h"
#include "text/InvalidParameter.h"
#include "text/OtherWidth.h"
#include "text/TextSearch.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>

namespace tev
{
// The text of a string that owns no buffer: its capacity of 0 makes every change grow first. Not constant, because a
// program may write the terminator of any string again.
template <class T>
T* EmptyText() noexcept
{
    static T terminator = T();
    return &terminator;
}

constexpr unsigned __int64 kFirstCapacity = 16;
constexpr unsigned __int64 kSecondCapacity = 64;

template <class T>
unsigned __int64 CapacityFor(unsigned __int64 length)
{
    // Beyond this the size in bytes of the doubled length would overflow; no allocator has that much memory anyway.
    constexpr unsigned __int64 kLongest = (PTRDIFF_MAX / sizeof(T) - 1) / 2;
    if (length > kLongest)
        throw std::bad_alloc();
    const unsigned __int64 capacity = 2 * length + 1;
    if (capacity < kFirstCapacity)
        return kFirstCapacity;
    return capacity < kSecondCapacity ? kSecondCapacity : capacity;
}

// Of a string that owns no buffer: the first one is that of a new string where the text fits into it.
template <class T>
unsigned __int64 FirstCapacityFor(unsigned __int64 length)
{
    return length < kFirstCapacity ? kFirstCapacity : CapacityFor<T>(length);
}

template <class T>
T* AllocateText(unsigned __int64 capacity)
{
    void* block = std::malloc(static_cast<std::size_t>(capacity) * sizeof(T));
    if (block == nullptr)
        throw std::bad_alloc();
    return static_cast<T*>(block);
}

// A block of the new capacity with the characters of the old one, which is freed.
template <class T>
T* ReallocateText(T* block, unsigned __int64 oldCapacity, unsigned __int64 capacity)
{
    // The allocator has small blocks at hand, but not for realloc: copying is several times as fast.
    constexpr std::size_t kSmall = 1024;
    const auto size = static_cast<std::size_t>(capacity) * sizeof(T);
    if (size <= kSmall)
    {
        T* grown = AllocateText<T>(capacity);
        std::memcpy(grown, block, static_cast<std::size_t>(oldCapacity) * sizeof(T));
        std::free(block);
        return grown;
    }
    void* grown = std::realloc(block, size);
    if (grown == nullptr)
        throw std::bad_alloc();
    return static_cast<T*>(grown);
}
} // namespace tev

template <class T>
CXTString<T>::CXTString() : m_text{tev::AllocateText<T>(tev::kFirstCapacity), 0, tev::kFirstCapacity}
{
    m_text.m_data[0] = T();
}

template <class T>
CXTString<T>::CXTString(const CXTString& other)
    : m_text{nullptr, other.m_text.m_length, tev::FirstCapacityFor<T>(other.m_text.m_length)}
{
    m_text.m_data = tev::AllocateText<T>(m_text.m_capacity);
    // A copy of a fixed size takes no call.
    if (m_text.m_capacity == tev::kFirstCapacity && other.m_text.m_capacity >= tev::kFirstCapacity)
        std::memcpy(m_text.m_data, other.m_text.m_data, tev::kFirstCapacity * sizeof(T));
    else
        tev::CopyCharacters(m_text.m_data, other.m_text.m_data, m_text.m_length);
    m_text.m_data[m_text.m_length] = T();
}

template <class T>
CXTString<T>::CXTString(CXTString&& other) noexcept : m_text(other.m_text)
{
    other.m_text = {tev::EmptyText<T>(), 0, 0};
}

template <class T>
CXTString<T>::CXTString(const T* text) : m_text{tev::EmptyText<T>(), 0, 0}
{
    Assign(text, tev::TextLength(text));
}

template <class T>
CXTString<T>::CXTString(const T* text, int count) : m_text{tev::EmptyText<T>(), 0, 0}
{
    Assign(text, text == nullptr ? 0 : count < 0 ? tev::TextLength(text) : static_cast<std::size_t>(count));
}

template <class T>
CXTString<T>::CXTString(T character, int count) : m_text{tev::EmptyText<T>(), 0, 0}
{
    const auto length = static_cast<unsigned __int64>(std::max(count, 0));
    std::fill_n(SetLength(length), length, character);
}

template <class T>
CXTString<T>::CXTString(const OtherChar* text) : CXTString()
{
    *this = text;
}

template <class T>
CXTString<T>& CXTString<T>::operator=(const CXTString& other)
{
    return Assign(other.m_text.m_data, other.m_text.m_length);
}

template <class T>
CXTString<T>& CXTString<T>::operator=(CXTString&& other) noexcept
{
    CXTString taken(std::move(other));
    // A smaller buffer does not take the place of this one, because the capacity never shrinks.
    if (taken.m_text.m_capacity < m_text.m_capacity)
        return Assign(taken.m_text.m_data, taken.m_text.m_length);
    std::swap(m_text, taken.m_text);
    return *this;
}

template <class T>
CXTString<T>& CXTString<T>::operator=(std::nullptr_t)
{
    Empty();
    return *this;
}

template <class T>
CXTString<T>& CXTString<T>::operator=(const T* text)
{
    return Assign(text, tev::TextLength(text));
}

template <class T>
CXTString<T>& CXTString<T>::operator=(T character)
{
    return Assign(&character, 1);
}

template <class T>
CXTString<T>& CXTString<T>::operator=(const OtherChar* text)
{
    if (!tev::ConvertText(text, tev::TextLength(text), *this))
        Empty();
    return *this;
}

// Empty where the text cannot be converted.
template <class T>
CXTString<T> CXTString<T>::FromOtherWidth(const OtherChar* text, std::size_t length)
{
    CXTString result;
    if (!tev::ConvertText(text, length, result))
        result.Empty();
    return result;
}

template <class T>
CXTString<T>& CXTString<T>::operator=(const tev::AnsiBytes<T>* text)
{
    return *this = reinterpret_cast<const char*>(text);
}

template <class T>
CXTString<T>& CXTString<T>::operator+=(const T* text)
{
    return Append(text, tev::TextLength(text));
}

template <class T>
CXTString<T>& CXTString<T>::operator+=(const OtherChar* text)
{
    return *this += FromOtherWidth(text, tev::TextLength(text));
}

template <class T>
CXTString<T>& CXTString<T>::operator+=(const tev::AnsiBytes<T>* text)
{
    return *this += reinterpret_cast<const char*>(text);
}

template <class T>
void CXTString<T>::Copy(const T* text, int count)
{
    if (text == nullptr && count != 0)
    {
        tev::RefuseParameter("CXTString::Copy", EINVAL);
        return;
    }
    Assign(text, count < 0 ? tev::TextLength(text) : static_cast<std::size_t>(count));
}

template <class T>
CXTString<T>& CXTString<T>::Assign(const T* text, std::size_t count)
{
    if (Contains(text))
        return KeepRange(static_cast<std::size_t>(text - m_text.m_data), count);
    tev::CopyCharacters(SetLength(count), text, count);
    return *this;
}

template <class T>
CXTString<T>& CXTString<T>::Append(const T* text, std::size_t count)
{
    const unsigned __int64 length = m_text.m_length;
    const bool own = Contains(text);
    const std::size_t offset = own ? static_cast<std::size_t>(text - m_text.m_data) : 0;
    T* data = SetLength(length + count);
    tev::CopyCharacters(data + length, own ? data + offset : text, count);
    return *this;
}

template <class T>
int CXTString<T>::GetLength() const noexcept
{
    return static_cast<int>(std::min<unsigned __int64>(m_text.m_length, INT_MAX));
}

template <class T>
T CXTString<T>::GetAt(int position) const noexcept
{
    const T* character = GetAtPtr(position);
    return character == nullptr ? T() : *character;
}

template <class T>
const T* CXTString<T>::GetAtPtr(int position) const noexcept
{
    const bool inside = position >= 0 && static_cast<unsigned __int64>(position) < m_text.m_length;
    return inside ? m_text.m_data + position : nullptr;
}

template <class T>
T* CXTString<T>::GetAtPtr(int position) noexcept
{
    return const_cast<T*>(std::as_const(*this).GetAtPtr(position));
}

template <class T>
void CXTString<T>::SetAt(int position, T character)
{
    if (T* target = GetAtPtr(position))
        *target = character;
    else
        tev::RefuseParameter("CXTString::SetAt", ERANGE);
}

template <class T>
T* CXTString<T>::GetBufferSetLength(int length)
{
    if (length >= 0)
        return SetLength(static_cast<unsigned __int64>(length));
    tev::RefuseParameter("CXTString::GetBufferSetLength", ERANGE);
    return nullptr;
}

template <class T>
void CXTString<T>::ReleaseBuffer(int length)
{
    const unsigned __int64 most = m_text.m_capacity == 0 ? 0 : m_text.m_capacity - 1;
    if (length < 0)
        SetLength(
            std::min<unsigned __int64>(tev::FindCharacter(m_text.m_data, static_cast<std::size_t>(most), T()), most));
    else if (static_cast<unsigned __int64>(length) <= most)
        SetLength(static_cast<unsigned __int64>(length));
    else
        tev::RefuseParameter("CXTString::ReleaseBuffer", ERANGE);
}

template <class T>
T* CXTString<T>::DetachBuffer()
{
    if (m_text.m_capacity == 0)
        Empty();
    CXTString fresh;
    std::swap(m_text, fresh.m_text);
    return std::exchange(fresh.m_text, {tev::EmptyText<T>(), 0, 0}).m_data;
}

// Makes room for `length` characters and a terminator; the text stays.
template <class T>
T* CXTString<T>::Grow(unsigned __int64 length)
{
    const unsigned __int64 oldCapacity = m_text.m_capacity;
    const unsigned __int64 capacity = oldCapacity == 0 ? tev::FirstCapacityFor<T>(length) : tev::CapacityFor<T>(length);
    m_text.m_data =
        oldCapacity == 0 ? tev::AllocateText<T>(capacity) : tev::ReallocateText(m_text.m_data, oldCapacity, capacity);
    m_text.m_capacity = capacity;
    return m_text.m_data;
}

template <class T>
bool CXTString<T>::Contains(const T* pointer) const noexcept
{
    const std::less<const T*> before;
    return pointer != nullptr && !before(pointer, m_text.m_data) && before(pointer, m_text.m_data + m_text.m_capacity);
}

// Keeps `count` characters of the own text from `first` on.
template <class T>
CXTString<T>& CXTString<T>::KeepRange(unsigned __int64 first, unsigned __int64 count)
{
    if (first != 0)
        tev::CopyCharacters(m_text.m_data, m_text.m_data + first, count);
    SetLength(count);
    return *this;
}
