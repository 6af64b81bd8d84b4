#pragma once

#include "base/TevTypes.h"

/// A span of seconds, which may be negative. Divisions truncate toward zero, so the parts of a negative span are zero or
/// negative. Arithmetic wraps around at 64 bits. One thread at a time.
class CXDuration
{
public:
    constexpr CXDuration() noexcept = default;
    constexpr CXDuration(__int64 seconds) noexcept : m_seconds(seconds) {}
    constexpr CXDuration(int days, int hours, int minutes, int seconds) noexcept
        : m_seconds(((days * kHoursPerDay + hours) * 60 + minutes) * 60 + seconds)
    {
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
