#pragma once

#include "examples/host/model/PlugIn.h"

namespace host
{
/// The plug-ins of a folder, open as long as the object, which ends after their workers and shapes. For the window's thread.
class PlugIns
{
public:
    PlugIns() = default;
    /// Opens each module of the folder; what is no plug-in of this host is closed again, which the log tells.
    explicit PlugIns(const CPathString& folder);

    const std::vector<const PlugInCommand*>& GetCommands() const noexcept { return m_commands; }

private:
    std::vector<CXModule> m_modules;
    std::vector<const PlugInCommand*> m_commands;
};
} // namespace host
