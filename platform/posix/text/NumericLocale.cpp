#include "platform/NumericLocale.h"

#include <langinfo.h>

// Not localeconv, which writes to a record that all threads share.
const char* tev::platform::DecimalPoint() noexcept
{
    return nl_langinfo(RADIXCHAR);
}
