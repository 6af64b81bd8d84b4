#pragma once

#include "platform/PlainZipReader.h"

namespace tev::platform
{
/// The reader over platform/ZipEngine.h.
std::unique_ptr<PlainZipReader> OpenWithEngine(const wchar_t* path, const std::string& password);
} // namespace tev::platform
