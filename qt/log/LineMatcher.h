#pragma once

#include <QString>
#include <QStringList>
#include <QStringView>

#include <utility>
#include <vector>

/// What the library's log puts before a line (SetLogPrefix): "[2026-11-22T13:45:10.123Z 4711 L2] ". Parts that are not there
/// are empty.
struct LinePrefix
{
    qsizetype m_size = 0; ///< with the blank behind it; 0 for a line without
    QStringView m_time;
    QStringView m_thread;
    QStringView m_level; ///< "L2"
};
LinePrefix FindPrefix(QStringView line);

constexpr int kTabColumns = 4;
constexpr int kNoIndentation = 1 << 20; ///< of an empty line, which belongs to what is above it
/// The columns by which a line is indented behind its prefix.
int IndentationOf(QStringView line);

/// Numbers are kept in the settings.
enum class PatternKind : int
{
    Text = 0,     ///< anywhere in the line
    Wildcard = 1, ///< '*' and '?', anywhere in the line
    Start = 2,    ///< the line begins with it, with or without prefix and indentation
    Prefix =
        3 ///< terms for the prefix, all of which must hold: a level and what is more important ("L2"), a thread ("4711"), the start of a time
};

/// A pattern for single lines. An empty text matches every line.
struct LinePattern
{
    PatternKind m_kind = PatternKind::Text;
    QString m_text;
    bool m_isCaseSensitive = false;

    bool operator==(const LinePattern& other) const
    {
        return m_kind == other.m_kind && m_text == other.m_text && m_isCaseSensitive == other.m_isCaseSensitive;
    }
    bool operator!=(const LinePattern& other) const { return !(*this == other); }
};

/// Tells which lines match. Immutable.
class LineMatcher
{
public:
    using Ranges = std::vector<std::pair<qsizetype, qsizetype>>; ///< start and length

    /// Matches every line.
    LineMatcher() = default;
    /// A line must also be indented by fewer columns than `columns`, where that is not 0.
    explicit LineMatcher(LinePattern pattern, int columns = 0);

    bool MatchesAll() const noexcept { return m_pattern.m_text.isEmpty() && m_columns == 0; }
    bool Matches(QStringView line) const;
    /// Whether a later piece of a long line may match that does not show the line's start.
    bool MatchesInside(QStringView piece) const;
    /// False where no line within the text matches; a quick test.
    bool MayMatchIn(QStringView text) const;
    /// What every matching line holds, in the case of the pattern; empty where nothing is known.
    const QString& GetLiteral() const noexcept { return m_literal; }
    /// Whether every line that holds it matches.
    bool IsLiteral() const noexcept { return m_pattern.m_kind == PatternKind::Text && m_columns == 0; }
    /// How many characters of a line are looked at.
    qsizetype SeenCharacters() const noexcept;
    /// The parts of a matching line that matched.
    Ranges FindRanges(QStringView line) const;
    const LinePattern& GetPattern() const noexcept { return m_pattern; }

private:
    bool MatchesPattern(QStringView line) const;
    bool MatchesWildcard(QStringView line) const;
    bool MatchesStart(QStringView line) const;
    bool MatchesPrefix(QStringView line) const;

    LinePattern m_pattern;
    int m_columns = 0;
    Qt::CaseSensitivity m_case = Qt::CaseInsensitive;
    QString m_wildcard; // around which anything may stand; in lower case where that does not matter
    QString m_literal;
    QStringList m_terms; // for the prefix
};
