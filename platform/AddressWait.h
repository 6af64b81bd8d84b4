#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace tev::platform
{
/// Blocks while the word holds the value. Returns when woken, at once when the word holds another value, after the
/// time-out, and sometimes spuriously: the caller checks again.
void WaitWhile(const std::atomic<std::uint32_t>& word, std::uint32_t value) noexcept;
void WaitWhile(const std::atomic<std::uint32_t>& word, std::uint32_t value, std::chrono::nanoseconds timeout) noexcept;

/// Wakes one or all of the threads that wait on the word. Only the address is used: the word itself may have been freed.
void WakeOne(const std::atomic<std::uint32_t>& word) noexcept;
void WakeAll(const std::atomic<std::uint32_t>& word) noexcept;
} // namespace tev::platform
