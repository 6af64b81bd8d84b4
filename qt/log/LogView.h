#pragma once

#include "qt/log/LogColors.h"
#include "qt/log/LogDocument.h"
#include "qt/log/RowFolds.h"

#include <QAbstractScrollArea>
#include <QBasicTimer>

#include <memory>

class MatchScrollBar;

/// Draws the rows of a document that can be seen. One row is the current one; the selection goes from the anchor to it.
class LogView : public QAbstractScrollArea
{
    Q_OBJECT

public:
    explicit LogView(LogDocument& document, QWidget* parent = nullptr);
    ~LogView() override;

    /// Takes over what became of the document.
    void Refresh(const LogStatus& status);
    void SetColors(LogColors colors);
    const LogColors& GetColors() const noexcept { return m_colors; }
    void SetLineNumbersVisible(bool visible);
    /// Keeps the last row in sight; going up by hand ends it.
    void SetFollowing(bool following);
    bool IsFollowing() const noexcept { return m_isFollowing; }

    std::uint64_t CountRows() const noexcept { return m_rowCount; }
    std::uint64_t CurrentRow() const noexcept { return m_current; }
    /// Makes a row the current one and shows it.
    void GoToRow(std::uint64_t row, bool extendsSelection = false);
    std::uint64_t CurrentLine() const;
    /// The rows that are drawn now.
    const std::vector<LogRow>& GetVisibleRows() const noexcept { return m_rows; }
    MatchScrollBar& GetMatchScrollBar() const noexcept { return *m_scrollBar; }

public Q_SLOTS:
    void Copy();
    void SelectAll();
    void Fold();
    void Unfold();

Q_SIGNALS:
    void CurrentChanged();
    void FollowingChanged(bool following);
    /// The lines were longer than what is copied.
    void CopyWasCut();

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void timerEvent(QTimerEvent* event) override;
    void changeEvent(QEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    struct Drawing; // a row that is laid out

    int RowHeight() const;
    int GutterWidth() const;
    int FoldWidth() const;
    std::uint64_t PageRows() const;
    std::uint64_t ShownCount() const { return m_folds.CountShown(m_rowCount); }
    std::uint64_t TopLimit() const;
    void SetTop(std::uint64_t top);
    void UpdateRows();
    void UpdateScrollBars();
    void UpdateMarks();
    void ReadVisibleRows();
    void ForgetDrawings();
    std::unique_ptr<Drawing> Draw(const LogRow& row) const;
    void PaintRow(QPainter& painter, std::size_t index, int y) const;
    void PaintGutter(QPainter& painter, std::size_t index, int y) const;
    bool IsSelected(std::uint64_t row) const;
    bool IsFoldable(std::size_t index) const;
    std::uint64_t RowAt(int y) const;
    void MoveBy(qint64 rows, bool extendsSelection);
    void MoveTo(std::uint64_t shown, bool extendsSelection);
    void ToggleFold(std::uint64_t row);
    void StopFollowing();
    void TellCurrent();

    LogDocument& m_document;
    MatchScrollBar* m_scrollBar;
    LogColors m_colors;
    RowFolds m_folds;
    unsigned m_generation = 0;
    std::uint64_t m_rowCount = 0;
    std::uint64_t m_lineCount = 0;
    std::uint64_t m_fileSize = 0;
    LinePattern m_drawnSearch;
    std::uint64_t m_markedHits = 0;
    std::uint64_t m_markedRows = 0;
    std::uint64_t m_top = 0; // among the shown rows
    std::uint64_t m_current = 0;
    std::uint64_t m_anchor = 0;
    bool m_isFollowing = false;
    bool m_hasLineNumbers = true;
    bool m_isScrolling = false; // by ourselves
    bool m_isSelecting = false; // with the mouse
    int m_widest = 0;
    QBasicTimer m_dragTimer;
    std::vector<LogRow> m_rows;
    std::vector<std::unique_ptr<Drawing>> m_drawings;
};
