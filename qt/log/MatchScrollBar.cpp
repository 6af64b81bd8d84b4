#include "qt/log/MatchScrollBar.h"

#include "qt/toolkit/Theme.h"

#include <QPainter>
#include <QStyleOptionSlider>

namespace
{
constexpr int kMarkHeight = 2;
}

QRect MatchScrollBar::Groove() const
{
    QStyleOptionSlider option;
    initStyleOption(&option);
    return style()->subControlRect(QStyle::CC_ScrollBar, &option, QStyle::SC_ScrollBarGroove, this);
}

std::size_t MatchScrollBar::MarkCount() const
{
    return static_cast<std::size_t>(qMax(1, Groove().height() / kMarkHeight));
}

void MatchScrollBar::SetMarks(std::vector<bool> marks)
{
    if (marks == m_marks)
        return;
    m_marks = std::move(marks);
    update();
}

void MatchScrollBar::paintEvent(QPaintEvent* event)
{
    QScrollBar::paintEvent(event);
    QPainter painter(this);
    const QColor color = QColor::fromRgb(tev::IsDark(palette()) ? 0xFFE5B800 : 0xFFD98E00);
    const QRect groove = Groove();
    for (std::size_t i = 0; i < m_marks.size(); ++i)
    {
        const int y = groove.top() + static_cast<int>(i * static_cast<std::size_t>(groove.height()) / m_marks.size());
        if (m_marks[i])
            painter.fillRect(groove.left() + 2, y, groove.width() - 4, kMarkHeight, color);
    }
}
