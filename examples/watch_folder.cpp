// A user interface that keeps a list of files up to date.

#include "TevTools.h"

#include <filesystem>
#include <fstream>
#include <iostream>

namespace
{
// Called by a timer of the user interface.
int Refresh(CWatchFolder& watcher)
{
    if (!watcher.CheckRefreshNotification())
        return 0;
    int shown = 0;
    const CWatchFolder::Changes& changes = watcher.GetChanges();
    CXTString<wchar_t> path;
    CWatchFolder::FileChange change{};
    for (unsigned position = changes.GetFirst(); changes.GetNext(position, path, change);)
    {
        std::cout << XCW2A(path, xEncodingUtf8) << (change == CWatchFolder::xChangeRemoved ? " went\n" : " came\n");
        ++shown;
    }
    watcher.ReleaseChanges();
    return shown;
}
} // namespace

int main()
{
    std::filesystem::remove_all("models");
    std::filesystem::create_directory("models");

    CWatchFolder watcher;
    if (!watcher.AddRefreshNotification(L"models", true, CWatchFolder::kFileNames | CWatchFolder::kFolderNames))
        return 1;
    std::filesystem::create_directories("models/houses/old");
    std::ofstream("models/houses/old/mill.obj") << "v 0 0 0\n";
    if (Refresh(watcher) != 3)
        return 1;

    watcher.LockRefresh(); // while the application itself writes there
    std::filesystem::remove("models/houses/old/mill.obj");
    if (Refresh(watcher) != 0)
        return 1;
    watcher.UnlockRefresh();
    return Refresh(watcher) == 1 ? 0 : 1;
}
