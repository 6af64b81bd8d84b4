#pragma once

#include <functional>
#include <memory>
#include <string>

// What changes in folders, for those who ask from time to time. No thread works behind this.

namespace tev::platform
{
enum class FolderChange
{
    Added,
    Removed,
    Modified,
    Renamed,   ///< reported twice in a row, with the old name and with the new one
    Everything ///< more than can be told: look at the whole folder again
};

/// Which changes are reported; any of the bits.
enum FolderWatchBits : unsigned
{
    kWatchFileNames = 0x1,
    kWatchFolderNames = 0x2,
    kWatchAttributes = 0x4,
    kWatchSize = 0x8,
    kWatchLastWrite = 0x10,
    kWatchLastAccess = 0x20,
    kWatchCreation = 0x40,
    kWatchSecurity = 0x100
};

/// A folder that is watched, and all folders beneath it if that is asked for; links to folders are not followed, and folders
/// that this user may not read are left out. A folder that went, or moved away, is watched again as soon as there is one at
/// its path, which does not follow the process's current folder. Safe from several threads at once, each object from one thread at a time.
class FolderWatch
{
public:
    /// The path is relative to the folder, empty for Everything.
    using Report = std::function<void(FolderChange change, const std::wstring& path)>;

    /// How many bytes of entries are kept until the next Collect, as the other systems count them: twelve bytes and the
    /// name in UTF-16, rounded up to four. What does not fit makes Everything of all.
    static constexpr std::size_t kBufferSize = 4096;

    /// Null, with the error in errno, when the folder cannot be watched or one beneath it is more than the system's limit
    /// allows; nothing is left of the attempt then. What changes after the call is reported.
    static std::unique_ptr<FolderWatch> Start(const wchar_t* folder, bool withSubfolders, unsigned bits);

    virtual ~FolderWatch() = default;
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    /// Reports what came since the last call, in its order, without waiting for anything.
    virtual void Collect(const Report& report) = 0;

protected:
    FolderWatch() = default;
};
} // namespace tev::platform
