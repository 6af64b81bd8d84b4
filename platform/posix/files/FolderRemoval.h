#pragma once

namespace tev::platform
{
/// Removes everything in the folder of that descriptor, to any depth, with two more descriptors and no memory. Returns the
/// errno of what could not be removed, 0 when the folder is empty.
int RemoveFolderContents(int folder) noexcept;
} // namespace tev::platform
