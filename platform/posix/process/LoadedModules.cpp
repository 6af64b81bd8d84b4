#include "platform/LoadedModules.h"

#include "platform/Cancellation.h"
#include "platform/PathNames.h"
#include "platform/SystemErrors.h"

#include <dlfcn.h>

namespace tev::platform
{
std::wstring ModuleOfAddress(const void* address)
{
    Dl_info module = {};
    if (dladdr(address, &module) == 0 || module.dli_fname == nullptr)
        return {};
    return SystemPathToWide(module.dli_fname);
}

const wchar_t* ModuleExtension() noexcept
{
    return L".so";
}

void* OpenModule(const wchar_t* path, std::wstring& reason)
{
    std::string systemPath = SystemPathOf(path);
    if (systemPath.empty())
    {
        reason = SystemErrorText(kNotFound);
        return nullptr;
    }
    if (systemPath.find('/') == std::string::npos) // else the loader would look for it in its own folders
        systemPath.insert(0, "./");
    const WithoutCancellation withoutCancellation;
    void* const module = dlopen(systemPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    const char* const error = module == nullptr ? dlerror() : nullptr;
    if (error != nullptr)
        reason = SystemPathToWide(error);
    return module;
}

void* FindInModule(void* module, const char* name) noexcept
{
    return dlsym(module, name);
}

void CloseModule(void* module) noexcept
{
    const WithoutCancellation withoutCancellation;
    static_cast<void>(dlclose(module));
}
} // namespace tev::platform
