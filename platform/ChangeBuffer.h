#pragma once

#include "platform/FolderWatch.h"

#include <string>
#include <vector>

namespace tev::platform
{
/// The changes that a watch has to report, in FolderWatch::kBufferSize bytes at most. One thread at a time.
class ChangeBuffer
{
public:
    /// The same change twice in a row counts once. The path is in the system's form.
    void Add(FolderChange change, const std::string& path);
    void AddRename(const std::string& from, const std::string& to, bool isExchange);
    /// Replaces the contents of the buffer, and what is added until Take.
    void AddEverything() noexcept;
    /// Replaces the events by those of the buffer, which is empty then and has their memory.
    void Take(std::vector<FolderEvent>& events);

private:
    void Append(FolderEvent event);

    std::size_t m_size = 0;
    bool m_hasEverything = false;
    std::vector<FolderEvent> m_events;
};
} // namespace tev::platform
