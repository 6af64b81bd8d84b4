#include "qt/log/LogView.h"

#include "qt/log/MatchScrollBar.h"
#include "qt/toolkit/QtText.h"

#include <QFontDatabase>
#include <QPainter>
#include <QTextLayout>

#include <algorithm>

namespace
{
constexpr std::uint64_t kScrollSteps = 1000 * 1000 * 1000; // scroll bars count with int
constexpr int kGutterGap = 6;

// One character for each: what has no picture of its own gets one.
QString DrawnText(const LogRow& row)
{
    QString text = row.m_text;
    for (QChar& c : text)
    {
        if (c < u' ' && c != u'\t')
            c = QChar(0x2400 + c.unicode());
        else if (c == QChar(0x7F))
            c = QChar(0x2421);
        else if (c == QChar::LineSeparator || c == QChar::ParagraphSeparator)
            c = QChar(0x2424);
    }
    return row.m_isCut ? text + u'\u2026' : text;
}
} // namespace

struct LogView::Drawing
{
    QTextLayout m_layout;
    QString m_text;
    std::uint64_t m_row = 0;
};

LogView::LogView(LogDocument& document, QWidget* parent)
    : QAbstractScrollArea(parent), m_document(document), m_scrollBar(new MatchScrollBar(Qt::Vertical))
{
    setVerticalScrollBar(m_scrollBar);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(XInLanguage(u"Lines of the log", u"Lignes du journal"));
    viewport()->setCursor(Qt::ArrowCursor);
}

LogView::~LogView() = default;

int LogView::RowHeight() const
{
    return std::max(1, fontMetrics().height());
}

int LogView::FoldWidth() const
{
    return fontMetrics().averageCharWidth() * 2;
}

int LogView::GutterWidth() const
{
    const std::uint64_t lines = std::max<std::uint64_t>(m_lineCount, 999);
    const int numbers = m_hasLineNumbers ? fontMetrics().horizontalAdvance(QString::number(lines)) + kGutterGap : 0;
    return numbers + FoldWidth();
}

std::uint64_t LogView::PageRows() const
{
    return static_cast<std::uint64_t>(std::max(1, viewport()->height() / RowHeight()));
}

std::uint64_t LogView::TopLimit() const
{
    const std::uint64_t shown = ShownCount();
    return shown - std::min(shown, PageRows());
}

void LogView::Refresh(const LogStatus& status)
{
    const bool isNew = status.m_generation != m_generation;
    if (isNew)
    {
        m_folds.Clear();
        m_generation = status.m_generation;
        m_top = m_current = m_anchor = 0;
        m_markedHits = ~std::uint64_t{};
        m_widest = 0;
    }
    bool isChanged = isNew || m_rowCount != status.m_rows.m_hits || m_fileSize != status.m_fileSize ||
                     m_lineCount != status.m_lines.m_lines;
    m_rowCount = status.m_rows.m_hits;
    m_lineCount = status.m_lines.m_lines;
    m_fileSize = status.m_fileSize;
    while (const std::optional<LogDocument::Fold> fold = m_document.TakeFold())
    {
        m_folds.Hide(fold->m_row + 1, fold->m_end);
        isChanged = true;
    }
    if (m_drawnSearch != m_document.GetSearch().GetPattern())
    {
        m_drawnSearch = m_document.GetSearch().GetPattern();
        ForgetDrawings();
        isChanged = true;
    }
    if (isChanged)
        UpdateRows();
    if (isNew || m_markedHits != status.m_matches.m_hits || m_markedRows != ShownCount())
    {
        m_markedHits = status.m_matches.m_hits;
        m_markedRows = ShownCount();
        UpdateMarks();
    }
    if (isNew)
        TellCurrent();
}

// After a change of the rows or of how many fit.
void LogView::UpdateRows()
{
    if (m_isFollowing && m_rowCount != 0)
    {
        m_anchor = m_anchor == m_current ? m_rowCount - 1 : m_anchor;
        m_current = m_rowCount - 1;
        m_top = TopLimit();
    }
    m_top = std::min(m_top, TopLimit());
    ReadVisibleRows();
    UpdateScrollBars();
    viewport()->update();
}

void LogView::UpdateMarks()
{
    m_scrollBar->SetMarks(m_rowCount == 0 ? std::vector<bool>()
                                          : m_document.FindMatchingParts(m_scrollBar->MarkCount(), m_folds));
}

