#pragma once

#include "examples/host/model/Renderer.h"
#include "examples/host/model/Scene.h"

// What the host and its plug-ins agree on. A plug-in is a module with one function, HostPlugIn. Its primitives are in the
// registry of classes while it is open; it is closed when no worker, no command and no shape of it is left.
namespace host
{
/// Something that a plug-in does with what is shown.
struct PlugInCommand
{
    const wchar_t* m_english;
    const wchar_t* m_french;
    /// Called by the window's thread. What takes long it does on a CCustomThread, which ends when it is asked to.
    void (*m_run)(const Meshes& shown);
};

struct PlugIn
{
    static constexpr unsigned kInterface = 1;

    unsigned m_interface = kInterface;
    const PlugInCommand* m_command = nullptr; ///< or null
};
} // namespace host

/// Each plug-in defines it.
X_MODULE_FUNCTION const host::PlugIn* HostPlugIn();
