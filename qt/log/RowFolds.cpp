#include "qt/log/RowFolds.h"

#include <algorithm>
#include <iterator>
#include <limits>

void RowFolds::Hide(std::uint64_t first, std::uint64_t end)
{
    if (first >= end)
        return;
    const auto inside = m_hidden.upper_bound(first);
    if (inside != m_hidden.begin() && std::prev(inside)->second > first && std::prev(inside)->first != first)
        return; // hidden already
    auto last = inside;
    for (; last != m_hidden.end() && last->first < end; ++last)
        end = std::max(end, last->second);
    m_hidden.erase(inside, last);
    m_hidden[first] = end;
}

void RowFolds::Reveal(std::uint64_t row)
{
    const auto next = m_hidden.upper_bound(row);
    if (next != m_hidden.begin() && std::prev(next)->second > row)
        m_hidden.erase(std::prev(next));
}

std::uint64_t RowFolds::ToShown(std::uint64_t row) const
{
    std::uint64_t hidden = 0;
    for (const auto& [first, end] : m_hidden)
    {
        if (first > row)
            break;
        if (end > row)
            return first - hidden - 1;
        hidden += end - first;
    }
    return row - hidden;
}

std::uint64_t RowFolds::ToRow(std::uint64_t shown) const
{
    for (const auto& [first, end] : m_hidden)
    {
        if (first > shown)
            break;
        shown += end - first;
    }
    return shown;
}

std::uint64_t RowFolds::NextHidden(std::uint64_t row) const
{
    const auto next = m_hidden.upper_bound(row);
    return next == m_hidden.end() ? std::numeric_limits<std::uint64_t>::max() : next->first;
}

std::uint64_t RowFolds::CountShown(std::uint64_t rows) const
{
    std::uint64_t hidden = 0;
    for (const auto& [first, end] : m_hidden)
        hidden += std::min(end, std::max(rows, first)) - first;
    return rows - hidden;
}
