#pragma once

#include "platform/ContainedFolder.h"

#include <string>
#include <vector>

namespace tev
{
/// Which files an extraction wrote beneath one folder, so that they, and nothing else, can be removed again: neither a file
/// that has replaced one since, nor anything behind a link that was created since. One thread at a time.
class ExtractedFiles
{
public:
    struct File
    {
        std::string m_path; ///< beneath the folder
        platform::FileIdentity m_identity;
    };

    /// Forgets all files and starts with another folder.
    void Start(const platform::ContainedFolder& folder);
    /// Forgets all.
    void Forget() noexcept;

    /// The extraction appends the files it wrote.
    std::vector<File>& Files() noexcept { return m_files; }
    const std::wstring& FolderPath() const noexcept { return m_folderPath; }

    /// Ignores files that are already deleted and those that cannot be removed.
    void RemoveFiles() noexcept;
    /// Removes the folder with all its contents.
    void RemoveFolder() noexcept;

private:
    std::wstring m_folderPath;
    platform::FileIdentity m_folder;
    std::vector<File> m_files;
};
} // namespace tev
