#include "system/ExtractedFiles.h"

#include <memory>
#include <new>

namespace tev
{
using platform::ContainedFolder;

void ExtractedFiles::Start(const ContainedFolder& folder)
{
    Forget();
    m_folderPath = folder.Path();
    m_folder = folder.Identity();
}

void ExtractedFiles::Forget() noexcept
{
    m_folderPath.clear();
    m_folder = {};
    m_files.clear();
}

void ExtractedFiles::RemoveFiles() noexcept
try
{
    const std::unique_ptr<ContainedFolder> folder = ContainedFolder::Open(m_folderPath.c_str());
    if (folder != nullptr && folder->Identity() == m_folder)
    {
        for (const File& file : m_files)
            static_cast<void>(folder->Remove(file.m_path, file.m_identity));
    }
    Forget();
}
catch (const std::bad_alloc&)
{
    // What cannot be removed stays.
}

void ExtractedFiles::RemoveFolder() noexcept
try
{
    const std::unique_ptr<ContainedFolder> folder = ContainedFolder::OpenItself(m_folderPath.c_str());
    if (folder != nullptr && folder->Identity() == m_folder && folder->RemoveContents())
        static_cast<void>(platform::RemoveEmptyFolder(m_folderPath.c_str()));
    Forget();
}
catch (const std::bad_alloc&)
{
    // What cannot be removed stays.
}
} // namespace tev
