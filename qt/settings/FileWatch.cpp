#include "qt/settings/FileWatch.h"

#include "qt/toolkit/QtText.h"

#include <QFileInfo>

#include <utility>

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
    m_stamps = GetStamps();
    m_sinceLook.start();
}

bool FileWatch::Start()
{
    constexpr unsigned kFilter = CWatchFolder::kFileNames | CWatchFolder::kSize | CWatchFolder::kLastWrite;
    return !m_path.isEmpty() && m_watcher.AddRefreshNotification(XFromQString(m_folder), false, kFilter);
}

FileWatch::Stamps FileWatch::GetStamps() const
{
    // A database has its log beside the file itself, not beside a link to it.
    const QString real = QFileInfo(m_path).canonicalFilePath();
    const CXTString<wchar_t> file = XFromQString(real.isEmpty() ? m_path : real);
    Stamps stamps;
    static_cast<void>(XGetFileStamp(file, stamps[0]));
    static_cast<void>(XGetFileStamp(file + L"-wal", stamps[1]));
    return stamps;
}

bool FileWatch::Poll()
{
    constexpr qint64 kLookMilliseconds = 2000;
    if (m_path.isEmpty())
        return false;
    if (!m_isWatching)
        m_isWatching = Start();
    const bool isNotified = m_isWatching && IsNotified();
    if (!isNotified && m_isWatching && !m_sinceLook.hasExpired(kLookMilliseconds))
        return false;
    m_sinceLook.start();
    return std::exchange(m_stamps, GetStamps()) != m_stamps || isNotified;
}

bool FileWatch::IsNotified()
{
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