void LogView::ReadVisibleRows()
{
    // One more than fits tells whether the last one can be folded.
    const std::uint64_t wanted = PageRows() + 3;
    m_rows.clear();
    for (std::uint64_t shown = m_top; m_rows.size() < wanted && shown < ShownCount(); shown = m_top + m_rows.size())
    {
        const std::uint64_t row = m_folds.ToRow(shown);
        const std::uint64_t count = std::min(wanted - m_rows.size(), m_folds.NextHidden(row) - row);
        const std::vector<LogRow> rows = m_document.ReadRows(row, static_cast<std::size_t>(count));
        if (rows.empty())
            break;
        m_rows.insert(m_rows.end(), rows.begin(), rows.end());
    }
    std::vector<std::unique_ptr<Drawing>> drawings(m_rows.size());
    std::size_t next = 0;
    for (std::unique_ptr<Drawing>& drawing : m_drawings)
    {
        while (drawing != nullptr && next < m_rows.size() && m_rows[next].m_row < drawing->m_row)
            ++next;
        if (drawing != nullptr && next < m_rows.size() && m_rows[next].m_row == drawing->m_row &&
            DrawnText(m_rows[next]) == drawing->m_text)
            drawings[next] = std::move(drawing);
    }
    m_drawings = std::move(drawings);
}

void LogView::UpdateScrollBars()
{
    m_isScrolling = true;
    const std::uint64_t limit = TopLimit();
    const std::uint64_t step = limit / kScrollSteps + 1;
    verticalScrollBar()->setRange(0, static_cast<int>(limit / step));
    verticalScrollBar()->setPageStep(static_cast<int>(std::max<std::uint64_t>(1, PageRows() / step)));
    verticalScrollBar()->setValue(static_cast<int>(m_top / step));
    const int width = viewport()->width() - GutterWidth();
    horizontalScrollBar()->setRange(0, std::max(0, m_widest - width));
    horizontalScrollBar()->setPageStep(std::max(1, width));
    horizontalScrollBar()->setSingleStep(fontMetrics().averageCharWidth() * 4);
    m_isScrolling = false;
}

void LogView::SetTop(std::uint64_t top)
{
    top = std::min(top, TopLimit());
    if (top == m_top)
        return;
    m_top = top;
    ReadVisibleRows();
    UpdateScrollBars();
    viewport()->update();
}

void LogView::scrollContentsBy(int, int dy)
{
    viewport()->update();
    if (m_isScrolling || dy == 0)
        return;
    const std::uint64_t step = TopLimit() / kScrollSteps + 1;
    SetTop(static_cast<std::uint64_t>(verticalScrollBar()->value()) * step);
    if (m_top < TopLimit())
        StopFollowing();
}

void LogView::SetColors(LogColors colors)
{
    m_colors = std::move(colors);
    ForgetDrawings();
    viewport()->update();
}

void LogView::SetLineNumbersVisible(bool visible)
{
    m_hasLineNumbers = visible;
    UpdateRows();
}

void LogView::SetFollowing(bool following)
{
    if (following == m_isFollowing)
        return;
    m_isFollowing = following;
    if (following)
    {
        m_anchor = m_current;
        UpdateRows();
        TellCurrent();
    }
    Q_EMIT FollowingChanged(following);
}

void LogView::StopFollowing()
{
    SetFollowing(false);
}

void LogView::ForgetDrawings()
{
    m_drawings.clear();
}

std::unique_ptr<LogView::Drawing> LogView::Draw(const LogRow& row) const
{
    auto drawing = std::make_unique<Drawing>();
    drawing->m_row = row.m_row;
    drawing->m_text = DrawnText(row);
    QTextOption option;
    option.setWrapMode(QTextOption::NoWrap);
    option.setTabStopDistance(fontMetrics().averageCharWidth() * kTabColumns);
    QList<QTextLayout::FormatRange> formats = m_colors.FormatsOf(row.m_text, palette());
    for (const auto& [start, size] : m_document.GetSearch().FindRanges(row.m_text))
    {
        QTextLayout::FormatRange range;
        range.start = static_cast<int>(start);
        range.length = static_cast<int>(size);
        range.format.setBackground(LogColors::MatchBackground(palette()));
        formats.push_back(range);
    }
    QTextLayout& layout = drawing->m_layout;
    layout.setText(drawing->m_text);
    layout.setFont(font());
    layout.setTextOption(option);
    layout.setFormats(formats);
    layout.setCacheEnabled(true);
    layout.beginLayout();
    QTextLine line = layout.createLine();
    if (line.isValid())
        line.setPosition(QPointF(0, 0));
    layout.endLayout();
    return drawing;
}

