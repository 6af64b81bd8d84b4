#pragma once

#include "text/CXTString.h"
#include "values/CXDuration.h"

#include <ctime>
#include <type_traits>

/// A moment: seconds since 1970-01-01 00:00:00 UTC, of any sign. Local time is that of the environment's time zone when it
/// is asked for, so a change of zone takes effect at once. Arithmetic wraps around at 64 bits.
/// Converts from and to the moments of std::chrono::system_clock, as CXDuration does from and to spans; fractions of seconds
/// are rounded down.
/// One thread at a time; the conversions of several objects may run at once. XLastFailure() says that one failed.
class TEVTOOLS_API CXTime
{
public:
    CXTime() = default;
    template <class Integer, std::enable_if_t<std::is_integral_v<Integer>, int> = 0>
    CXTime(Integer seconds) noexcept : m_time(static_cast<__int64>(seconds))
    {
    }
    /// From local time, as below; null gives 0.
    CXTime(const struct tm* local);
    /// From local time; months count from 1. With a negative flag, a time that occurs twice because the clock was set back
    /// is the first of the two, and one that was skipped because it was set forward is that much later.
    /// What cannot be converted, and the second before 1970 (as UTC), is an invalid argument.
    CXTime(int year, int month, int day, int hour, int minute, int second, int daylightSaving);
    template <class POINT, std::enable_if_t<tev::kIsChronoMoment<POINT> && tev::kIsInSeconds<POINT>, int> = 0>
    CXTime(const POINT& moment) noexcept : m_time(tev::SecondsOf(moment.time_since_epoch(), true))
    {
    }
    template <class POINT, class = std::enable_if_t<tev::kIsChronoMoment<POINT> && !tev::kIsInSeconds<POINT>>>
    explicit CXTime(const POINT& moment) noexcept : m_time(tev::SecondsOf(moment.time_since_epoch(), true))
    {
    }
    CXTime(const CXTime&) = default;
    CXTime& operator=(const CXTime&) = default;
    virtual ~CXTime() = default;

    /// The present time. It is in seconds, whatever the name says.
    static CXTime GetTickCount() noexcept;

    __int64 GetTime() const noexcept { return m_time; }
    template <class POINT, class = std::enable_if_t<tev::kIsChronoMoment<POINT>>>
    explicit operator POINT() const noexcept
    {
        return POINT(tev::SpanOf<typename POINT::duration>(m_time));
    }
    CXTime& operator=(__int64 seconds) noexcept
    {
        m_time = seconds;
        return *this;
    }

    CXDuration operator-(const CXTime& other) const noexcept { return Span() - other.Span(); }
    CXTime operator+(const CXDuration& span) const noexcept { return (Span() + span).GetDuration(); }
    CXTime operator-(const CXDuration& span) const noexcept { return (Span() - span).GetDuration(); }

    bool operator==(const CXTime& other) const noexcept { return m_time == other.m_time; }
    bool operator!=(const CXTime& other) const noexcept { return m_time != other.m_time; }
    bool operator<(const CXTime& other) const noexcept { return m_time < other.m_time; }
    bool operator>(const CXTime& other) const noexcept { return m_time > other.m_time; }
    bool operator<=(const CXTime& other) const noexcept { return m_time <= other.m_time; }
    bool operator>=(const CXTime& other) const noexcept { return m_time >= other.m_time; }

    /// False, with the structure unspecified, when the year does not fit. A null pointer is an invalid argument.
    bool GetUTCTm(struct tm* utc) const;
    bool GetLocalTm(struct tm* local) const;

    // Parts of the local time. When it cannot be had, hour, minute and second are -1 and the others 0.

    int GetYear() const noexcept;
    /// 0 for January to 11 for December, although the constructor counts from 1; callers rely on it.
    int GetMonth() const noexcept;
    int GetDay() const noexcept;
    int GetHour() const noexcept;
    int GetMinute() const noexcept;
    int GetSecond() const noexcept;
    /// 1 for Sunday to 7 for Saturday.
    int GetDayOfWeek() const noexcept;
    /// Whole days since 1970-01-01 UTC, toward zero.
    __int64 GetElapsedDays() const noexcept { return m_time / 86400; }

    /// The local time in the manner of wcsftime, names in the C library's current locale. Empty for a null format and for
    /// a result of more than 255 characters; the format itself for a time that cannot be converted.
    CXTString<wchar_t> Format(const wchar_t* format) const;
    /// As Format, in UTC.
    CXTString<wchar_t> FormatGmt(const wchar_t* format) const;

    /// Reads or writes the seconds as a signed number of 64 bits.
    virtual void Serialize(CXArchive& archive);

private:
    CXDuration Span() const noexcept { return m_time; }
    template <class Part>
    int LocalPart(Part part, int failure) const noexcept;

    __int64 m_time = 0;
};

/// As Serialize, which they call.
TEVTOOLS_API CXArchive& operator<<(CXArchive& archive, const CXTime& time);
TEVTOOLS_API CXArchive& operator>>(CXArchive& archive, CXTime& time);

/// "2026-11-22T10:16:31Z", in UTC and in any locale; "@" and the seconds where the year does not fit. Reading takes what
/// writing gives; of anything else the stream fails, and the time stays as it was.
template <class CHAR, class TRAITS>
std::basic_ostream<CHAR, TRAITS>& operator<<(std::basic_ostream<CHAR, TRAITS>& stream, const CXTime& time)
{
    return stream << tev::TimeText::OfMoment(time.GetTime()).Get();
}
template <class CHAR, class TRAITS>
std::basic_istream<CHAR, TRAITS>& operator>>(std::basic_istream<CHAR, TRAITS>& stream, CXTime& time)
{
    __int64 seconds = time.GetTime();
    tev::TimeText::Read(stream, tev::TimeText::ToMoment, seconds);
    time = seconds;
    return stream;
}
