#include "objects/ThreadUse.h"

#include "platform/ThreadLocks.h"

unsigned tev::NumberOfThisThreadsUse() noexcept
{
    return static_cast<unsigned>(platform::NumberOfThisThread());
}
