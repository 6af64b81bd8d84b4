#include "zip/ExtractedFiles.h"

#include "objects/ResultOr.h"

#include <memory>

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

// Files that cannot be removed are left.

void ExtractedFiles::RemoveFiles() noexcept
{
    const auto remove = [this] {
        const std::unique_ptr<ContainedFolder> folder = ContainedFolder::Open(m_folderPath.c_str());
        if (folder == nullptr || folder->Identity() != m_folder)
            return false;
        bool isDone = true;
        for (const File& file : m_files)
            isDone = folder->Remove(file.m_path, file.m_identity) && isDone;
        return isDone;
    };
    static_cast<void>(ResultOr(false, remove));
    Forget();
}

void ExtractedFiles::RemoveFolder() noexcept
{
    const auto remove = [this] {
        const std::unique_ptr<ContainedFolder> folder = ContainedFolder::OpenItself(m_folderPath.c_str());
        return folder != nullptr && folder->Identity() == m_folder && folder->RemoveContents() &&
               platform::RemoveEmptyFolder(m_folderPath.c_str());
    };
    static_cast<void>(ResultOr(false, remove));
    Forget();
}
} // namespace tev
