#include "qt/settings/ListSteps.h"

#include <algorithm>
#include <unordered_map>

namespace tev::browser
{
namespace
{
void AddBehind(std::vector<RowRange>& ranges, int row)
{
    if (!ranges.empty() && ranges.back().m_last + 1 == row)
        ranges.back().m_last = row;
    else
        ranges.push_back({row, row});
}
} // namespace

ListSteps StepsBetween(const std::vector<std::wstring>& before, const std::vector<Item>& after)
{
    std::unordered_map<std::wstring, int> places;
    for (std::size_t row = 0; row < after.size(); ++row)
        places.emplace(after[row].m_id, static_cast<int>(row));
    ListSteps steps;
    std::vector<char> isKept(after.size());
    int lastPlace = -1;
    bool isOrdered = true;
    for (std::size_t row = 0; row < before.size(); ++row)
    {
        const auto found = places.find(before[row]);
        if (found == places.end())
        {
            AddBehind(steps.m_removed, static_cast<int>(row));
            continue;
        }
        isOrdered = isOrdered && found->second > lastPlace;
        lastPlace = found->second;
        isKept[static_cast<std::size_t>(lastPlace)] = 1;
    }
    if (!isOrdered)
    {
        steps.m_removed = {{0, static_cast<int>(before.size()) - 1}};
        isKept.assign(after.size(), 0);
    }
    for (std::size_t row = 0; row < after.size(); ++row)
    {
        if (isKept[row] == 0)
            AddBehind(steps.m_inserted, static_cast<int>(row));
    }
    std::reverse(steps.m_removed.begin(), steps.m_removed.end());
    return steps;
}

bool ListLoad::Run(const QDeadlineTimer& slice)
{
    Item item;
    while (m_lister->IsReady() && !slice.hasExpired())
    {
        if (!m_lister->Next(item))
            return true;
        m_items.push_back(item);
    }
    return false;
}

bool ListLoad::RunShort()
{
    constexpr std::size_t kLongList = 10000;
    Item item;
    while (m_lister->IsReady() && m_items.size() < kLongList)
    {
        if (!m_lister->Next(item))
            return true;
        m_items.push_back(item);
    }
    return false;
}
} // namespace tev::browser
