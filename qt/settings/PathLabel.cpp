#include "qt/settings/PathLabel.h"

#include "qt/settings/ValueText.h"

namespace tev::browser
{
PathLabel::PathLabel(QWidget* parent) : QLabel(parent)
{
    setTextFormat(Qt::PlainText);
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
}

void PathLabel::SetPath(const QString& path)
{
    m_path = Escaped(path);
    setToolTip(PlainToolTip(m_path));
    setAccessibleDescription(m_path);
    Elide();
}

QSize PathLabel::minimumSizeHint() const
{
    return {0, QLabel::minimumSizeHint().height()};
}

void PathLabel::resizeEvent(QResizeEvent* event)
{
    QLabel::resizeEvent(event);
    Elide();
}

void PathLabel::Elide()
{
    setText(fontMetrics().elidedText(m_path, Qt::ElideMiddle, contentsRect().width()));
}
} // namespace tev::browser
