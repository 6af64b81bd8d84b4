#include "qt/toolkit/ElidedLabel.h"

#include "qt/toolkit/QtText.h"

#include <QEvent>

#include <algorithm>

namespace tev
{
ElidedLabel::ElidedLabel(const QString& text, QWidget* parent) : QLabel(parent)
{
    setTextFormat(Qt::PlainText);
    setTextInteractionFlags(Qt::TextSelectableByMouse);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    SetText(text);
}

void ElidedLabel::SetText(const QString& text)
{
    m_text = text;
    setAccessibleName(text);
    updateGeometry();
    Elide();
}

QSize ElidedLabel::minimumSizeHint() const
{
    return {fontMetrics().averageCharWidth() * 12, QLabel::minimumSizeHint().height()};
}

QSize ElidedLabel::sizeHint() const
{
    constexpr int kMostCharacters = 60;
    const QFontMetrics metrics = fontMetrics();
    const int most = metrics.averageCharWidth() * kMostCharacters;
    return {std::min(most, metrics.horizontalAdvance(m_text.left(2 * kMostCharacters)) + 2),
            QLabel::sizeHint().height()};
}

void ElidedLabel::resizeEvent(QResizeEvent* event)
{
    QLabel::resizeEvent(event);
    Elide();
}

void ElidedLabel::changeEvent(QEvent* event)
{
    QLabel::changeEvent(event);
    if (event->type() == QEvent::FontChange)
        Elide();
}

void ElidedLabel::Elide()
{
    const QString shown = fontMetrics().elidedText(m_text, Qt::ElideMiddle, contentsRect().width());
    if (shown == text())
        return;
    setText(shown);
    setToolTip(shown == m_text ? QString() : XPlainToolTip(m_text));
}
} // namespace tev
