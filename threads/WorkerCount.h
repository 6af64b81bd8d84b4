#pragma once

#include "base/TevTypes.h"

// The number of threads that work on one parallel loop of the library. Safe from several threads at once.

extern "C"
{
    /// Sets the number of workers: at least 1, and at most what the parallel run-time gives, which honours
    /// OMP_NUM_THREADS.
    TEVTOOLS_API void OMPSetMaxThreadCount(unsigned int count);
    /// The number set last; before that what the parallel run-time gives.
    TEVTOOLS_API unsigned int OMPGetMaxThreadCount();
    /// How many items a worker takes at a time, so that each has about 24 turns; at least 1.
    TEVTOOLS_API unsigned int OMPGetScheduleChunkSize(unsigned int itemCount);
}
