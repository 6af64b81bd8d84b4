// Keyboard and mouse of the view.

#include "qt/log/LogView.h"
#include "qt/log/MatchScrollBar.h"
#include "qt/toolkit/QtText.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QMenu>
#include <QProgressDialog>

#include <algorithm>

namespace
{
constexpr std::uint64_t kCopiedBytes = 16 * 1024 * 1024;
constexpr std::uint64_t kCopiedRows = 500; // at once
constexpr int kCopySteps = 1000;
constexpr int kCopyPatience = 500; // milliseconds before a window shows how far it is
constexpr int kDragInterval = 50;  // milliseconds
} // namespace

void LogView::GoToRow(std::uint64_t row, bool extendsSelection)
{
    if (m_rowCount == 0)
        return;
    m_current = std::min(row, m_rowCount - 1);
    if (!extendsSelection)
        m_anchor = m_current;
    m_folds.Reveal(m_current);
    const std::uint64_t shown = m_folds.ToShown(m_current);
    const std::uint64_t page = PageRows();
    if (shown < m_top)
        m_top = shown;
    else if (shown >= m_top + page)
        m_top = shown - page + 1;
    if (m_current + 1 < m_rowCount)
        StopFollowing();
    m_top = std::min(m_top, TopLimit());
    UpdateRows();
    TellCurrent();
}

void LogView::TellCurrent()
{
    const auto row =
        std::find_if(m_rows.begin(), m_rows.end(), [this](const LogRow& r) { return r.m_row == m_current; });
    setAccessibleDescription(row != m_rows.end() ? row->m_text : QString());
    Q_EMIT CurrentChanged();
}

std::uint64_t LogView::CurrentLine() const
{
    const std::vector<LogRow> rows = m_document.ReadRows(m_current, 1);
    return rows.empty() ? 0 : rows[0].m_line;
}

void LogView::MoveTo(std::uint64_t shown, bool extendsSelection)
{
    if (m_rowCount != 0)
        GoToRow(m_folds.ToRow(std::min(shown, ShownCount() - 1)), extendsSelection);
}

void LogView::MoveBy(qint64 rows, bool extendsSelection)
{
    const std::uint64_t shown = m_folds.ToShown(m_current);
    const auto size = static_cast<std::uint64_t>(rows < 0 ? -rows : rows);
    MoveTo(rows < 0 ? shown - std::min(shown, size) : shown + size, extendsSelection);
}

void LogView::Copy()
{
    if (m_rowCount == 0)
        return;
    // Rows of a filter may be far apart.
    const std::uint64_t last = std::max(m_anchor, m_current);
    const std::uint64_t first = std::min(m_anchor, m_current);
    const unsigned generation = m_generation;
    QProgressDialog progress(XInLanguage(u"Copying lines\u2026", u"Copie des lignes\u2026"),
                             XInLanguage(u"Cancel", u"Annuler"), 0, kCopySteps, this);
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(kCopyPatience);
    std::uint64_t limit = kCopiedBytes;
    bool isCut = false;
    QString text;
    for (std::uint64_t row = first; row <= last && !isCut; row += kCopiedRows)
    {
        text += m_document.CopyRows(row, std::min(last, row + kCopiedRows - 1), limit, isCut);
        const double part = static_cast<double>(row - first) / static_cast<double>(last - first + 1);
        progress.setValue(static_cast<int>(part * kCopySteps)); // handles events
        if (progress.wasCanceled() || generation != m_generation)
            return;
    }
    QApplication::clipboard()->setText(text);
    if (isCut)
        Q_EMIT CopyWasCut();
}

void LogView::SelectAll()
{
    if (m_rowCount == 0)
        return;
    StopFollowing();
    m_anchor = 0;
    m_current = m_rowCount - 1;
    viewport()->update();
    TellCurrent();
}

void LogView::Fold()
{
    if (m_rowCount != 0 && !m_folds.HidesBehind(m_current))
        m_document.RequestFold(m_current);
}

void LogView::Unfold()
{
    if (m_folds.ShowBehind(m_current))
        UpdateRows();
}

void LogView::ToggleFold(std::uint64_t row)
{
    if (m_folds.ShowBehind(row))
        UpdateRows();
    else
        m_document.RequestFold(row);
}

