#pragma once

#include "platform/ContainedFolder.h"

#include <memory>
#include <string>
#include <vector>

namespace tev
{
/// Which files an extraction wrote beneath one folder, so that they, and nothing else, can be removed again: neither a file
/// that has replaced one since, nor anything behind a link that was created since. Removing them needs no memory, and no
/// descriptor that is not held from the start. One thread at a time.
class ExtractedFiles
{
public:
    struct File
    {
        std::string m_path; ///< beneath the folder
        platform::FileIdentity m_identity;
    };

    /// Forgets all files and starts with another folder. False where no descriptor is left.
    [[nodiscard]] bool Start(std::unique_ptr<platform::ContainedFolder> folder) noexcept;
    /// Forgets all.
    void Forget() noexcept;
    /// Releases the descriptors: the files are kept.
    void Keep() noexcept { m_folder.reset(); }

    bool HasFolder() const noexcept { return m_folder != nullptr; }
    /// The folder to extract to.
    platform::ContainedFolder& Folder() noexcept { return *m_folder; }
    /// The extraction appends the files it wrote.
    std::vector<File>& Files() noexcept { return m_files; }

    /// Ignores files that are already deleted and those that cannot be removed. Nothing is removed from a folder that was
    /// moved.
    void RemoveFiles() noexcept;
    /// Removes the folder with all its contents.
    void RemoveFolder() noexcept;

private:
    std::unique_ptr<platform::ContainedFolder> m_folder;
    std::vector<File> m_files;
};
} // namespace tev
