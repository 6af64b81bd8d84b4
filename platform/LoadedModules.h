#pragma once

#include <string>

namespace tev::platform
{
/// The path of the program or shared library that holds the address, empty for one in no file. Takes the lock of the
/// system's loader, which is held while a library is opened: call it without a lock that is taken then.
std::wstring ModuleOfAddress(const void* address);

/// What names of modules end with, the dot included.
const wchar_t* ModuleExtension() noexcept;

/// Opens a module and all that it needs, and runs its initialization. A path without a folder is of the current one, as any
/// file's. Null on failure, with what the system's loader says in `reason`.
void* OpenModule(const wchar_t* path, std::wstring& reason);

/// The address of an exported function; null where there is none.
void* FindInModule(void* module, const char* name) noexcept;

/// Opened as often as closed, it leaves memory, unless the system has reasons to keep it.
void CloseModule(void* module) noexcept;
} // namespace tev::platform
