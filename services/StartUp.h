#pragma once

#include "base/TevTypes.h"

extern "C"
{
    /// Called once by a program at its start, on its main thread: remembers that thread, sets the number of workers of
    /// parallel loops to what the machine and OMP_NUM_THREADS allow, and says so in the log where it is enabled.
    TEVTOOLS_API void InitFerngateApplication();
    /// For a program that wants nothing of that but the calling thread remembered as the main one.
    TEVTOOLS_API void InitTevTools();
    /// The thread that called one of the two, 0 before.
    TEVTOOLS_API unsigned __int64 GetApplicationMainThreadID();
}
