#pragma once

#include "zip/engine/PlainZipReader.h"

namespace tev::platform
{
/// Null also in a build without miniz.
std::unique_ptr<PlainZipReader> OpenWithMiniz(const wchar_t* path);
} // namespace tev::platform
