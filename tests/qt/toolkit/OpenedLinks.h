#pragma once

#include <QObject>
#include <QUrl>

namespace tev::test
{
/// Takes the place of the desktop, which opens links.
class OpenedLinks : public QObject
{
    Q_OBJECT

public:
    QStringList m_opened;

public Q_SLOTS:
    void Open(const QUrl& url) { m_opened += url.toString(); }
};
} // namespace tev::test
