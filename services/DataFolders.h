#pragma once

#include "services/CPathString.h"

// The folders of services/Paths.h for callers that go on without them.
namespace tev
{
/// The folder's path, and false, with the error in errno, where the folder cannot be created. Throws nothing of the library.
[[nodiscard]] bool FindUserDataFolder(CPathString& path);
[[nodiscard]] bool FindCommonDataFolder(CPathString& path);
} // namespace tev
