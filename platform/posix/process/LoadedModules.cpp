#include "platform/LoadedModules.h"

#include "platform/PathNames.h"

#include <dlfcn.h>

std::wstring tev::platform::ModuleOfAddress(const void* address)
{
    Dl_info module = {};
    if (dladdr(address, &module) == 0 || module.dli_fname == nullptr)
        return {};
    return SystemPathToWide(module.dli_fname);
}
