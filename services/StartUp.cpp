#include "services/StartUp.h"

#include "objects/ClassClashes.h"
#include "objects/ResultOr.h"
#include "platform/Threads.h"
#include "services/LogFile.h"
#include "threads/CCustomThread.h"
#include "threads/MainThread.h"
#include "threads/WorkerCount.h"

namespace
{
void WriteDelayToLog(const CXArray<CXWorkerState>& workers)
{
    if (!IsLogFileEnabled())
        return;
    CXTString<wchar_t> text;
    text.Format(L"The shutdown waits for %d workers\n", workers.GetSize());
    for (int i = 0; i < workers.GetSize(); ++i)
    {
        const CXWorkerState& worker = workers[i];
        const char* const operation = worker.m_operation != nullptr ? worker.m_operation
                                      : worker.m_isRunning          ? "running"
                                      : worker.m_threadId != 0      ? "ended, but its object is not deleted"
                                                                    : "not started, but its object is not deleted";
        CXTString<wchar_t> line;
        line.Format(L"  thread %I64u is %hs\n", worker.m_threadId, operation);
        text += line;
    }
    WriteToLogFile(L"%s", static_cast<const wchar_t*>(text));
}

void WriteClashToLog(const XClassClash& clash)
{
    if (IsLogFileEnabled())
        WriteToLogFile(L"The class %hs of %s is hidden by the one of %s\n", clash.m_name.GetConstBuffer(),
                       clash.m_hiddenPlace.GetConstBuffer(), clash.m_place.GetConstBuffer());
}
} // namespace

void InitFerngateApplication()
{
    InitTevTools();
    CCustomThread::SetDelayReport([](const CXArray<CXWorkerState>& workers) {
        tev::ResultOr(false, [&workers] {
            WriteDelayToLog(workers);
            return true;
        });
    });
    XSetClassClashReport(WriteClashToLog);
    OMPSetMaxThreadCount(~0u);
    if (IsLogFileEnabled())
    {
        WriteToLogFile(L"InitFerngateApplication\n%d core will be used by default (use OMPSetMaxThreadCount, or define "
                       L"OMP_NUM_THREADS under linux, to change the behavior)\n",
                       OMPGetMaxThreadCount());
        for (const XClassClash& clash : XGetClassClashes())
            WriteClashToLog(clash);
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
