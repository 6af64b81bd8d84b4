#include "zip/ExtractedFiles.h"

namespace tev
{
bool ExtractedFiles::Start(std::unique_ptr<platform::ContainedFolder> folder) noexcept
{
    Forget();
    m_folder = std::move(folder);
    return m_folder->ReserveDescriptors();
}

void ExtractedFiles::Forget() noexcept
{
    m_folder.reset();
    m_files.clear();
}

// Files that cannot be removed are left.

void ExtractedFiles::RemoveFiles() noexcept
{
    if (m_folder != nullptr && m_folder->IsInPlace())
    {
        for (const File& file : m_files)
            static_cast<void>(m_folder->Remove(file.m_path, file.m_identity));
    }
    Forget();
}

void ExtractedFiles::RemoveFolder() noexcept
{
    if (m_folder != nullptr && m_folder->IsInPlace())
    {
        static_cast<void>(m_folder->RemoveContents());
        static_cast<void>(m_folder->RemoveItself()); // which works for one that is empty, also without descriptors
    }
    Forget();
}
} // namespace tev
