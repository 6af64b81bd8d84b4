#pragma once

#include "examples/host/model/PlugIn.h"

#include <QLibrary>
#include <memory>

namespace host
{
/// The plug-ins of a folder, open until Close. For the window's thread.
class PlugIns
{
public:
    PlugIns() = default;
    PlugIns(const PlugIns&) = delete;
    PlugIns& operator=(const PlugIns&) = delete;
    ~PlugIns() { Close(); }

    /// Opens each module of the folder; what is no plug-in of this host is closed again, which the log tells.
    void Open(const CPathString& folder);
    /// All workers have ended, and no shape of the plug-ins' classes is left.
    void Close();

    const std::vector<const PlugIn*>& GetAll() const noexcept { return m_plugIns; }

private:
    std::vector<std::unique_ptr<QLibrary>> m_modules;
    std::vector<const PlugIn*> m_plugIns;
};
} // namespace host
