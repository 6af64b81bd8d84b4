#pragma once

namespace tev::platform
{

/// What an opener does with a file, and what it does not let others do.
struct FileShare
{
    bool reads;
    bool writes;
    bool deniesRead;
    bool deniesWrite;
    bool truncates; ///< will write once, now
};

/// Enters an open regular file among its openers by the sharing rule of FileSystem::Open. False when the rule forbids it;
/// the descriptor is then as before. The entry goes with the open file description.
[[nodiscard]] bool EnterSharing(int descriptor, const FileShare& share);

} // namespace tev::platform
