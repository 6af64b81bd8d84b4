#pragma once

#include "platform/FolderWatch.h"

#include <string>
#include <vector>

namespace tev::platform
{
/// What a watch has to tell, in FolderWatch::kBufferSize bytes at most. One thread at a time.
class ChangeBuffer
{
public:
    struct Change
    {
        FolderChange m_change;
        std::wstring m_path;
    };

    /// The same twice in a row counts once. The path is in the system's form.
    void Add(FolderChange change, const std::string& path);
    /// In place of all that is in the buffer, and of what comes before it is emptied.
    void AddEverything();
    /// Empties the buffer.
    std::vector<Change> Take();

private:
    std::size_t m_size = 0;
    bool m_hasEverything = false;
    std::vector<Change> m_changes;
};
} // namespace tev::platform
