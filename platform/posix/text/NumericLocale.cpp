#include "platform/NumericLocale.h"

#include <langinfo.h>

// localeconv would answer too, but it writes to a record that all threads share.
const char* tev::platform::DecimalPoint() noexcept
{
    return nl_langinfo(RADIXCHAR);
}
