#include "examples/host/window/PlugIns.h"

#include "qt/toolkit/QtText.h"

#include <QDir>

namespace host
{
void PlugIns::Open(const CPathString& folder)
{
    const QDir directory(XToQString(folder));
    for (const QString& name : directory.entryList(QDir::Files, QDir::Name))
    {
        const QString path = directory.absoluteFilePath(name);
        if (!QLibrary::isLibrary(path))
            continue;
        auto module = std::make_unique<QLibrary>(path);
        const auto getPlugIn = reinterpret_cast<GetPlugIn>(module->resolve("HostPlugIn"));
        const PlugIn* plugIn = getPlugIn != nullptr ? getPlugIn() : nullptr;
        if (plugIn == nullptr || plugIn->m_interface != PlugIn::kInterface)
        {
            WriteToLogFile(1, L"%s is no plug-in of this host: %s\n", XFromQString(name),
                           XFromQString(module->errorString()));
            module->unload();
            continue;
        }
        WriteToLogFile(2, L"plug-in %s\n", XFromQString(name));
        m_plugIns.push_back(plugIn);
        m_modules.push_back(std::move(module));
    }
}

void PlugIns::Close()
{
    m_plugIns.clear();
    for (const auto& module : m_modules)
        module->unload();
    m_modules.clear();
}
} // namespace host
