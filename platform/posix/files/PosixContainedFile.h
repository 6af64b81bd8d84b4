#pragma once

#include "platform/ContainedFile.h"
#include "platform/posix/files/OwnedDescriptor.h"

#include <memory>
#include <optional>
#include <string>

namespace tev::platform
{
/// A new file of the folder; null with the error in errno. An existing file with the identity `kept` is not replaced.
std::unique_ptr<ContainedFile> CreateContainedFile(OwnedDescriptor folder, std::string leaf,
                                                   std::optional<unsigned> permissions,
                                                   const std::optional<FileIdentity>& kept);
} // namespace tev::platform
