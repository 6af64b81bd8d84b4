#pragma once

#include "core/CXFileException.h"

#include <utility>

namespace tev::test
{

constexpr int kNothingThrown = -1;
constexpr int kInvalidArgument = -2;
constexpr int kNoMemory = -3;

/// What a call throws: a file exception's cause, or one of the values above. The exception is deleted.
template <class Call>
int Thrown(Call&& call)
{
    try
    {
        std::forward<Call>(call)();
    }
    catch (CXFileException* e)
    {
        const int cause = static_cast<int>(e->GetCause());
        e->Delete();
        return cause;
    }
    catch (CXInvalidArgException* e)
    {
        e->Delete();
        return kInvalidArgument;
    }
    catch (CXMemoryException* e)
    {
        e->Delete();
        return kNoMemory;
    }
    return kNothingThrown;
}

} // namespace tev::test
