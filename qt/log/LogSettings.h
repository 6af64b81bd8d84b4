#pragma once

#include "qt/log/LogColors.h"
#include "qt/toolkit/Theme.h"
#include "text/CXTString.h"

#include <vector>

/// What the viewer keeps from one run to the next, in a preference file. A value.
struct LogSettings
{
    static constexpr std::size_t kRecentFiles = 10;

    std::vector<ColorRule> m_rules = LogColors::DefaultRules();
    tev::ColorTheme m_theme = tev::ColorTheme::System;
    bool m_isFollowing = false;
    bool m_hasLineNumbers = true;
    int m_fontSize = 0;                       ///< points; 0 is that of the system
    std::vector<CXTString<wchar_t>> m_recent; ///< the latest first
    QByteArray m_geometry;

    void AddRecent(const CXTString<wchar_t>& path);

    /// The file of this user. Throws where its folder cannot be made.
    static CXTString<wchar_t> GetPath();
    /// What the file holds; the defaults for what it does not.
    static LogSettings Load(const CXTString<wchar_t>& path);
    /// Writes what is not as it was before: the rest belongs to other windows, and so do files that they opened meanwhile.
    /// False where the file cannot be written.
    [[nodiscard]] bool Save(const CXTString<wchar_t>& path, const LogSettings& before) const;
};
