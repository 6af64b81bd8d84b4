#pragma once

// Takes the place of the C library's allocation functions in this program and the libraries that it loads.
namespace tev::trials
{
/// From now on allocations are counted; the n-th one fails, and with `all` those after it. 0 lets none fail.
void StartFailing(unsigned n, bool all) noexcept;
void StopFailing() noexcept;
/// Of the allocations since StartFailing.
unsigned CountedAllocations() noexcept;
} // namespace tev::trials
