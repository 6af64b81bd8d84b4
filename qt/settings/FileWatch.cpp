#include "qt/settings/FileWatch.h"

#include "qt/toolkit/QtText.h"
#include "services/CPathString.h"

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
    m_sinceLook.start();
}

bool FileWatch::Start()
{
    constexpr unsigned kFilter = CWatchFolder::kFileNames | CWatchFolder::kSize | CWatchFolder::kLastWrite;
    return !m_path.isEmpty() && m_watcher.AddRefreshNotification(XFromQString(m_folder), false, kFilter);
}

FileWatch::Stamp FileWatch::GetStamp() const
{
    Stamp stamp;
    std::error_code failure;
    std::filesystem::path file = CPathString(XFromQString(m_path));
    if (const auto real = std::filesystem::canonical(file, failure); !failure)
        file = real;
    for (const char* const end : {"", "-wal"})
    {
        const std::filesystem::path path = file.native() + end;
        std::error_code none; // then the values are those of no file
        const std::uintmax_t size = std::filesystem::file_size(path, none);
        stamp.emplace_back(size, std::filesystem::last_write_time(path, none));
    }
    return stamp;
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
    return std::exchange(m_stamp, GetStamp()) != m_stamp || isNotified;
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
