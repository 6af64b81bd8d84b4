#include "system/StartUp.h"

#include "platform/Threads.h"
#include "system/WorkerCount.h"

#include <atomic>

namespace
{
std::atomic<unsigned __int64> g_mainThreadId{0};
}

void InitFerngateApplication()
{
    g_mainThreadId.store(tev::platform::CurrentThreadId());
    OMPSetMaxThreadCount(~0u);
}

unsigned __int64 GetApplicationMainThreadID()
{
    return g_mainThreadId.load();
}
