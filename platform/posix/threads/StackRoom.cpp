#include "platform/StackRoom.h"

#include <pthread.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace
{
constexpr std::uintptr_t kLargestReserve = 0x10000;
constexpr std::uintptr_t kAssumedRoom = 0x30000; ///< less than any stack on which something recurses deeply

struct Stack
{
    std::uintptr_t m_lowest;
    std::uintptr_t m_end; ///< 0 when it is not known
};

Stack StackOfThread() noexcept
{
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        return {};
    void* lowest = nullptr;
    std::size_t size = 0;
    const bool known = pthread_attr_getstack(&attributes, &lowest, &size) == 0;
    pthread_attr_destroy(&attributes);
    const auto start = reinterpret_cast<std::uintptr_t>(lowest);
    return known ? Stack{start, start + size} : Stack{};
}
} // namespace

bool tev::platform::HasStackRoom() noexcept
{
    thread_local Stack stack = {}; // costs a system call, for the first thread a file
    thread_local bool isKnown = false;
    // Not the address of a variable: a sanitizer may keep these elsewhere.
    const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    if (!isKnown)
    {
        const Stack found = StackOfThread();
        isKnown = found.m_end != 0;
        if (isKnown)
            stack = found;
        else if (here >= stack.m_end) // for the moment: memory or descriptors may be had again
            stack = {here - kAssumedRoom, here + 1};
    }
    if (here < stack.m_lowest || here >= stack.m_end)
        return true;
    return here - stack.m_lowest > std::min((stack.m_end - stack.m_lowest) / 4, kLargestReserve);
}
