#pragma once

#include <cstddef>
#include <memory> // the tag of iterators; <iterator> brings the streams too

namespace tev
{
/// Walks what an array holds, by value. ARRAY says what stands at an index (`ValueAt`) and which index is the next
/// (`IndexAfter`).
template <class ARRAY, class VALUE>
class IndexIterator
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = VALUE;
    using difference_type = std::ptrdiff_t;
    using pointer = const VALUE*;
    using reference = VALUE;

    IndexIterator() noexcept = default;

    VALUE operator*() const noexcept { return m_array->ValueAt(m_index); }
    IndexIterator& operator++() noexcept
    {
        m_index = m_array->IndexAfter(m_index);
        return *this;
    }
    IndexIterator operator++(int) noexcept
    {
        const IndexIterator before(*this);
        ++*this;
        return before;
    }
    friend bool operator==(IndexIterator a, IndexIterator b) noexcept { return a.m_index == b.m_index; }
    friend bool operator!=(IndexIterator a, IndexIterator b) noexcept { return !(a == b); }

private:
    friend ARRAY;
    IndexIterator(const ARRAY& array, unsigned int index) noexcept : m_array(&array), m_index(index) {}

    const ARRAY* m_array = nullptr;
    unsigned int m_index = 0;
};
} // namespace tev
