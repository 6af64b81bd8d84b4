#pragma once

#include <string>

namespace tev::platform
{
/// The path of the program or shared library that holds the address, empty for one in no file. Takes the lock of the
/// system's loader, which is held while a library is opened: call it without a lock that is taken then.
std::wstring ModuleOfAddress(const void* address);
} // namespace tev::platform
