#pragma once

#include "zip/engine/PlainZipReader.h"

namespace tev::platform
{
/// The reader over zip/engine/ZipEngine.h.
std::unique_ptr<PlainZipReader> OpenWithEngine(const wchar_t* path, const std::string& password);
} // namespace tev::platform
