#pragma once

#include "tests/support/Testing.h"

namespace tev::test
{
/// Calls the work on so many threads at once, each with its number, and waits for them.
template <class Work>
void OnThreads(int count, const Work& work)
{
    std::vector<std::thread> threads;
    for (int number = 0; number < count; ++number)
        threads.emplace_back([&work, number] { work(number); });
    for (std::thread& thread : threads)
        thread.join();
}
} // namespace tev::test
