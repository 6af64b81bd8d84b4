#include "platform/ParallelLoop.h"

#include <algorithm>

#include <omp.h>

unsigned tev::platform::MaxWorkerCount() noexcept
{
    return static_cast<unsigned>(std::max(omp_get_max_threads(), 1));
}

void tev::platform::RunOnWorkers(unsigned workers, void (*work)(void* context) noexcept, void* context) noexcept
{
#pragma omp parallel num_threads(static_cast <int>(workers))
    work(context);
}
