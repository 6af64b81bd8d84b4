#pragma once

#include "base/TevTypes.h"

extern "C"
{
    /// Called once by a program at its start, on its main thread: records that thread, sets the number of workers of
    /// parallel loops to what the machine and OMP_NUM_THREADS allow, and writes it to the log where that is enabled. From
    /// then on a shutdown that takes long writes the workers that it waits for to the log (CCustomThread::SetDelayReport),
    /// and two classes of one name are written to it (objects/ClassClashes.h).
    TEVTOOLS_API void InitFerngateApplication();
    /// For a program that only wants the calling thread recorded as the main one.
    TEVTOOLS_API void InitTevTools();
    /// The thread that called one of the two, 0 before.
    TEVTOOLS_API unsigned __int64 GetApplicationMainThreadID();
}
