// A plug-in that crashes, for trying the reports of crashes.

#include "examples/host/model/PlugIn.h"

namespace
{
// Volatile, so that the compiler cannot remove the crash.
int* volatile g_nowhere = nullptr;

void Crash(const host::Meshes& shown)
{
    *g_nowhere = static_cast<int>(shown.size());
}

const host::PlugInCommand kCrash{L"Crash in a plug-in", L"Planter dans un module", Crash};
} // namespace

const host::PlugIn* HostPlugIn()
{
    static const host::PlugIn plugIn{host::PlugIn::kInterface, &kCrash};
    return &plugIn;
}
