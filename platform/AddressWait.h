#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace tev::platform
{
/// Blocks while the word holds the value. Comes back when woken, at once when the word holds something else, after the
/// time, and sometimes for no reason: the caller looks again.
void WaitWhile(const std::atomic<std::uint32_t>& word, std::uint32_t value) noexcept;
void WaitWhile(const std::atomic<std::uint32_t>& word, std::uint32_t value, std::chrono::nanoseconds timeout) noexcept;

/// Wakes one, or all, that wait on the word. Only the address counts: the word's owner may have gone meanwhile.
void WakeOne(const std::atomic<std::uint32_t>& word) noexcept;
void WakeAll(const std::atomic<std::uint32_t>& word) noexcept;
} // namespace tev::platform
