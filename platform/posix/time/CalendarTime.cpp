#include "platform/CalendarTime.h"

#include "platform/posix/text/SystemTextLock.h"

#include <cerrno>
#include <initializer_list>

#include <time.h>

namespace tev::platform
{
namespace
{
// No zone is further from UTC than this, so a time this much before or after has the offset from before or after any
// change of the clock near by.
constexpr std::int64_t kFarthestOffset = 26 * 3600;

bool Convert(std::tm& fields, time_t (*convert)(std::tm*), std::int64_t& seconds) noexcept
{
    const SystemTextGuard guard;
    errno = 0;
    seconds = convert(&fields);
    return seconds != -1 || errno == 0;
}

bool OffsetAt(std::int64_t seconds, std::int64_t& offset) noexcept
{
    std::tm local;
    if (!ToLocalTime(seconds, local))
        return false;
    offset = local.tm_gmtoff;
    return true;
}

/// The C library's result would depend on what it converted last.
bool ResolveLocalTime(std::tm fields, std::int64_t& seconds) noexcept
{
    std::int64_t clock = 0; // the clock's reading as if it were UTC
    std::int64_t before = 0;
    std::int64_t after = 0;
    if (!Convert(fields, timegm, clock) || !OffsetAt(clock - kFarthestOffset, before) ||
        !OffsetAt(clock + kFarthestOffset, after))
        return false;
    std::int64_t offset = 0;
    for (const std::int64_t candidate : {before, after})
    {
        seconds = clock - candidate;
        if (OffsetAt(seconds, offset) && offset == candidate)
            return true;
    }
    seconds = clock - before;
    return true;
}
} // namespace

bool ToLocalTime(std::int64_t seconds, std::tm& fields) noexcept
{
    const SystemTextGuard guard;
    tzset(); // localtime_r looks at the environment only once
    const time_t time = seconds;
    return localtime_r(&time, &fields) != nullptr;
}

bool ToUtcTime(std::int64_t seconds, std::tm& fields) noexcept
{
    const SystemTextGuard guard;
    const time_t time = seconds;
    return gmtime_r(&time, &fields) != nullptr;
}

bool FromLocalTime(const std::tm& fields, std::int64_t& seconds) noexcept
{
    if (fields.tm_isdst < 0)
        return ResolveLocalTime(fields, seconds);
    std::tm copy = fields;
    return Convert(copy, mktime, seconds);
}
} // namespace tev::platform
