#include "services/StartUp.h"

#include "platform/Threads.h"
#include "services/LogFile.h"
#include "threads/MainThread.h"
#include "threads/WorkerCount.h"

void InitFerngateApplication()
{
    InitTevTools();
    OMPSetMaxThreadCount(~0u);
    if (IsLogFileEnabled())
    {
        WriteToLogFile(L"InitFerngateApplication\n%d core will be used by default (use OMPSetMaxThreadCount, or define "
                       L"OMP_NUM_THREADS under linux, to change the behavior)\n",
                       OMPGetMaxThreadCount());
    }
}

void InitTevTools()
{
    tev::SetMainThreadId(tev::platform::CurrentThreadId());
}

unsigned __int64 GetApplicationMainThreadID()
{
    return tev::MainThreadId();
}
