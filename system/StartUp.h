#pragma once

#include "core/TevTypes.h"

extern "C"
{
    /// Called once by a program at its start, on its main thread: remembers that thread, and sets the number of workers
    /// of parallel loops to what the machine and OMP_NUM_THREADS allow.
    TEVTOOLS_API void InitFerngateApplication();
    /// The thread that called InitFerngateApplication, 0 before.
    TEVTOOLS_API unsigned __int64 GetApplicationMainThreadID();
}
