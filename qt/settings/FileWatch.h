#pragma once

#include "services/CWatchFolder.h"
#include "services/FileStamp.h"

#include <QElapsedTimer>
#include <QString>

#include <array>

namespace tev::browser
{
/// Notices changes of a file, and of those beside it whose names begin like its own, by the system's notifications. It also looks
/// at the size and time of the file, and of the log that a database has beside it: at each call where the system refuses
/// notifications, else every two seconds, since a file behind a link, or in a folder that was replaced, is not notified.
class FileWatch
{
public:
    /// Nothing is watched where the path is empty.
    void SetFile(const QString& path);
    /// Whether it may have changed since the last call.
    bool Poll();

private:
    using Stamps = std::array<XFileStamp, 2>; ///< of the file and of the log, empty for one that is not there

    Stamps GetStamps() const;
    bool Start();
    bool IsNotified();

    QString m_path;
    QString m_folder;
    CWatchFolder m_watcher;
    bool m_isWatching = false;
    Stamps m_stamps;
    QElapsedTimer m_sinceLook;
};
} // namespace tev::browser
