#pragma once

#include <QLabel>

namespace tev::browser
{
/// A path in one line, which is cut in its middle where there is no room; the tool tip has the whole.
class PathLabel : public QLabel
{
    Q_OBJECT
public:
    explicit PathLabel(QWidget* parent = nullptr);

    void SetPath(const QString& path);
    QSize minimumSizeHint() const override;

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void Elide();

    QString m_path;
};
} // namespace tev::browser
