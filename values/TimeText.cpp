// Times and spans as streams write and read them.

#include "platform/CalendarTime.h"
#include "values/CXDuration.h"

#include <cstdio>
#include <limits>

namespace
{
constexpr unsigned __int64 kDaySeconds = 86400;
constexpr unsigned __int64 kMostSeconds = std::numeric_limits<__int64>::max();

/// Takes a text apart from its start. Where one part is missing all that follow are, too.
class Parts
{
public:
    explicit Parts(const char* text) noexcept : m_at(text) {}

    /// Whether the character comes next, which is taken then.
    bool Has(char character) noexcept
    {
        const bool is = *m_at == character;
        m_at += is ? 1 : 0;
        return is;
    }
    void Take(char character) noexcept { m_isSound = Has(character) && m_isSound; }
    /// A number of that many digits at least, not above `most`.
    unsigned __int64 Number(int digits, unsigned __int64 most) noexcept
    {
        unsigned __int64 number = 0;
        for (; *m_at >= '0' && *m_at <= '9'; ++m_at, --digits)
        {
            const auto digit = static_cast<unsigned>(*m_at - '0');
            m_isSound = m_isSound && number <= (most - digit) / 10 && digit <= most;
            number = number * 10 + digit;
        }
        m_isSound = m_isSound && digits <= 0;
        return number;
    }
    /// A number of two digits.
    unsigned __int64 Pair(unsigned __int64 most) noexcept
    {
        const char* const begin = m_at;
        const unsigned __int64 number = Number(2, most);
        m_isSound = m_isSound && m_at - begin == 2;
        return number;
    }
    bool IsWhole() const noexcept { return m_isSound && *m_at == '\0'; }

private:
    const char* m_at;
    bool m_isSound = true;
};

/// Minutes and seconds, or hours with them.
unsigned __int64 Sixties(Parts& parts, int count) noexcept
{
    unsigned __int64 seconds = 0;
    for (; count != 0; --count)
    {
        parts.Take(':');
        seconds = seconds * 60 + parts.Pair(59);
    }
    return seconds;
}

__int64 Signed(unsigned __int64 size, bool isNegative) noexcept
{
    return static_cast<__int64>(isNegative ? 0 - size : size);
}

/// From 1970-01-01 to a day of the Gregorian calendar. Years begin in March, so that the odd day is a year's last.
__int64 DaysTo(__int64 year, int month, int day) noexcept
{
    year -= month <= 2 ? 1 : 0;
    const __int64 era = (year >= 0 ? year : year - 399) / 400;
    const __int64 yearOfEra = year - era * 400;
    const int dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719468;
}
} // namespace

namespace tev
{
TimeText TimeText::OfSpan(__int64 seconds) noexcept
{
    const bool isNegative = seconds < 0;
    const auto size = isNegative ? 0 - static_cast<unsigned __int64>(seconds) : static_cast<unsigned __int64>(seconds);
    TimeText text;
    std::snprintf(text.m_text, sizeof(text.m_text), "%s%llu:%02llu:%02llu", isNegative ? "-" : "", size / 3600,
                  size / 60 % 60, size % 60);
    return text;
}

TimeText TimeText::OfMoment(__int64 seconds) noexcept
{
    TimeText text;
    std::tm utc;
    if (platform::ToUtcTime(seconds, utc))
        std::snprintf(text.m_text, sizeof(text.m_text), "%04lld-%02d-%02dT%02d:%02d:%02dZ", utc.tm_year + 1900LL,
                      utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
    else
        std::snprintf(text.m_text, sizeof(text.m_text), "@%lld", seconds);
    return text;
}

bool TimeText::ToSpan(const char* text, __int64& seconds) noexcept
{
    Parts parts(text);
    const bool isNegative = parts.Has('-');
    const unsigned __int64 limit = kMostSeconds + (isNegative ? 1 : 0);
    const unsigned __int64 hours = parts.Number(1, limit / 3600) * 3600;
    const unsigned __int64 rest = Sixties(parts, 2);
    if (!parts.IsWhole() || rest > limit - hours)
        return false;
    seconds = Signed(hours + rest, isNegative);
    return true;
}

bool TimeText::ToMoment(const char* text, __int64& seconds) noexcept
{
    constexpr unsigned __int64 kLastYear = 2147485547; // that a broken-down time can have
    Parts parts(text);
    const bool isCount = parts.Has('@');
    const bool isNegative = parts.Has('-');
    if (isCount)
    {
        const unsigned __int64 size = parts.Number(1, kMostSeconds + (isNegative ? 1 : 0));
        if (parts.IsWhole())
            seconds = Signed(size, isNegative);
        return parts.IsWhole();
    }
    const __int64 year = Signed(parts.Number(isNegative ? 3 : 4, kLastYear), isNegative);
    parts.Take('-');
    const auto month = static_cast<int>(parts.Pair(12));
    parts.Take('-');
    const auto day = static_cast<int>(parts.Pair(31));
    parts.Take('T');
    unsigned __int64 time = parts.Pair(23) * 3600;
    time += Sixties(parts, 2);
    parts.Take('Z');
    if (!parts.IsWhole() || month == 0 || day == 0)
        return false;
    const __int64 days = DaysTo(year, month, day);
    if (month != 12 && days >= DaysTo(year, month + 1, 1))
        return false; // the month has no such day
    seconds = days * static_cast<__int64>(kDaySeconds) + static_cast<__int64>(time);
    return true;
}
} // namespace tev
