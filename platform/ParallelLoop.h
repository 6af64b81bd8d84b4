#pragma once

namespace tev::platform
{
/// The most workers that the parallel run-time would use for one loop. It honours OMP_NUM_THREADS.
unsigned MaxWorkerCount() noexcept;

/// Calls `work(context)` once on each of up to `workers` threads, the calling one among them, and comes back when all
/// have returned. Inside another such call there is the calling thread only.
void RunOnWorkers(unsigned workers, void (*work)(void* context) noexcept, void* context) noexcept;
} // namespace tev::platform
