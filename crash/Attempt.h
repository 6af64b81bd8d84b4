#pragma once

#include "objects/ThreadException.h"
#include "platform/Cancellation.h"

namespace tev
{
/// Does the work and swallows what it throws: a report is made of whatever can be gathered. False when something was thrown.
template <class Work>
bool Attempt(const Work& work) noexcept
{
    const platform::WithoutCancellation whole; // which must not be swallowed
    try
    {
        work();
        return true;
    }
    catch (...)
    {
        XDeleteThreadException();
        return false;
    }
}
} // namespace tev
