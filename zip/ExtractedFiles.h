#pragma once

#include "platform/ContainedFolder.h"

#include <string>
#include <vector>

namespace tev
{
/// Which files an extraction wrote beneath one folder, so that they, and nothing else, can be removed again: neither a file
/// that has taken the name of one since, nor anything behind a link that was put in the way. One thread at a time.
class ExtractedFiles
{
public:
    struct File
    {
        std::string m_path; ///< beneath the folder
        platform::FileIdentity m_identity;
    };

    /// Forgets all, and begins with another folder.
    void Start(const platform::ContainedFolder& folder);
    /// Forgets all.
    void Forget() noexcept;

    /// Where an extraction appends what it wrote.
    std::vector<File>& Files() noexcept { return m_files; }
    const std::wstring& FolderPath() const noexcept { return m_folderPath; }

    /// Those that are gone already do not matter, nor do those that cannot be removed.
    void RemoveFiles() noexcept;
    /// The folder with all that is in it.
    void RemoveFolder() noexcept;

private:
    std::wstring m_folderPath;
    platform::FileIdentity m_folder;
    std::vector<File> m_files;
};
} // namespace tev
