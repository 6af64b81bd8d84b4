#pragma once

#include "tests/support/Testing.h"
#include "threads/CXThread.h"

namespace tev::test
{
constexpr unsigned kLongTimeMs = 30000; ///< after which a test gives up waiting

/// Waits until the condition holds; false when it does not within a long time.
template <class CONDITION>
bool Eventually(CONDITION condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kLongTimeMs);
    while (!condition())
    {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        CXThread::SleepCurrentThread(1);
    }
    return true;
}
} // namespace tev::test