void LogView::paintEvent(QPaintEvent*)
{
    QPainter painter(viewport());
    painter.fillRect(viewport()->rect(), palette().brush(QPalette::Base));
    int widest = m_widest;
    m_drawings.resize(m_rows.size());
    for (std::size_t i = 0; i < m_rows.size(); ++i)
    {
        const int y = static_cast<int>(i) * RowHeight();
        if (y >= viewport()->height())
            break;
        if (m_drawings[i] == nullptr)
            m_drawings[i] = Draw(m_rows[i]);
        if (m_drawings[i]->m_layout.lineCount() != 0)
            widest =
                std::max(widest, static_cast<int>(m_drawings[i]->m_layout.lineAt(0).naturalTextWidth()) + kGutterGap);
        PaintRow(painter, i, y);
    }
    if (widest != m_widest)
    {
        m_widest = widest;
        UpdateScrollBars();
    }
}

bool LogView::IsSelected(std::uint64_t row) const
{
    return row >= std::min(m_anchor, m_current) && row <= std::max(m_anchor, m_current);
}

void LogView::PaintRow(QPainter& painter, std::size_t index, int y) const
{
    const QRect area(GutterWidth(), y, viewport()->width() - GutterWidth(), RowHeight());
    const bool isSelected = IsSelected(m_rows[index].m_row);
    const auto group = hasFocus() ? QPalette::Active : QPalette::Inactive;
    QList<QTextLayout::FormatRange> selections;
    if (isSelected)
    {
        painter.fillRect(area, palette().brush(group, QPalette::Highlight));
        QTextLayout::FormatRange all;
        all.length = static_cast<int>(m_drawings[index]->m_text.size());
        all.format.setForeground(palette().brush(group, QPalette::HighlightedText));
        // What is found keeps its background, so it needs the usual text.
        if (m_document.GetSearch().FindRanges(m_rows[index].m_text).empty())
            selections.push_back(all);
    }
    painter.save();
    painter.setClipRect(area);
    painter.setPen(palette().color(isSelected ? QPalette::HighlightedText : QPalette::Text));
    const int x = area.left() - horizontalScrollBar()->value();
    m_drawings[index]->m_layout.draw(&painter, QPointF(x, y), selections);
    painter.restore();
    PaintGutter(painter, index, y);
}

void LogView::PaintGutter(QPainter& painter, std::size_t index, int y) const
{
    const QColor dim = palette().color(QPalette::PlaceholderText);
    painter.fillRect(0, y, GutterWidth(), RowHeight(), palette().brush(QPalette::AlternateBase));
    painter.setPen(m_rows[index].m_row == m_current ? palette().color(QPalette::Text) : dim);
    const QRect numbers(0, y, GutterWidth() - FoldWidth(), RowHeight());
    if (m_hasLineNumbers)
        painter.drawText(numbers, Qt::AlignRight | Qt::AlignVCenter, QString::number(m_rows[index].m_line + 1));
    if (!IsFoldable(index))
        return;
    const QPointF center(GutterWidth() - FoldWidth() / 2.0, y + RowHeight() / 2.0);
    const double size = FoldWidth() / 4.0;
    QPolygonF triangle;
    if (m_folds.HidesBehind(m_rows[index].m_row))
        triangle << QPointF(-size, -size) << QPointF(size, 0) << QPointF(-size, size);
    else
        triangle << QPointF(-size, -size) << QPointF(size, -size) << QPointF(0, size);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(dim);
    painter.drawPolygon(triangle.translated(center));
}

bool LogView::IsFoldable(std::size_t index) const
{
    if (m_folds.HidesBehind(m_rows[index].m_row))
        return true;
    const int indentation = IndentationOf(m_rows[index].m_text);
    for (std::size_t next = index + 1; next < m_rows.size(); ++next)
    {
        const int behind = IndentationOf(m_rows[next].m_text);
        if (behind != kNoIndentation)
            return behind > indentation;
    }
    return false;
}
