#include "services/Version.h"

unsigned XGetVersion() noexcept
{
    return TEVTOOLS_VERSION;
}
