#pragma once

namespace tev::platform
{
/// The most workers that the parallel run-time would use for one loop. It honours OMP_NUM_THREADS.
unsigned MaxWorkerCount() noexcept;
} // namespace tev::platform
