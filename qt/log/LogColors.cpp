#include "qt/log/LogColors.h"

#include "qt/toolkit/Theme.h"
#include "ui/CLogInfo.h"

#include <QPalette>

namespace
{
constexpr unsigned kRuleLevels[] = {IoLogInfo::kInformation, IoLogInfo::kWarning, IoLogInfo::kError};
constexpr int kReadable = 90; // of 255, the difference of lightness from the background

QColor ReadableOn(QColor color, bool isDark)
{
    const int lightness = color.lightness();
    if (isDark ? lightness < 30 + kReadable : lightness > 255 - kReadable)
        color.setHsl(color.hslHue(), color.hslSaturation(), isDark ? 30 + kReadable * 2 : 255 - kReadable);
    return color;
}
} // namespace

LogColors::LogColors(std::vector<ColorRule> rules) : m_rules(std::move(rules))
{
    for (const ColorRule& rule : m_rules)
        m_matchers.emplace_back(rule.m_pattern);
}

std::vector<ColorRule> LogColors::DefaultRules()
{
    std::vector<ColorRule> rules;
    for (const char16_t* const word : {u"error", u"erreur"})
        rules.push_back({{PatternKind::Text, QString::fromUtf16(word), false}, RuleColor::Error});
    for (const char16_t* const word : {u"warning", u"avertissement"})
        rules.push_back({{PatternKind::Text, QString::fromUtf16(word), false}, RuleColor::Warning});
    return rules;
}

QColor LogColors::ColorOf(const ColorRule& rule, const QPalette& palette)
{
    const bool isDark = tev::IsDark(palette);
    const auto index = static_cast<std::size_t>(rule.m_color);
    return index < std::size(kRuleLevels) ? tev::LevelColor(kRuleLevels[index], isDark)
                                          : ReadableOn(QColor::fromRgb(rule.m_custom), isDark);
}

QColor LogColors::ColorOfLine(QStringView line, const QPalette& palette) const
{
    for (std::size_t i = 0; i < m_rules.size(); ++i)
    {
        if (!m_matchers[i].MatchesAll() && m_matchers[i].Matches(line))
            return ColorOf(m_rules[i], palette);
    }
    bool isNumber = false;
    const unsigned level = FindPrefix(line).m_level.mid(1).toUInt(&isNumber);
    constexpr RuleColor kLevels[] = {RuleColor::Error, RuleColor::Warning, RuleColor::Information};
    return isNumber && level < std::size(kLevels) ? ColorOf({{}, kLevels[level]}, palette) : QColor();
}

QList<QTextLayout::FormatRange> LogColors::FormatsOf(QStringView line, const QPalette& palette) const
{
    QList<QTextLayout::FormatRange> formats;
    const auto add = [&](qsizetype start, qsizetype size, const QColor& color) {
        QTextLayout::FormatRange range;
        range.start = static_cast<int>(start);
        range.length = static_cast<int>(size);
        range.format.setForeground(color);
        formats.push_back(range);
    };
    const QColor color = ColorOfLine(line, palette);
    if (color.isValid())
        add(0, line.size(), color);
    const LinePrefix prefix = FindPrefix(line);
    if (prefix.m_size != 0)
        add(0, prefix.m_size, palette.color(QPalette::PlaceholderText));
    if (!prefix.m_thread.isEmpty())
    {
        // Neighbouring identifiers are far from each other.
        const int hue = static_cast<int>(prefix.m_thread.toULongLong() * 137 % 360);
        add(prefix.m_thread.data() - line.data(), prefix.m_thread.size(),
            QColor::fromHsl(hue, 150, tev::IsDark(palette) ? 170 : 90));
    }
    return formats;
}

QColor LogColors::MatchBackground(const QPalette& palette)
{
    return QColor::fromRgb(tev::IsDark(palette) ? 0xFF6B5900 : 0xFFFFE27A);
}
