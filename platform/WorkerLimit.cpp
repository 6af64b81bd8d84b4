#include "platform/WorkerLimit.h"

#include <algorithm>

#include <omp.h>

unsigned tev::platform::MaxWorkerCount() noexcept
{
    return static_cast<unsigned>(std::max(omp_get_max_threads(), 1));
}
