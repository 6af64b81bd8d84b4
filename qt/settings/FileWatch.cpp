#include "qt/settings/FileWatch.h"

#include "qt/toolkit/QtText.h"

#include <QFileInfo>

namespace tev::browser
{
void FileWatch::SetFile(const QString& path)
{
    if (path == m_path)
        return;
    m_watcher.RemoveAll();
    m_watcher.GetChanges();
    m_watcher.ReleaseChanges();
    m_path = path;
    m_folder = path.isEmpty() ? QString() : QFileInfo(path).absolutePath();
    m_isWatching = Start();
    m_stamp = GetStamp();
}

bool FileWatch::Start()
{
    constexpr unsigned kFilter = CWatchFolder::kFileNames | CWatchFolder::kSize | CWatchFolder::kLastWrite;
    return !m_path.isEmpty() && m_watcher.AddRefreshNotification(XFromQString(m_folder), false, kFilter);
}

FileWatch::Stamp FileWatch::GetStamp() const
{
    const QFileInfo file(m_path);
    return m_path.isEmpty() ? Stamp() : Stamp{file.exists(), file.size(), file.lastModified()};
}

bool FileWatch::Poll()
{
    if (m_path.isEmpty())
        return false;
    if (!m_isWatching)
    {
        m_isWatching = Start();
        const Stamp stamp = GetStamp();
        return !(std::exchange(m_stamp, stamp) == stamp);
    }
    if (!m_watcher.CheckRefreshNotification())
        return false;
    const QString start = QFileInfo(m_path).absoluteFilePath();
    bool isOurs = false;
    const CXFolderChanges changes(m_watcher);
    for (const CWatchFolder::OrderedChange& change : changes.GetList())
        isOurs = isOurs || change.m_change == CWatchFolder::xChangeWholeFolder ||
                 XToQString(change.m_path).startsWith(start) || XToQString(change.m_oldPath).startsWith(start);
    return isOurs;
}
} // namespace tev::browser
