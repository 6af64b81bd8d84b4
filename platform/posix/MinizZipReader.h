#pragma once

#include "platform/PlainZipReader.h"

namespace tev::platform
{
/// Null also in a build without miniz.
std::unique_ptr<PlainZipReader> OpenWithMiniz(const wchar_t* path);
} // namespace tev::platform
