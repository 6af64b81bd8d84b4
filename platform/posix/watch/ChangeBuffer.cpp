#include "platform/posix/watch/ChangeBuffer.h"

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
    Change added{change, SystemPathToWide(path.c_str())};
    if (!m_changes.empty() && m_changes.back().m_change == change && m_changes.back().m_path == added.m_path)
        return;
    m_size += SizeOf(added.m_path);
    m_changes.push_back(std::move(added));
    if (m_size > FolderWatch::kBufferSize)
        AddEverything();
}

void ChangeBuffer::AddEverything()
{
    m_hasEverything = true;
    m_changes.assign(1, {FolderChange::Everything, std::wstring()});
}

std::vector<ChangeBuffer::Change> ChangeBuffer::Take()
{
    m_size = 0;
    m_hasEverything = false;
    return std::exchange(m_changes, {});
}
} // namespace tev::platform