void LogView::keyPressEvent(QKeyEvent* event)
{
    const bool extends = event->modifiers().testFlag(Qt::ShiftModifier);
    const auto page = static_cast<qint64>(PageRows());
    switch (event->key())
    {
    case Qt::Key_Up:
        return MoveBy(-1, extends);
    case Qt::Key_Down:
        return MoveBy(1, extends);
    case Qt::Key_PageUp:
        return MoveBy(-page, extends);
    case Qt::Key_PageDown:
        return MoveBy(page, extends);
    case Qt::Key_Home:
        return MoveTo(0, extends);
    case Qt::Key_End:
        return MoveTo(ShownCount(), extends);
    case Qt::Key_Left:
        return horizontalScrollBar()->triggerAction(QScrollBar::SliderSingleStepSub);
    case Qt::Key_Right:
        return horizontalScrollBar()->triggerAction(QScrollBar::SliderSingleStepAdd);
    case Qt::Key_Minus:
        return Fold();
    case Qt::Key_Plus:
        return Unfold();
    case Qt::Key_Space:
        return ToggleFold(m_current);
    default:
        break;
    }
    if (event->matches(QKeySequence::Copy))
        Copy();
    else if (event->matches(QKeySequence::SelectAll))
        SelectAll();
    else
        QAbstractScrollArea::keyPressEvent(event);
}

std::uint64_t LogView::RowAt(int y) const
{
    const std::uint64_t count = ShownCount();
    const std::uint64_t above = static_cast<std::uint64_t>(y < 0 ? (RowHeight() - y - 1) / RowHeight() : 0);
    const std::uint64_t below = static_cast<std::uint64_t>(y < 0 ? 0 : y / RowHeight());
    return m_folds.ToRow(std::min(m_top - std::min(m_top, above) + below, count - 1));
}

void LogView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton || m_rowCount == 0)
        return;
    const QPoint point = event->position().toPoint();
    const auto index = static_cast<std::size_t>(point.y() / RowHeight());
    const bool isInFolds = point.x() >= GutterWidth() - FoldWidth() && point.x() < GutterWidth();
    if (isInFolds && index < m_rows.size() && IsFoldable(index))
        return ToggleFold(m_rows[index].m_row);
    m_isSelecting = true;
    GoToRow(RowAt(point.y()), event->modifiers().testFlag(Qt::ShiftModifier));
}

void LogView::mouseMoveEvent(QMouseEvent* event)
{
    if (!m_isSelecting)
        return;
    const int y = event->position().toPoint().y();
    if (y < 0 || y >= viewport()->height())
    {
        if (!m_dragTimer.isActive())
            m_dragTimer.start(kDragInterval, this);
        return;
    }
    m_dragTimer.stop();
    GoToRow(RowAt(y), true);
}

// The mouse was dragged beyond the rows.
void LogView::timerEvent(QTimerEvent* event)
{
    if (event->timerId() != m_dragTimer.timerId())
        return QAbstractScrollArea::timerEvent(event);
    const int y = viewport()->mapFromGlobal(QCursor::pos()).y();
    if (m_isSelecting && m_rowCount != 0 && (y < 0 || y >= viewport()->height()))
        GoToRow(RowAt(y), true);
    else
        m_dragTimer.stop();
}

void LogView::mouseReleaseEvent(QMouseEvent*)
{
    m_isSelecting = false;
    m_dragTimer.stop();
}

void LogView::contextMenuEvent(QContextMenuEvent* event)
{
    QMenu menu(this);
    menu.addAction(XInLanguage(u"&Copy", u"&Copier"), this, &LogView::Copy)->setEnabled(m_rowCount != 0);
    menu.addAction(XInLanguage(u"Select &All", u"&Tout s\u00e9lectionner"), this, &LogView::SelectAll);
    menu.addSeparator();
    menu.addAction(XInLanguage(u"&Fold", u"&Replier"), this, &LogView::Fold);
    menu.addAction(XInLanguage(u"&Unfold", u"&D\u00e9plier"), this, &LogView::Unfold);
    menu.exec(event->globalPos());
}

bool LogView::event(QEvent* event)
{
    // What a menu of the window has as its shortcut belongs to the view while it has the focus.
    if (event->type() == QEvent::ShortcutOverride)
    {
        auto* const key = static_cast<QKeyEvent*>(event);
        if (key->matches(QKeySequence::Copy) || key->matches(QKeySequence::SelectAll))
            event->accept();
    }
    return QAbstractScrollArea::event(event);
}

void LogView::resizeEvent(QResizeEvent*)
{
    UpdateRows();
    UpdateMarks();
}

void LogView::changeEvent(QEvent* event)
{
    QAbstractScrollArea::changeEvent(event);
    if (event->type() != QEvent::PaletteChange && event->type() != QEvent::FontChange)
        return;
    ForgetDrawings();
    m_widest = 0;
    UpdateRows();
}

void LogView::focusInEvent(QFocusEvent* event)
{
    QAbstractScrollArea::focusInEvent(event);
    viewport()->update();
}

void LogView::focusOutEvent(QFocusEvent* event)
{
    QAbstractScrollArea::focusOutEvent(event);
    viewport()->update();
}
