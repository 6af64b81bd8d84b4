#include "platform/ChangeBuffer.h"

#include "platform/PathNames.h"

#include <cstdint>
#include <utility>

namespace tev::platform
{
namespace
{
std::size_t SizeOf(const std::wstring& path) noexcept
{
    std::size_t units = path.size();
    for (const wchar_t character : path)
        units += static_cast<std::uint32_t>(character) > 0xFFFF ? 1 : 0;
    return (12 + 2 * units + 3) / 4 * 4;
}
} // namespace

void ChangeBuffer::Add(FolderChange change, const std::string& path)
{
    if (m_hasEverything)
        return;
    FolderEvent added{change, SystemPathToWide(path.c_str()), {}, false};
    if (!m_events.empty() && m_events.back().change == change && m_events.back().path == added.path)
        return;
    Append(std::move(added));
}

void ChangeBuffer::AddRename(const std::string& from, const std::string& to, bool isExchange)
{
    if (!m_hasEverything)
        Append({FolderChange::Renamed, SystemPathToWide(to.c_str()), SystemPathToWide(from.c_str()), isExchange});
}

void ChangeBuffer::Append(FolderEvent event)
{
    m_size += SizeOf(event.path);
    if (event.change == FolderChange::Renamed)
        m_size += SizeOf(event.oldPath);
    m_events.push_back(std::move(event));
    if (m_size > FolderWatch::kBufferSize)
        AddEverything();
}

void ChangeBuffer::AddEverything() noexcept
{
    m_hasEverything = true;
    m_events.clear();
}

void ChangeBuffer::Take(std::vector<FolderEvent>& events)
{
    if (m_hasEverything)
        m_events.assign(1, {FolderChange::Everything, {}, {}, false});
    m_size = 0;
    m_hasEverything = false;
    events.swap(m_events);
    m_events.clear();
}
} // namespace tev::platform
