#include "qt/log/LineMatcher.h"

#include "qt/toolkit/QtText.h"
#include "services/FileWildcards.h"

#include <algorithm>
#include <limits>

namespace
{
constexpr qsizetype kLongestPrefix = 64;

bool IsDigits(QStringView text)
{
    return !text.isEmpty() && std::all_of(text.begin(), text.end(), [](QChar c) { return c >= u'0' && c <= u'9'; });
}

bool IsTimeOfPrefix(QStringView text)
{
    constexpr QStringView kForm = u"0000-00-00T00:00:00.000Z";
    if (text.size() != kForm.size())
        return false;
    for (qsizetype i = 0; i < text.size(); ++i)
    {
        if (kForm[i] == u'0' ? !IsDigits(text.mid(i, 1)) : text[i] != kForm[i])
            return false;
    }
    return true;
}

bool IsLevelOfPrefix(QStringView text)
{
    return text.startsWith(u'L') && (text == u"L-" || IsDigits(text.mid(1)));
}

bool HoldsTerm(const LinePrefix& prefix, QStringView term)
{
    if (term.compare(u"L-", Qt::CaseInsensitive) == 0)
        return prefix.m_level == u"L-";
    if (term.startsWith(u'L', Qt::CaseInsensitive) && IsDigits(term.mid(1)))
        return IsDigits(prefix.m_level.mid(1)) && prefix.m_level.mid(1).toUInt() <= term.mid(1).toUInt();
    if (IsDigits(term) && prefix.m_thread == term)
        return true;
    return prefix.m_time.startsWith(term, Qt::CaseInsensitive);
}
} // namespace

LinePrefix FindPrefix(QStringView line)
{
    LinePrefix prefix;
    if (!line.startsWith(u'['))
        return prefix;
    const qsizetype end = line.left(kLongestPrefix).indexOf(QStringView(u"] "));
    if (end < 2)
        return prefix;
    QStringView* const parts[] = {&prefix.m_time, &prefix.m_thread, &prefix.m_level};
    bool (*const checks[])(QStringView) = {IsTimeOfPrefix, IsDigits, IsLevelOfPrefix};
    std::size_t next = 0;
    for (qsizetype start = 1; start <= end;)
    {
        const qsizetype blank = line.left(end).indexOf(u' ', start);
        const QStringView part = line.mid(start, (blank < 0 ? end : blank) - start);
        while (next < std::size(checks) && !checks[next](part))
            ++next;
        if (next == std::size(checks))
            return LinePrefix();
        *parts[next++] = part;
        start += part.size() + 1;
    }
    prefix.m_size = end + 2;
    return prefix;
}

int IndentationOf(QStringView line)
{
    int columns = 0;
    for (const QChar c : line.mid(FindPrefix(line).m_size))
    {
        if (c == u'\t')
            columns += kTabColumns - columns % kTabColumns;
        else if (c == u' ')
            ++columns;
        else
            return columns;
    }
    return kNoIndentation;
}

LineMatcher::LineMatcher(LinePattern pattern, int columns)
    : m_pattern(std::move(pattern)),
      m_columns(columns),
      m_case(m_pattern.m_isCaseSensitive ? Qt::CaseSensitive : Qt::CaseInsensitive)
{
    if (m_pattern.m_kind == PatternKind::Text || m_pattern.m_kind == PatternKind::Start)
        m_literal = m_pattern.m_text;
    if (m_pattern.m_kind == PatternKind::Prefix)
        m_terms = m_pattern.m_text.split(u' ', Qt::SkipEmptyParts);
    if (m_pattern.m_kind != PatternKind::Wildcard)
        return;
    m_wildcard = u'*' + (m_pattern.m_isCaseSensitive ? m_pattern.m_text : m_pattern.m_text.toLower()) + u'*';
    for (const QString& stars : m_pattern.m_text.split(u'*'))
    {
        for (const QString& piece : stars.split(u'?'))
            m_literal = piece.size() > m_literal.size() ? piece : m_literal;
    }
}

bool LineMatcher::Matches(QStringView line) const
{
    return (m_pattern.m_text.isEmpty() || MatchesPattern(line)) && (m_columns == 0 || IndentationOf(line) < m_columns);
}

bool LineMatcher::MatchesPattern(QStringView line) const
{
    switch (m_pattern.m_kind)
    {
    case PatternKind::Wildcard:
        return MatchesWildcard(line);
    case PatternKind::Start:
        return MatchesStart(line);
    case PatternKind::Prefix:
        return MatchesPrefix(line);
    case PatternKind::Text:
        break;
    }
    return line.contains(m_pattern.m_text, m_case);
}

bool LineMatcher::MatchesInside(QStringView piece) const
{
    return m_columns == 0 && m_pattern.m_kind == PatternKind::Text && MatchesPattern(piece);
}

qsizetype LineMatcher::SeenCharacters() const noexcept
{
    const bool isOfPrefix = m_pattern.m_kind == PatternKind::Prefix && m_columns == 0;
    return isOfPrefix ? kLongestPrefix : std::numeric_limits<int>::max();
}

bool LineMatcher::MayMatchIn(QStringView text) const
{
    return m_literal.isEmpty() || text.contains(m_literal, m_case);
}

bool LineMatcher::MatchesWildcard(QStringView line) const
{
    if (!MayMatchIn(line))
        return false;
    const QString text = m_pattern.m_isCaseSensitive ? line.toString() : line.toString().toLower();
    return fileMatchWilcards(XFromQString(text), XFromQString(m_wildcard), true);
}

bool LineMatcher::MatchesStart(QStringView line) const
{
    const QStringView message = line.mid(FindPrefix(line).m_size);
    const auto* const text =
        std::find_if(message.begin(), message.end(), [](QChar c) { return c != u'\t' && c != u' '; });
    return line.startsWith(m_pattern.m_text, m_case) || message.startsWith(m_pattern.m_text, m_case) ||
           message.mid(text - message.begin()).startsWith(m_pattern.m_text, m_case);
}

bool LineMatcher::MatchesPrefix(QStringView line) const
{
    const LinePrefix prefix = FindPrefix(line);
    if (prefix.m_size == 0)
        return false;
    return std::all_of(m_terms.begin(), m_terms.end(), [&](const QString& term) { return HoldsTerm(prefix, term); });
}

LineMatcher::Ranges LineMatcher::FindRanges(QStringView line) const
{
    Ranges ranges;
    if (m_pattern.m_text.isEmpty() || !Matches(line))
        return ranges;
    if (m_pattern.m_kind != PatternKind::Text)
        return {{0, line.size()}};
    const qsizetype size = m_pattern.m_text.size();
    for (qsizetype at = 0; (at = line.indexOf(m_pattern.m_text, at, m_case)) >= 0; at += size)
        ranges.emplace_back(at, size);
    return ranges;
}
