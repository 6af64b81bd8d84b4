#pragma once

#include "qt/settings/SettingsWindow.h"

namespace tev::browser
{
/// A source and what shows it.
struct SettingsWindow::Shown
{
    explicit Shown(std::unique_ptr<SettingsSource> source)
        : m_source(std::move(source)),
          m_nodes(*m_source),
          m_values(*m_source),
          m_history(*m_source),
          m_finder(*m_source)
    {
    }

    std::unique_ptr<SettingsSource> m_source;
    NodeModel m_nodes;
    ValueModel m_values;
    EditHistory m_history;
    Finder m_finder;
};
} // namespace tev::browser
