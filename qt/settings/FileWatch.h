#pragma once

#include "services/CWatchFolder.h"

#include <QElapsedTimer>
#include <QString>

#include <filesystem>
#include <utility>
#include <vector>

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
    /// Of each file.
    using Stamp = std::vector<std::pair<std::uintmax_t, std::filesystem::file_time_type>>;

    Stamp GetStamp() const;
    bool Start();
    bool IsNotified();

    QString m_path;
    QString m_folder;
    CWatchFolder m_watcher;
    bool m_isWatching = false;
    Stamp m_stamp;
    QElapsedTimer m_sinceLook;
};
} // namespace tev::browser
