#include "examples/host/window/PlugIns.h"

#include "qt/toolkit/QtText.h"

#include <QDir>

namespace host
{
PlugIns::PlugIns(const CPathString& folder)
{
    const QStringList modules(QStringLiteral("*") + XToQString(CXModule::GetExtension()));
    for (const QString& name : QDir(XToQString(folder)).entryList(modules, QDir::Files, QDir::Name))
    {
        CXModule module;
        if (!module.Open(folder / XFromQString(name)))
        {
            WriteToLogFile(1, L"%s\n", module.GetError());
            continue;
        }
        const auto getPlugIn = module.Find<const PlugIn*()>("HostPlugIn");
        const PlugIn* const plugIn = getPlugIn != nullptr ? getPlugIn() : nullptr;
        if (plugIn == nullptr || plugIn->m_interface != PlugIn::kInterface)
        {
            WriteToLogFile(1, L"%s is no plug-in of this host\n", module.GetPath());
            continue;
        }
        WriteToLogFile(2, L"plug-in %s\n", module.GetPath());
        if (plugIn->m_command != nullptr)
            m_commands.push_back(plugIn->m_command);
        m_modules.push_back(std::move(module));
    }
}
} // namespace host
