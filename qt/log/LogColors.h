#pragma once

#include "qt/log/LineMatcher.h"

#include <QColor>
#include <QTextLayout>

class QPalette;

/// Numbers are kept in the settings.
enum class RuleColor : int
{
    Information = 0, ///< the first three are those of the levels in the theme
    Warning = 1,
    Error = 2,
    Custom = 3
};

/// Lines that match are drawn in the colour.
struct ColorRule
{
    LinePattern m_pattern;
    RuleColor m_color = RuleColor::Information;
    QRgb m_custom = 0xFF808080;

    bool operator==(const ColorRule& other) const
    {
        return m_pattern == other.m_pattern && m_color == other.m_color && m_custom == other.m_custom;
    }
};

/// The colours of lines: the first rule that matches gives the colour; without one, the level of the prefix. The prefix
/// itself is dim, its thread in a colour of its own.
class LogColors
{
public:
    LogColors() : LogColors(DefaultRules()) {}
    explicit LogColors(std::vector<ColorRule> rules);

    static std::vector<ColorRule> DefaultRules();
    const std::vector<ColorRule>& GetRules() const noexcept { return m_rules; }

    /// The colour of a rule on the palette's background; a custom one as it is, where it can be read there.
    static QColor ColorOf(const ColorRule& rule, const QPalette& palette);
    /// The colour of a line; invalid for the usual one.
    QColor ColorOfLine(QStringView line, const QPalette& palette) const;
    QList<QTextLayout::FormatRange> FormatsOf(QStringView line, const QPalette& palette) const;
    static QColor MatchBackground(const QPalette& palette);

private:
    std::vector<ColorRule> m_rules;
    std::vector<LineMatcher> m_matchers;
};
