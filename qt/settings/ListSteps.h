#pragma once

#include "qt/settings/SettingsSource.h"

#include <QDeadlineTimer>

namespace tev::browser
{
struct RowRange
{
    int m_first;
    int m_last;
};

/// What makes one list of rows another one, for views that keep what is chosen and where they are scrolled to.
struct ListSteps
{
    std::vector<RowRange> m_removed;  ///< of the old list, from its end on
    std::vector<RowRange> m_inserted; ///< of the new list, from its start on
};
/// Rows of one identifier stay, unless their order changes.
ListSteps StepsBetween(const std::vector<std::wstring>& before, const std::vector<Item>& after);

/// A list that is being read, in slices, so that the window stays fluid.
class ListLoad
{
public:
    explicit ListLoad(std::unique_ptr<Lister> lister) : m_lister(std::move(lister)) {}

    /// True when the list is complete. One that is not ready is not waited for.
    bool Run(const QDeadlineTimer& slice);
    /// As far as somebody waits for it; a long list is not waited for.
    bool RunShort();
    bool IsReady() const { return m_lister->IsReady(); }
    bool IsGivenUp() const { return m_lister->IsGivenUp(); }
    std::vector<Item> Take() { return std::exchange(m_items, {}); }
    const QString& Fault() const { return m_lister->Fault(); }

private:
    std::unique_ptr<Lister> m_lister;
    std::vector<Item> m_items;
};

constexpr int kSliceMilliseconds = 12;
constexpr int kWaitMilliseconds = 20; ///< between looks at lists that are not ready
} // namespace tev::browser
