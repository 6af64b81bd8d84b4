#include "tests/support/Sanitized.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
/// The C library frees what it keeps of a thread's dlerror when nothing points to it any more: a check at that moment would
/// see a leak.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:_dlerror_run\n";
}
#endif
#endif
