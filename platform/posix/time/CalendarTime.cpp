#include "platform/CalendarTime.h"

#include "platform/posix/text/SystemTextLock.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <sys/stat.h>
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
    errno = 0;
    seconds = convert(&fields);
    return seconds != -1 || errno == 0;
}

bool OffsetAt(std::int64_t seconds, std::int64_t& offset) noexcept
{
    std::tm local;
    const time_t time = seconds;
    if (localtime_r(&time, &local) == nullptr)
        return false;
    offset = local.tm_gmtoff;
    return true;
}

/// The C library's result would depend on what it converted last.
bool ResolveLocalTime(std::tm fields, std::int64_t& seconds) noexcept
{
    tzset();                // localtime_r looks at the environment only once
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

/// What the C library looks at to find out that the system's own zone is another one now.
struct ZoneFile
{
    dev_t m_device = 0;
    ino_t m_number = 0;
    timespec m_changed = {};

    static ZoneFile Look() noexcept
    {
        struct stat status;
        if (stat("/etc/localtime", &status) != 0)
            return {};
        return {status.st_dev, status.st_ino, status.st_mtim};
    }
    bool operator==(const ZoneFile& other) const noexcept
    {
        return m_device == other.m_device && m_number == other.m_number && m_changed.tv_sec == other.m_changed.tv_sec &&
               m_changed.tv_nsec == other.m_changed.tv_nsec;
    }
};

/// When local days begin, of days that were asked for repeatedly, as are those of the files of an archive. All calls within
/// the lock of the C library's zones.
class KnownDays
{
public:
    /// As ResolveLocalTime.
    bool Resolve(const std::tm& fields, std::int64_t& seconds) noexcept
    {
        if (!IsOfOneDay(fields) || !HasZone())
            return ResolveLocalTime(fields, seconds);
        const std::int32_t number = (fields.tm_year * 12 + fields.tm_mon) * 32 + fields.tm_mday;
        Day& day = m_days[static_cast<std::size_t>(number) % kDays];
        if (day.m_number != number)
            day = {number, Length::Unknown, 0};
        else if (day.m_length == Length::Unknown)
            Measure(fields, day);
        if (day.m_length != Length::Plain)
            return ResolveLocalTime(fields, seconds);
        seconds = day.m_begin + (fields.tm_hour * 60 + fields.tm_min) * 60 + fields.tm_sec;
        return true;
    }

private:
    enum class Length
    {
        Unknown,
        Plain, ///< 24 hours: the clock is not changed, as no zone changes it twice in a day
        Other
    };
    struct Day
    {
        std::int32_t m_number;
        Length m_length;
        std::int64_t m_begin;
    };
    static constexpr std::size_t kDays = 256;
    static constexpr std::size_t kZoneSize = 64;

    static bool IsOfOneDay(const std::tm& fields) noexcept
    {
        constexpr int kYears = 1000; // far from the limits of everything
        return fields.tm_year > 0 && fields.tm_year < kYears && fields.tm_mon >= 0 && fields.tm_mon < 12 &&
               fields.tm_mday > 0 && fields.tm_mday < 32 && fields.tm_hour >= 0 && fields.tm_hour < 24 &&
               fields.tm_min >= 0 && fields.tm_min < 60 && fields.tm_sec >= 0 && fields.tm_sec < 60;
    }

    static void Measure(std::tm fields, Day& day) noexcept
    {
        constexpr std::int64_t kPlainLength = 24 * 3600;
        fields.tm_hour = fields.tm_min = fields.tm_sec = 0;
        std::tm next = fields;
        ++next.tm_mday;
        std::int64_t end = 0;
        const bool isPlain =
            ResolveLocalTime(fields, day.m_begin) && ResolveLocalTime(next, end) && end - day.m_begin == kPlainLength;
        day.m_length = isPlain ? Length::Plain : Length::Other;
    }

    /// Forgets what is known of another zone. False for zones whose rules the environment gives: these may be anything.
    bool HasZone() noexcept
    {
        const char* const given = std::getenv("TZ");
        const char* const zone = given != nullptr ? given : "\n";
        const ZoneFile file = given != nullptr ? ZoneFile() : ZoneFile::Look();
        if (std::strcmp(zone, m_zone) == 0 && file == m_file)
            return true;
        const std::size_t length = std::strlen(zone);
        if (length >= kZoneSize || std::strchr(zone, ',') != nullptr)
            return false;
        std::memcpy(m_zone, zone, length + 1);
        m_file = file;
        std::memset(m_days, 0, sizeof m_days);
        return true;
    }

    char m_zone[kZoneSize] = {};
    ZoneFile m_file; ///< of the system's own zone, where the environment names none
    Day m_days[kDays] = {};
};

KnownDays& GetKnownDays() noexcept
{
    static KnownDays days;
    return days;
}
} // namespace

bool ToLocalTime(std::int64_t seconds, std::tm& fields) noexcept
{
    const SystemTextGuard guard;
    tzset();
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
    const SystemTextGuard guard;
    if (fields.tm_isdst < 0)
        return GetKnownDays().Resolve(fields, seconds);
    std::tm copy = fields;
    return Convert(copy, mktime, seconds);
}
} // namespace tev::platform
