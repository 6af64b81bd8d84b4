#pragma once

#include "objects/CXException.h"

#include <new>

namespace tev
{
/// What `work` answers, or `failure` where it throws an exception of the library or finds no memory. A lack of memory is
/// an exception of the library in a process whose crashes are reported, and one of the language in others.
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
