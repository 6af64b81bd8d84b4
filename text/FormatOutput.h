#pragma once

// The output buffer of formatting.

#include "text/FormatSyntax.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace tev
{
/// Text under construction: on the stack while it is short, then in a heap block that doubles. At most 2^31 - 1
/// characters.
template <class T>
class FormatOutput
{
public:
    FormatOutput() noexcept = default;
    FormatOutput(const FormatOutput&) = delete;
    FormatOutput& operator=(const FormatOutput&) = delete;
    ~FormatOutput()
    {
        if (m_data != m_first)
            std::free(m_data);
    }

    const T* Data() const noexcept { return m_data; }
    T* Data() noexcept { return m_data; }
    std::size_t Length() const noexcept { return m_length; }

    /// Hands out the text as a block of the C heap that has room for `capacity` characters, which is more than the length;
    /// the text is empty then. Null where the text is still on the stack.
    T* Release(std::size_t capacity)
    {
        if (m_data == m_first)
            return nullptr;
        // What is left over is no more than a string that grows has behind its text.
        const bool isFit = m_capacity >= capacity && m_capacity / 2 <= capacity;
        if (!isFit)
            Reallocate(capacity);
        m_length = 0;
        m_capacity = kFirstCapacity;
        return std::exchange(m_data, m_first);
    }

    /// Adds unspecified characters at the end and returns their address; null when the text would become too long.
    T* Extend(std::size_t count)
    {
        if (count > m_capacity - m_length && !Grow(count))
            return nullptr;
        T* added = m_data + m_length;
        m_length += count;
        return added;
    }

private:
    static constexpr std::size_t kMaximumLength = INT_MAX;
    static constexpr std::size_t kFirstCapacity = 512;
    static constexpr std::size_t kShort = 16384;

    bool Grow(std::size_t count)
    {
        if (count > kMaximumLength - m_length)
            return false;
        // As much as a string of this length has, so that it can become that string's block; a text that leaves the stack
        // gets the room for another one as long, because a format with one long text often has two.
        const std::size_t length = m_length + count;
        const std::size_t room = (m_data == m_first && length <= kShort ? 4 : 2) * length + kFirstCapacity;
        Reallocate(std::min(room, kMaximumLength)); // what fits is not asked for its length
        return true;
    }

    void Reallocate(std::size_t capacity)
    {
        const bool onStack = m_data == m_first;
        T* data = static_cast<T*>(std::realloc(onStack ? nullptr : m_data, capacity * sizeof(T)));
        if (data == nullptr)
            throw std::bad_alloc();
        if (onStack)
            std::copy_n(m_first, std::min(m_length, kFirstCapacity), data);
        m_data = data;
        m_capacity = capacity;
    }

    T* m_data = m_first;
    std::size_t m_length = 0;
    std::size_t m_capacity = kFirstCapacity;
    T m_first[kFirstCapacity];
};

template <class T>
bool AppendFill(FormatOutput<T>& output, T character, std::size_t count)
{
    T* added = output.Extend(count);
    if (added == nullptr)
        return false;
    std::fill_n(added, count, character);
    return true;
}

template <class T, class Source>
bool Append(FormatOutput<T>& output, const Source* text, std::size_t length)
{
    T* added = output.Extend(length);
    if (added == nullptr)
        return false;
    std::copy_n(text, length, added);
    return true;
}

/// Pads what was written from `start` on to the field's width.
template <class T>
bool Pad(FormatOutput<T>& output, std::size_t start, const FormatSpec& spec)
{
    const std::size_t length = output.Length() - start;
    const auto width = static_cast<std::size_t>(spec.width);
    if (length >= width)
        return true;
    if (!AppendFill(output, T(' '), width - length))
        return false;
    if (!spec.left)
    {
        T* field = output.Data() + start;
        std::memmove(field + (width - length), field, length * sizeof(T));
        std::fill_n(field, width - length, T(' '));
    }
    return true;
}
} // namespace tev
