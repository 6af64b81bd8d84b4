#pragma once

#include "base/TevTypes.h"

#include <cstddef>
#include <iosfwd>
#include <limits>
#include <type_traits>
#include <utility>

class CXArchive;

namespace tev
{
// Spans and moments of std::chrono, known by their members: that header is read only where it is used.

template <class SPAN, class = void>
inline constexpr bool kIsChronoSpan = false;
template <class SPAN>
inline constexpr bool kIsChronoSpan<
    SPAN, std::void_t<typename SPAN::rep, typename SPAN::period, decltype(std::declval<const SPAN&>().count())>> =
    SPAN::period::num == 1 || SPAN::period::den == 1;

/// Of the system's clock, the only one that tells the date.
template <class POINT, class = void>
inline constexpr bool kIsChronoMoment = false;
template <class POINT>
inline constexpr bool kIsChronoMoment<
    POINT, std::void_t<typename POINT::duration, decltype(std::declval<const POINT&>().time_since_epoch()),
                       decltype(POINT::clock::to_time_t(std::declval<const typename POINT::clock::time_point&>()))>> =
    kIsChronoSpan<typename POINT::duration>;

/// A whole number of seconds, whatever the count.
template <class SPAN, class = void>
inline constexpr bool kIsInSeconds = false;
template <class SPAN>
inline constexpr bool kIsInSeconds<SPAN, std::void_t<typename SPAN::rep, typename SPAN::period>> =
    SPAN::period::den == 1 && std::is_integral_v<typename SPAN::rep>;

/// Toward zero; a number that does not fit becomes the largest or smallest that does.
template <class TO>
constexpr TO LimitedTo(double value) noexcept
{
    constexpr double kLimit = static_cast<double>(std::numeric_limits<TO>::max());
    if (value >= kLimit)
        return std::numeric_limits<TO>::max();
    return value > -kLimit ? static_cast<TO>(value) : std::numeric_limits<TO>::lowest();
}

template <class SPAN>
constexpr __int64 SecondsOf(SPAN span, bool roundsDown) noexcept
{
    using Period = typename SPAN::period;
    using Seconds = std::conditional_t<std::is_integral_v<typename SPAN::rep>, __int64, double>;
    const auto count = static_cast<Seconds>(span.count());
    if constexpr (std::is_same_v<Seconds, double>)
    {
        const double seconds = count * Period::num / Period::den;
        const auto whole = LimitedTo<__int64>(seconds);
        return whole - (roundsDown && static_cast<double>(whole) > seconds ? 1 : 0);
    }
    else
    {
        // Multiplied, it wraps around as all arithmetic does here.
        const auto units = static_cast<unsigned __int64>(count) * static_cast<unsigned __int64>(Period::num);
        return static_cast<__int64>(units) / Period::den - (roundsDown && count % Period::den < 0 ? 1 : 0);
    }
}

template <class SPAN>
constexpr SPAN SpanOf(__int64 seconds) noexcept
{
    using Period = typename SPAN::period;
    using Count = typename SPAN::rep;
    if constexpr (std::is_integral_v<Count>)
    {
        using Limits = std::numeric_limits<Count>;
        constexpr auto kMost = static_cast<unsigned __int64>(Limits::max()) / Period::den;
        constexpr auto kLeast = static_cast<__int64>(Limits::lowest()) / Period::den;
        const __int64 whole = seconds / Period::num;
        if (whole < kLeast)
            return SPAN(Limits::lowest());
        if (whole > 0 && static_cast<unsigned __int64>(whole) > kMost)
            return SPAN(Limits::max());
        return SPAN(static_cast<Count>(static_cast<Count>(whole) * static_cast<Count>(Period::den)));
    }
    else
        return SPAN(static_cast<Count>(seconds) * static_cast<Count>(Period::den) / static_cast<Count>(Period::num));
}

/// A span or a moment in words.
class TEVTOOLS_API TimeText
{
public:
    static TimeText OfSpan(__int64 seconds) noexcept;
    static TimeText OfMoment(__int64 seconds) noexcept;
    const char* Get() const noexcept { return m_text; }

    /// What the other direction gives. False, with `seconds` as they were, for anything else.
    static bool ToSpan(const char* text, __int64& seconds) noexcept;
    static bool ToMoment(const char* text, __int64& seconds) noexcept;

    /// Reads white space and then characters as long as they may belong to a text, and converts these.
    template <class STREAM, class CONVERT>
    static STREAM& Read(STREAM& stream, CONVERT convert, __int64& seconds)
    {
        if (!typename STREAM::sentry(stream))
            return stream;
        TimeText text;
        std::size_t length = 0;
        auto next = stream.rdbuf()->sgetc();
        for (; length < sizeof(m_text) - 1 && IsPart(next); next = stream.rdbuf()->snextc())
            text.m_text[length++] = static_cast<char>(next);
        text.m_text[length] = '\0';
        auto state = STREAM::goodbit;
        if (STREAM::traits_type::eq_int_type(next, STREAM::traits_type::eof()))
            state |= STREAM::eofbit;
        if (!convert(text.m_text, seconds))
            state |= STREAM::failbit;
        stream.setstate(state);
        return stream;
    }

private:
    template <class CODE>
    static bool IsPart(CODE code) noexcept
    {
        return (code >= '0' && code <= ':') || code == '-' || code == '@' || code == 'T' || code == 'Z';
    }

