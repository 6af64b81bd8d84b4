#pragma once

#include "objects/CXException.h"
#include "platform/Cancellation.h"
#include "platform/ForcedUnwind.h"

namespace tev
{
/// Does the work and swallows what it throws: a report is made of whatever can be gathered. False when something was thrown.
/// The thread's pending exception is left alone where the work does not throw another one of the library.
template <class Work>
bool Attempt(const Work& work)
{
    const platform::WithoutCancellation whole; // which must not be swallowed
    try
    {
        work();
        return true;
    }
    catch (const platform::ForcedUnwind&) // by a function of the host
    {
        throw;
    }
    catch (CXException* exception)
    {
        exception->Delete();
    }
    catch (...) // NOLINT(bugprone-empty-catch)
    {
    }
    return false;
}
} // namespace tev
