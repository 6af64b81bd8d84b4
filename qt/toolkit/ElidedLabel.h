#pragma once

#include "qt/toolkit/QtExport.h"

#include <QLabel>

namespace tev
{
/// A text of any length in one line, such as a path: its middle is left out where there is no room for it, and then stands in
/// the tool tip.
class TEVTOOLS_QT_API ElidedLabel : public QLabel
{
    Q_OBJECT

public:
    explicit ElidedLabel(const QString& text = {}, QWidget* parent = nullptr);

    void SetText(const QString& text);
    const QString& WholeText() const noexcept { return m_text; }

    QSize minimumSizeHint() const override;
    QSize sizeHint() const override;

protected:
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void Elide();

    QString m_text;
};
} // namespace tev
