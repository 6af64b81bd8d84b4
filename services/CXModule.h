#pragma once

#include "services/CPathString.h"

#include <memory>

/// Begins the definition of a function that a module exports for CXModule::Find: `X_MODULE_FUNCTION int MyVersion() { ... }`.
#if __has_cpp_attribute(gnu::visibility)
#define X_MODULE_FUNCTION extern "C" [[gnu::visibility("default")]]
#else
#define X_MODULE_FUNCTION extern "C" __declspec(dllexport)
#endif

/// A module with classes and functions, such as a plug-in, that a program opens while it runs. Its classes enter the registry
/// (XGetDerivedClasses lists them) when it is opened, and leave it when it is closed.
///
/// Copies are one open module, which is closed with the last of them, or at the end of the process. Until then there must be
/// left neither objects of its classes, nor exceptions that it threw, nor threads that run its code: whoever has such keeps
/// a copy, and a program ends its workers first (CCustomThread::WaitEndOfThreads). A value: one thread at a time.
class TEVTOOLS_API CXModule
{
public:
    /// What names of modules end with on this system: ".so".
    [[nodiscard]] static const wchar_t* GetExtension() noexcept;

    /// None.
    CXModule() = default;

    /// Opens a module, in the place of the one that the object had. A path without a folder is of the current one: the
    /// system's own folders are not searched. Runs code of the module, so what may be written by others is not to be opened.
    /// False where it cannot be loaded: GetError() and XLastFailure() say why.
    [[nodiscard]] bool Open(const CXTString<wchar_t>& path);
    void Close() noexcept { m_module.reset(); }
    [[nodiscard]] bool IsOpen() const noexcept { return m_module != nullptr; }

    /// An exported function: `module.Find<unsigned()>("MyVersion")`. Null where there is none of that name, and where no module
    /// is open. The module is trusted that the function has that type.
    template <class FUNCTION>
    [[nodiscard]] FUNCTION* Find(const char* name) const noexcept
    {
        static_assert(std::is_function_v<FUNCTION>, "the type of a function, as in Find<unsigned()>(name)");
        return reinterpret_cast<FUNCTION*>(FindAddress(name));
    }

    /// As it was given to Open.
    const CPathString& GetPath() const noexcept { return m_path; }
    /// Why the last Open failed: the file, and what the system's loader says; empty where it did not.
    const CXTString<wchar_t>& GetError() const noexcept { return m_error; }

private:
    void* FindAddress(const char* name) const noexcept;

    std::shared_ptr<void> m_module;
    CPathString m_path;
    CXTString<wchar_t> m_error;
};
