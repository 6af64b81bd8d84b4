#pragma once

#include <QScrollBar>

#include <vector>

/// A scroll bar that marks where matches are.
class MatchScrollBar : public QScrollBar
{
    Q_OBJECT

public:
    using QScrollBar::QScrollBar;

    /// How many marks there is room for.
    std::size_t MarkCount() const;
    /// One for each of MarkCount equal parts of what is scrolled.
    void SetMarks(std::vector<bool> marks);
    const std::vector<bool>& GetMarks() const noexcept { return m_marks; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QRect Groove() const;

    std::vector<bool> m_marks;
};
