#include "values/CXTime.h"

#include "files/CXArchive.h"
#include "objects/CXException.h"
#include "objects/FailureNote.h"
#include "platform/CalendarTime.h"

#include <cwchar>
#include <limits>

namespace
{
namespace platform = tev::platform;

constexpr size_t kFormatCapacity = 256; // with the terminator

__int64 SecondsOf(const std::tm& local)
{
    std::int64_t seconds = 0;
    if (!platform::FromLocalTime(local, seconds) || seconds == -1)
        CXInvalidArgException::Throw();
    return seconds;
}

int Lowered(int value, int by)
{
    if (value < std::numeric_limits<int>::min() + by)
        CXInvalidArgException::Throw();
    return value - by;
}

std::tm Fields(int year, int month, int day, int hour, int minute, int second, int daylightSaving)
{
    std::tm fields = {};
    fields.tm_year = Lowered(year, 1900);
    fields.tm_mon = Lowered(month, 1);
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    fields.tm_isdst = daylightSaving;
    return fields;
}

using Conversion = bool (*)(std::int64_t, std::tm&) noexcept;

bool Fill(const char* operation, Conversion convert, __int64 time, std::tm* fields)
{
    if (fields == nullptr)
        CXInvalidArgException::Throw();
    return convert(time, *fields) || tev::NoteBadArgument(operation);
}

// An empty text is what some formats give in some locales.
bool IsTooLong(const wchar_t* format, const std::tm& fields)
{
    wchar_t text[kFormatCapacity + 1];
    return std::wcsftime(text, kFormatCapacity + 1, CXTString<wchar_t>(L' ', 1) + format, &fields) == 0;
}

CXTString<wchar_t> FormatTime(const char* operation, Conversion convert, __int64 time, const wchar_t* format)
{
    std::tm fields;
    if (format == nullptr || !convert(time, fields))
    {
        tev::NoteBadArgument(operation);
        return format;
    }
    wchar_t text[kFormatCapacity];
    const size_t length = std::wcsftime(text, kFormatCapacity, format, &fields);
    if (length == 0 && IsTooLong(format, fields))
        tev::NoteBadArgument(operation);
    return CXTString<wchar_t>(text, static_cast<int>(length));
}
} // namespace

CXTime::CXTime(const std::tm* local) : m_time(local == nullptr ? 0 : SecondsOf(*local)) {}

CXTime::CXTime(int year, int month, int day, int hour, int minute, int second, int daylightSaving)
    : m_time(SecondsOf(Fields(year, month, day, hour, minute, second, daylightSaving)))
{
}

CXTime CXTime::GetTickCount() noexcept
{
    return std::time(nullptr);
}

bool CXTime::GetUTCTm(std::tm* utc) const
{
    return Fill("CXTime::GetUTCTm", platform::ToUtcTime, m_time, utc);
}

bool CXTime::GetLocalTm(std::tm* local) const
{
    return Fill("CXTime::GetLocalTm", platform::ToLocalTime, m_time, local);
}

template <class Part>
int CXTime::LocalPart(Part part, int failure) const noexcept
{
    std::tm fields;
    if (platform::ToLocalTime(m_time, fields))
        return part(fields);
    tev::NoteBadArgument("CXTime::GetLocalTm");
    return failure;
}

int CXTime::GetYear() const noexcept
{
    // The last years that the structure holds do not fit an int.
    const auto year = [](const std::tm& fields) {
        return static_cast<int>(static_cast<unsigned>(fields.tm_year) + 1900);
    };
    return LocalPart(year, 0);
}

int CXTime::GetMonth() const noexcept
{
    return LocalPart([](const std::tm& fields) { return fields.tm_mon; }, 0);
}

int CXTime::GetDay() const noexcept
{
    return LocalPart([](const std::tm& fields) { return fields.tm_mday; }, 0);
}

int CXTime::GetHour() const noexcept
{
    return LocalPart([](const std::tm& fields) { return fields.tm_hour; }, -1);
}

int CXTime::GetMinute() const noexcept
{
    return LocalPart([](const std::tm& fields) { return fields.tm_min; }, -1);
}

int CXTime::GetSecond() const noexcept
{
    return LocalPart([](const std::tm& fields) { return fields.tm_sec; }, -1);
}

int CXTime::GetDayOfWeek() const noexcept
{
    return LocalPart([](const std::tm& fields) { return fields.tm_wday + 1; }, 0);
}

CXTString<wchar_t> CXTime::Format(const wchar_t* format) const
{
    return FormatTime("CXTime::Format", platform::ToLocalTime, m_time, format);
}

CXTString<wchar_t> CXTime::FormatGmt(const wchar_t* format) const
{
    return FormatTime("CXTime::FormatGmt", platform::ToUtcTime, m_time, format);
}

void CXTime::Serialize(CXArchive& archive)
{
    if (archive.IsStoring())
        archive << m_time;
    else
        archive >> m_time;
}

CXArchive& operator<<(CXArchive& archive, const CXTime& time)
{
    if (archive.IsLoading())
        return archive << time.GetTime();         // which the archive refuses
    const_cast<CXTime&>(time).Serialize(archive); // which changes nothing
    return archive;
}

CXArchive& operator>>(CXArchive& archive, CXTime& time)
{
    __int64 seconds = 0;
    if (archive.IsStoring())
        return archive >> seconds;
    time.Serialize(archive);
    return archive;
}

CXArchive& operator<<(CXArchive& archive, const CXDuration& span)
{
    return archive << span.GetTotalSeconds();
}

CXArchive& operator>>(CXArchive& archive, CXDuration& span)
{
    __int64 seconds = 0;
    archive >> seconds;
    span = seconds;
    return archive;
}