    char m_text[48];
};
} // namespace tev

/// A span of seconds, which may be negative. Divisions truncate toward zero, so the parts of a negative span are zero or
/// negative. Arithmetic wraps around at 64 bits. One thread at a time.
///
/// Converts from the spans of std::chrono, without a word where those are whole seconds, and to them by their name. Fractions
/// of seconds are cut off, and what a span of std::chrono cannot hold becomes the longest that it can.
class CXDuration
{
public:
    constexpr CXDuration() noexcept = default;
    constexpr CXDuration(__int64 seconds) noexcept : m_seconds(seconds) {}
    constexpr CXDuration(int days, int hours, int minutes, int seconds) noexcept
        : m_seconds(((days * kHoursPerDay + hours) * 60 + minutes) * 60 + seconds)
    {
    }

    template <class SPAN, std::enable_if_t<tev::kIsChronoSpan<SPAN> && tev::kIsInSeconds<SPAN>, int> = 0>
    constexpr CXDuration(const SPAN& span) noexcept : m_seconds(tev::SecondsOf(span, false))
    {
    }
    template <class SPAN, std::enable_if_t<tev::kIsChronoSpan<SPAN> && !tev::kIsInSeconds<SPAN>, int> = 0>
    constexpr explicit CXDuration(const SPAN& span) noexcept : m_seconds(tev::SecondsOf(span, false))
    {
    }
    template <class SPAN, class = std::enable_if_t<tev::kIsChronoSpan<SPAN>>>
    constexpr explicit operator SPAN() const noexcept
    {
        return tev::SpanOf<SPAN>(m_seconds);
    }

    constexpr __int64 GetDays() const noexcept { return m_seconds / 86400; }
    constexpr __int64 GetTotalHours() const noexcept { return m_seconds / 3600; }
    constexpr __int64 GetTotalMinutes() const noexcept { return m_seconds / 60; }
    constexpr __int64 GetTotalSeconds() const noexcept { return m_seconds; }
    constexpr __int64 GetDuration() const noexcept { return m_seconds; }

    // What is left of the next larger unit: -23 to 23 hours, -59 to 59 minutes and seconds.

    constexpr __int64 GetHours() const noexcept { return GetTotalHours() - GetDays() * kHoursPerDay; }
    constexpr __int64 GetMinutes() const noexcept { return GetTotalMinutes() - GetTotalHours() * 60; }
    constexpr __int64 GetSeconds() const noexcept { return m_seconds - GetTotalMinutes() * 60; }

    constexpr CXDuration operator+(const CXDuration& other) const noexcept
    {
        return Wrapped(Bits(m_seconds) + Bits(other.m_seconds));
    }
    constexpr CXDuration operator-(const CXDuration& other) const noexcept
    {
        return Wrapped(Bits(m_seconds) - Bits(other.m_seconds));
    }
    CXDuration& operator+=(const CXDuration& other) noexcept { return *this = *this + other; }
    CXDuration& operator-=(const CXDuration& other) noexcept { return *this = *this - other; }

    constexpr bool operator==(const CXDuration& other) const noexcept { return m_seconds == other.m_seconds; }
    constexpr bool operator!=(const CXDuration& other) const noexcept { return m_seconds != other.m_seconds; }
    constexpr bool operator<(const CXDuration& other) const noexcept { return m_seconds < other.m_seconds; }
    constexpr bool operator>(const CXDuration& other) const noexcept { return m_seconds > other.m_seconds; }
    constexpr bool operator<=(const CXDuration& other) const noexcept { return m_seconds <= other.m_seconds; }
    constexpr bool operator>=(const CXDuration& other) const noexcept { return m_seconds >= other.m_seconds; }

private:
    static constexpr __int64 kHoursPerDay = 24;

    static constexpr unsigned __int64 Bits(__int64 seconds) noexcept { return static_cast<unsigned __int64>(seconds); }
    static constexpr CXDuration Wrapped(unsigned __int64 bits) noexcept { return static_cast<__int64>(bits); }

    __int64 m_seconds = 0;
};

/// The seconds as a signed number of 64 bits, as CXTime::Serialize writes them.
TEVTOOLS_API CXArchive& operator<<(CXArchive& archive, const CXDuration& span);
TEVTOOLS_API CXArchive& operator>>(CXArchive& archive, CXDuration& span);

/// "26:03:04" for 26 hours, 3 minutes, 4 seconds; a negative span begins with '-'. Reading takes what writing gives; of
/// anything else the stream fails, and the span stays as it was.
template <class CHAR, class TRAITS>
std::basic_ostream<CHAR, TRAITS>& operator<<(std::basic_ostream<CHAR, TRAITS>& stream, const CXDuration& span)
{
    return stream << tev::TimeText::OfSpan(span.GetTotalSeconds()).Get();
}
template <class CHAR, class TRAITS>
std::basic_istream<CHAR, TRAITS>& operator>>(std::basic_istream<CHAR, TRAITS>& stream, CXDuration& span)
{
    __int64 seconds = span.GetTotalSeconds();
    tev::TimeText::Read(stream, tev::TimeText::ToSpan, seconds);
    span = seconds;
    return stream;
}
