#pragma once

#include "objects/CXException.h"

#include <new>

namespace tev
{
/// The result of `work`, or `failure` where it throws an exception of the library or std::bad_alloc. A lack of memory
/// is reported by the former in a process that has the crash handler installed, and by the latter in all others.
template <class RESULT, class WORK>
RESULT ResultOr(RESULT failure, WORK&& work)
{
    try
    {
        return work();
    }
    catch (CXException* exception)
    {
        exception->Delete();
    }
    catch (const std::bad_alloc&)
    {
    }
    return failure;
}
} // namespace tev
