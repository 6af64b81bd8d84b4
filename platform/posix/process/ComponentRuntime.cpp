#include "platform/ComponentRuntime.h"

bool tev::platform::BeginComponents() noexcept
{
    return true;
}

void tev::platform::EndComponents() noexcept {}
