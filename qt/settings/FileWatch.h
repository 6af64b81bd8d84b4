#pragma once

#include "services/CWatchFolder.h"

#include <QDateTime>
#include <QString>

namespace tev::browser
{
/// Notices changes of a file, and of those beside it whose names begin like its own, by the system's notifications; where the
/// system refuses these, by size and time.
class FileWatch
{
public:
    /// Nothing is watched where the path is empty.
    void SetFile(const QString& path);
    /// Whether it may have changed since the last call.
    bool Poll();

private:
    struct Stamp
    {
        bool m_exists = false;
        qint64 m_size = 0;
        QDateTime m_time;

        bool operator==(const Stamp& other) const
        {
            return m_exists == other.m_exists && m_size == other.m_size && m_time == other.m_time;
        }
    };
    Stamp GetStamp() const;
    bool Start();

    QString m_path;
    QString m_folder;
    CWatchFolder m_watcher;
    bool m_isWatching = false;
    Stamp m_stamp;
};
} // namespace tev::browser
