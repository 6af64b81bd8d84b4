#include "platform/CalendarTime.h"

#include "tests/support/TimeZone.h"

#include <random>

namespace
{
using namespace tev::test;
using namespace tev::platform;

std::tm LocalFields(std::int64_t seconds)
{
    std::tm fields = {};
    const time_t time = seconds;
    localtime_r(&time, &fields);
    return fields;
}

/// By trying every quarter of an hour's offset that the zone has anywhere near.
std::int64_t FirstTimeOf(const std::tm& fields)
{
    tzset();
    std::tm copy = fields;
    const std::int64_t clock = timegm(&copy);
    constexpr std::int64_t kAround = 26 * 3600;
    std::int64_t first = std::numeric_limits<std::int64_t>::max();
    for (std::int64_t near = -kAround; near <= kAround; near += 900)
    {
        const std::int64_t candidate = clock - LocalFields(clock + near).tm_gmtoff;
        if (LocalFields(candidate).tm_gmtoff == clock - candidate)
            first = std::min(first, candidate);
    }
    const bool isLeftOut = first == std::numeric_limits<std::int64_t>::max();
    return isLeftOut ? clock - LocalFields(clock - kAround).tm_gmtoff : first;
}

TEST(CalendarTime, LocalTimesOfKnownDaysAreThoseOfTheCLibrary)
{
    constexpr const char* kZones[] = {"CET-1CEST", // which needs no file of zones, as do the following ones
                                      "Europe/Paris",
                                      "America/New_York",
                                      "Australia/Lord_Howe",
                                      "Pacific/Apia",
                                      "America/Noronha",
                                      "Africa/Casablanca",
                                      "Asia/Pyongyang",
                                      "right/Europe/London",
                                      "EST5EDT,J100/0,J101/0",
                                      "",
                                      ":",
                                      "America/Sao_Paulo"};
    std::mt19937 random(20);
    for (unsigned round = 0; round < 400; ++round)
    {
        const TimeZone zone(kZones[random() % std::size(kZones)]);
        std::tm day = {};
        // Of changes of the clock some are on the last days of March and October, the others anywhere.
        const bool isLikely = round % 2 == 0;
        day.tm_year = static_cast<int>(80 + random() % 127);
        day.tm_mon = static_cast<int>(isLikely ? 2 + 7 * (random() % 2) : random() % 12);
        day.tm_mday = static_cast<int>(isLikely ? 25 + random() % 7 : 1 + random() % 31);
        day.tm_isdst = -1;
        for (unsigned i = 0; i < 6; ++i)
        {
            day.tm_hour = static_cast<int>(i % 2 == 0 ? random() % 5 : random() % 26);
            day.tm_min = static_cast<int>(random() % 60);
            day.tm_sec = static_cast<int>(random() % 62);
            std::int64_t seconds = 0;
            ASSERT_TRUE(FromLocalTime(day, seconds));
            ASSERT_EQ(seconds, FirstTimeOf(day)) << std::getenv("TZ") << ' ' << day.tm_year << '-' << day.tm_mon << '-'
                                                 << day.tm_mday << ' ' << day.tm_hour << ':' << day.tm_min;
        }
    }
}
} // namespace
