// Step 7: the file that is open is watched, and read again when another program has changed it.

#include "examples/tutorial/Model.h"

#include <cstdio>

namespace
{
void Write(const CPathString& path, unsigned vertexCount)
{
    CStdioFileEx file(path, CXFile::modeCreate | CXFile::modeWrite);
    for (unsigned i = 0; i < vertexCount; ++i)
        file.WriteString(L"v 1 2 3\n");
    file.Close();
}

/// To be called from a timer.
bool HasChanged(CWatchFolder& watcher, const CPathString& path)
{
    if (!watcher.CheckRefreshNotification())
        return false;
    bool hasChanged = false;
    for (const auto& [changed, change] : CXFolderChanges(watcher))
        hasChanged = hasChanged || change == CWatchFolder::xChangeWholeFolder ||
                     CPathString(changed).GetFileName() == path.GetFileName();
    return hasChanged;
}
} // namespace

int main()
{
    InitFerngateApplication();
    const CPathString path = L"watched.obj";
    Write(path, 3);
    CWatchFolder watcher;
    if (!watcher.AddRefreshNotification(L".", false, CWatchFolder::kFileNames | CWatchFolder::kLastWrite))
        return 1;
    CModel model;
    model.Read(path);
    Write(path, 5); // another program does
    for (int i = 0; i < 1000 && model.m_vertices.size() != 5; ++i)
    {
        if (HasChanged(watcher, path))
            model.Read(path);
        CXThread::SleepCurrentThread(10);
    }
    std::printf("%zu vertices\n", model.m_vertices.size());
    return model.m_vertices.size() == 5 ? 0 : 1;
}
