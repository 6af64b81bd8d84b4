#include "values/CXTime.h"

#include "arrays/CXArray.h"
#include "platform/ThreadPriority.h"
#include "services/CProfileTimer.h"
#include "services/LogFile.h"
#include "services/ProfileReporter.h"
#include "tests/support/ArchiveTools.h"
#include "tests/support/OnThreads.h"
#include "tests/support/PrintText.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TimeZone.h"

namespace
{
using namespace tev::test;

// Rules written out, so that the tests need no zone files: Paris, New York, Lord Howe (half an hour), and no rule at all.
constexpr const char* kParis = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* kNewYork = "EST5EDT,M3.2.0,M11.1.0";
constexpr const char* kLordHowe = "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0";
constexpr const char* kKolkata = "IST-5:30";

struct LocalCase
{
    const char* m_zone;
    int m_fields[7]; // year to second, daylight-saving flag
    __int64 m_seconds;
};

constexpr LocalCase kLocalCases[] = {
    {kParis, {2024, 7, 1, 12, 0, 0, -1}, 1719828000},     {kParis, {2024, 1, 31, 12, 0, 0, -1}, 1706698800},
    {kParis, {2024, 10, 27, 2, 30, 0, -1}, 1729989000},   // occurs twice: the first
    {kParis, {2024, 10, 27, 2, 30, 0, 0}, 1729992600},    // the second, asked for
    {kParis, {2024, 10, 27, 1, 59, 59, -1}, 1729987199},  // just before
    {kParis, {2024, 10, 27, 3, 0, 0, -1}, 1729994400},    // just behind
    {kParis, {2024, 3, 31, 2, 30, 0, -1}, 1711848600},    // left out: an hour later
    {kParis, {2024, 3, 31, 3, 0, 0, -1}, 1711846800},     // the first behind the gap
    {kNewYork, {2024, 11, 3, 1, 30, 0, -1}, 1730611800},  // occurs twice, west of Greenwich
    {kNewYork, {2024, 3, 10, 2, 30, 0, -1}, 1710055800},  // left out
    {kLordHowe, {2024, 4, 7, 1, 45, 0, -1}, 1712414700},  // occurs twice
    {kLordHowe, {2024, 10, 6, 2, 15, 0, -1}, 1728143100}, // left out
    {kKolkata, {2024, 14, 1, 0, 0, 0, -1}, 1738348200},   // February of the next year
    {"UTC0", {1601, 1, 1, 0, 0, 0, -1}, -11644473600},    {"UTC0", {-5000, 3, 1, 0, 0, 0, -1}, -219946838400},
    {"UTC0", {100000, 1, 1, 0, 0, 0, 0}, 3093527980800},
};

TEST(CXTime, LocalTimeIsConvertedWhateverWasConvertedBefore)
{
    for (const LocalCase& now : kLocalCases)
    {
        const TimeZone zone(now.m_zone);
        const int* f = now.m_fields;
        // What the C library converted last must not show.
        for (const CXTime& before : {CXTime(2023, 1, 15, 0, 0, 0, -1), CXTime(2023, 7, 15, 0, 0, 0, -1)})
        {
            static_cast<void>(before.GetYear());
            EXPECT_EQ(CXTime(f[0], f[1], f[2], f[3], f[4], f[5], f[6]).GetTime(), now.m_seconds)
                << now.m_zone << ' ' << f[0] << '-' << f[1] << '-' << f[2] << ' ' << f[3] << ':' << f[4];
        }
        struct tm fields;
        ASSERT_TRUE(CXTime(now.m_seconds).GetLocalTm(&fields));
        EXPECT_EQ(CXTime(&fields).GetTime(), now.m_seconds) << "with the flag as the library set it";
    }
}

TEST(CXTime, PartsFollowTheZoneOfTheMoment)
{
    const CXTime time(1706742000); // 2024-01-31 23:00:00 UTC, a Wednesday
    {
        const TimeZone zone("UTC0");
        EXPECT_EQ(time.GetYear(), 2024);
        EXPECT_EQ(time.GetMonth(), 0) << "January is 0, although the constructor counts from 1";
        EXPECT_EQ(time.GetDay(), 31);
        EXPECT_EQ(time.GetHour(), 23);
        EXPECT_EQ(time.GetDayOfWeek(), 4);
    }
    const TimeZone zone(kKolkata);
    EXPECT_EQ(time.GetMonth(), 1);
    EXPECT_EQ(time.GetDay(), 1);
    EXPECT_EQ(time.GetHour(), 4);
    EXPECT_EQ(time.GetMinute(), 30);
    EXPECT_EQ(time.GetSecond(), 0);
    EXPECT_EQ(time.GetDayOfWeek(), 5);
    EXPECT_EQ(time.Format(L"%d %H:%M"), L"01 04:30");
    EXPECT_EQ(time.FormatGmt(L"%d %H:%M"), L"31 23:00");
    struct tm fields;
    EXPECT_TRUE(time.GetUTCTm(&fields));
    EXPECT_EQ(fields.tm_hour, 23);
    EXPECT_EQ(CXTime(2024, 1, 31, 12, 0, 0, -1).GetMonth(), 0);
    EXPECT_EQ(CXTime(-86401).GetElapsedDays(), -1);
    EXPECT_EQ(CXTime(86399).GetElapsedDays(), 0);
}

TEST(CXTime, WhatCannotBeConvertedIsReported)
{
    constexpr __int64 kEnd = std::numeric_limits<__int64>::max();
    for (const CXTime& time : {CXTime(kEnd), CXTime(-kEnd - 1)})
    {
        struct tm fields;
        EXPECT_FALSE(time.GetLocalTm(&fields));
        EXPECT_FALSE(time.GetUTCTm(&fields));
        EXPECT_EQ(time.GetYear(), 0);
        EXPECT_EQ(time.GetMonth(), 0);
        EXPECT_EQ(time.GetDay(), 0);
        EXPECT_EQ(time.GetHour(), -1);
        EXPECT_EQ(time.GetMinute(), -1);
        EXPECT_EQ(time.GetSecond(), -1);
        EXPECT_EQ(time.GetDayOfWeek(), 0);
        EXPECT_EQ(time.Format(L"%Y é"), L"%Y é");
        EXPECT_EQ(time.FormatGmt(L"%Y"), L"%Y");
    }
    constexpr int kMost = std::numeric_limits<int>::max();
    const TimeZone zone("UTC0");
    struct tm farthest = {};
    farthest.tm_year = farthest.tm_mon = kMost;
    EXPECT_EQ(Thrown([&] { CXTime time(&farthest); }), kInvalidArgument);
    for (const int flag : {-1, 0, 1})
    {
        EXPECT_EQ(Thrown([flag] { CXTime(kMost, kMost, 1, 0, 0, 0, flag); }), kInvalidArgument);
        EXPECT_EQ(Thrown([flag] { CXTime(-kMost, 1, 1, 0, 0, 0, flag); }), kInvalidArgument);
    }
    EXPECT_EQ(Thrown([] { CXTime(1969, 12, 31, 23, 59, 59, -1); }), kInvalidArgument);
    EXPECT_EQ(Thrown([] { CXTime().GetUTCTm(nullptr); }), kInvalidArgument);
    EXPECT_EQ(Thrown([] { CXTime().GetLocalTm(nullptr); }), kInvalidArgument);
    EXPECT_EQ(CXTime(static_cast<const struct tm*>(nullptr)).GetTime(), 0);
}

TEST(CXTime, FormatTakesUpTo255CharactersOfAnyText)
{
    const CXTime time(0);
    const std::wstring fitting(251, L'\u20ac');
    EXPECT_EQ(time.FormatGmt((fitting + L"%Y").c_str()), (fitting + L"1970").c_str());
    EXPECT_TRUE(time.FormatGmt((fitting + L"%Y!").c_str()).IsEmpty());
    EXPECT_TRUE(time.FormatGmt(nullptr).IsEmpty());
    EXPECT_TRUE(CXTime(std::numeric_limits<__int64>::max()).Format(nullptr).IsEmpty());
    EXPECT_EQ(time.FormatGmt(L"\U0001F600 %d.%m \u00e9"), L"\U0001F600 01.01 \u00e9");
    EXPECT_EQ(CXTime(3093527980800).FormatGmt(L"%Y"), L"100000");
}

TEST(CXTime, ArithmeticIsOnSeconds)
{
    const CXTime early(0);
    const CXTime late = early + CXDuration(1, 2, 3, 4);
    EXPECT_EQ(late.GetTime(), 93784);
    EXPECT_EQ((early - late).GetTotalSeconds(), -93784);
    EXPECT_EQ((early - CXDuration(1)).GetTime(), -1);
    EXPECT_TRUE(CXTime(-1) < early && early > CXTime(-1) && early <= CXTime(0) && early >= CXTime(0));
    EXPECT_TRUE(early == CXTime() && early != late);
    CXTime assigned;
    assigned = 5;
    EXPECT_EQ(assigned.GetTime(), 5);
    constexpr __int64 kEnd = std::numeric_limits<__int64>::max();
    EXPECT_EQ((CXTime(kEnd) + CXDuration(1)).GetTime(), -kEnd - 1);
    const __int64 before = std::time(nullptr);
    EXPECT_GE(CXTime::GetTickCount().GetTime(), before);
    EXPECT_LE(CXTime::GetTickCount().GetTime(), std::time(nullptr));
}

TEST(CXTime, ArchivesHoldEightBytes)
{
    for (const __int64 seconds : {0x0102030405060708LL, -2LL, std::numeric_limits<long long>::min()})
    {
        CXTime time(seconds);
        const Bytes bytes = Stored(time);
        ASSERT_EQ(bytes.size(), 8U);
        EXPECT_EQ(bytes[0], static_cast<unsigned char>(seconds));
        CXTime loaded;
        EXPECT_EQ(ThrownByLoading(loaded, bytes), kNothingThrown);
        EXPECT_EQ(loaded, time);

        CXMemFile shifted;
        CXArchive writing(&shifted, xArchiveStore);
        const CXDuration span(seconds);
        writing << time << span;
        EXPECT_EQ(Thrown<CXArchiveException>([&] { writing >> time; }), archiveWriteOnly);
        writing.Close();
        EXPECT_EQ(Bytes(shifted.GetBuffer(), shifted.GetBuffer() + shifted.GetLength()), bytes + bytes);
        shifted.SeekToBegin();
        CXArchive reading(&shifted, xArchiveLoad);
        CXDuration loadedSpan;
        EXPECT_EQ(Thrown<CXArchiveException>([&] { reading << time; }), archiveReadOnly);
        loaded = 0;
        reading >> loaded >> loadedSpan;
        EXPECT_TRUE(loaded == time && loadedSpan == span);
    }
    CXArray<CXTime> times = {CXTime(1), CXTime(-1)};
    const auto bytes = Stored(times);
    EXPECT_EQ(bytes.size(), 2U + 16);
    CXArray<CXTime> loaded;
    EXPECT_EQ(ThrownByLoading(loaded, bytes), kNothingThrown);
    EXPECT_TRUE(loaded == times);
}

TEST(CXTime, ConvertsFromAndToChrono)
{
    using namespace std::chrono;
    using SystemTime = system_clock::time_point;
    using Days = duration<int, std::ratio<86400>>;
    const struct
    {
        nanoseconds m_sinceEpoch;
        __int64 m_seconds;     // rounded down
        __int64 m_spanSeconds; // toward zero
    } cases[] = {{0ns, 0, 0}, {1999999999ns, 1, 1}, {-1ns, -1, 0}, {-1s, -1, -1}, {-1500ms, -2, -1}};
    for (const auto& [sinceEpoch, seconds, spanSeconds] : cases)
    {
        EXPECT_EQ(CXTime(SystemTime(sinceEpoch)).GetTime(), seconds);
        EXPECT_EQ(CXDuration(sinceEpoch).GetTotalSeconds(), spanSeconds);
        EXPECT_EQ(CXDuration(duration<double>(sinceEpoch)).GetTotalSeconds(), spanSeconds);
        EXPECT_EQ(CXTime(time_point<system_clock, duration<double>>(sinceEpoch)).GetTime(), seconds);
        EXPECT_EQ(SystemTime(CXTime(seconds)), SystemTime(std::chrono::seconds(seconds)));
        EXPECT_EQ(std::chrono::seconds(CXDuration(seconds)).count(), seconds);
    }
    const CXTime moment(1700000000);
    const CXDuration halfHour = 30min;
    EXPECT_EQ((moment + 1h - halfHour).GetTime(), 1700001800);
    EXPECT_EQ(hours(CXDuration(-7199)), -1h);
    EXPECT_EQ(duration<double>(halfHour).count(), 1800.0);
    EXPECT_EQ(CXDuration(Days(-2)).GetDays(), -2);
    static_assert(std::is_convertible_v<minutes, CXDuration> && !std::is_convertible_v<milliseconds, CXDuration>);
    static_assert(!std::is_constructible_v<CXTime, steady_clock::time_point>, "it does not know the date");

    // What does not fit.
    constexpr __int64 kFar = std::numeric_limits<__int64>::max();
    EXPECT_EQ(nanoseconds(CXDuration(kFar)), nanoseconds::max());
    EXPECT_EQ(nanoseconds(CXDuration(-kFar)), nanoseconds::min());
    EXPECT_EQ(SystemTime(CXTime(kFar)), SystemTime::max());
    EXPECT_EQ(Days(CXDuration(kFar)).count(), std::numeric_limits<int>::max());
    EXPECT_EQ((duration<unsigned>(CXDuration(-5)).count()), 0U);
    EXPECT_EQ((duration<unsigned char>(CXDuration(256)).count()), 255);
    EXPECT_EQ(CXDuration(duration<double>(1e300)).GetTotalSeconds(), kFar);
    EXPECT_EQ(CXDuration(duration<double>(std::nan(""))).GetTotalSeconds(), std::numeric_limits<__int64>::min());
}

TEST(CXTime, StreamsShowItInUtcAndInAnyLocale)
{
    const TimeZone zone(kParis);
    const auto shown = [](const auto& value) {
        std::ostringstream narrow;
        std::wostringstream wide;
        narrow << std::setfill('.') << std::setw(9) << std::hex << value;
        wide << value;
        return narrow.str() + " " + CXTString<char>(wide.str().c_str()).GetConstBuffer();
    };
    EXPECT_EQ(shown(CXTime(1700000000)), "2023-11-14T22:13:20Z 2023-11-14T22:13:20Z");
    EXPECT_EQ(shown(CXTime(-219946838400)), "-5000-03-01T00:00:00Z -5000-03-01T00:00:00Z");
    EXPECT_EQ(shown(CXTime(std::numeric_limits<__int64>::max())), "@9223372036854775807 @9223372036854775807");
    EXPECT_EQ(shown(CXDuration(26, 0, 3, 4)), "624:03:04 624:03:04");
    EXPECT_EQ(shown(CXDuration(-61)), ".-0:01:01 -0:01:01");
    EXPECT_EQ(shown(CXDuration(std::numeric_limits<__int64>::min())),
              "-2562047788015215:30:08 -2562047788015215:30:08");
}

TEST(CXTime, StreamsReadWhatTheyWrite)
{
    constexpr __int64 kFar = std::numeric_limits<__int64>::max();
    for (const __int64 seconds : {0ll, -1ll, 59ll, 1709164799ll, 951782400ll, 4107542400ll, -62167219201ll,
                                  -219946838400ll, 67767976233532799ll, -67768040609740800ll, kFar, -kFar - 1})
    {
        std::wstringstream stream;
        stream << CXTime(seconds) << L"\n\t" << CXDuration(seconds) << L" rest";
        CXTime time(7);
        CXDuration span(7);
        std::wstring rest;
        EXPECT_TRUE(stream >> time >> span >> rest);
        EXPECT_EQ(time.GetTime(), seconds);
        EXPECT_EQ(span.GetTotalSeconds(), seconds);
        EXPECT_EQ(rest, L"rest");
    }
    const auto isLeft = [](const char* text, auto value) {
        std::istringstream stream(text);
        const auto before = value;
        return (stream >> value).fail() && value == before;
    };
    for (const char* text : {"",
                             "2023",
                             "2023-11-14T22:13:20",
                             "2023-11-14 22:13:20Z",
                             "2023-11-14T22:13:20Z7",
                             "2023-02-29T00:00:00Z",
                             "1900-02-29T00:00:00Z",
                             "2023-13-01T00:00:00Z",
                             "2023-00-01T00:00:00Z",
                             "2023-01-00T00:00:00Z",
                             "2023-04-31T00:00:00Z",
                             "2023-01-01T24:00:00Z",
                             "2023-01-01T00:60:00Z",
                             "2023-1-01T00:00:00Z",
                             "2023-011-01T00:00:00Z",
                             "99999999999-01-01T00:00:00Z",
                             "@",
                             "@-",
                             "@9223372036854775808",
                             "soon"})
        EXPECT_TRUE(isLeft(text, CXTime(7))) << text;
    for (const char* text : {"", "1", "1:2", "1:02:60", "1:60:00", "--1:00:00", ":00:00", "1:002:03",
                             "2562047788015215:30:08", "-2562047788015215:30:09", "9999999999999999999:00:00"})
        EXPECT_TRUE(isLeft(text, CXDuration(7))) << text;
    // Nothing behind the last character is needed.
    std::istringstream stream("1:00:00");
    CXDuration hour;
    EXPECT_TRUE(stream >> hour && stream.eof() && hour.GetTotalSeconds() == 3600);
}

TEST(CXTime, ThreadsConvertAtOnce)
{
    const TimeZone zone(kParis);
    OnThreads(4, [](int i) {
        for (int month = 1; month <= 400; ++month)
        {
            const CXTime time(2000, month, 10 + i, 12, 0, 0, -1);
            EXPECT_EQ(time.GetMonth(), (month - 1) % 12);
            EXPECT_EQ(time.Format(L"%d %H"), (std::to_wstring(10 + i) + L" 12").c_str());
        }
    });
}

TEST(CXDuration, PartsAreTruncatedTowardZero)
{
    const CXDuration span(1, 2, 3, 4);
    EXPECT_EQ(span.GetDays(), 1);
    EXPECT_EQ(span.GetHours(), 2);
    EXPECT_EQ(span.GetTotalHours(), 26);
    EXPECT_EQ(span.GetMinutes(), 3);
    EXPECT_EQ(span.GetTotalMinutes(), 1563);
    EXPECT_EQ(span.GetSeconds(), 4);
    EXPECT_EQ(CXDuration(-90).GetMinutes(), -1);
    EXPECT_EQ(CXDuration(-90).GetSeconds(), -30);
    EXPECT_EQ(CXDuration(-90000).GetDays(), -1);
    EXPECT_EQ(CXDuration(-90000).GetHours(), -1);
    EXPECT_EQ(CXDuration(2000000000, 0, 0, -1).GetDuration(), 172799999999999);
    CXDuration sum = CXDuration(5) - CXDuration(7);
    EXPECT_EQ(sum.GetTotalSeconds(), -2);
    sum += CXDuration(10);
    sum -= CXDuration(1);
    EXPECT_EQ(sum, CXDuration(7));
    EXPECT_TRUE(sum > CXDuration(-7) && sum < CXDuration(8) && sum != CXDuration(8) && sum <= sum && sum >= sum);
}

CXTString<wchar_t> g_reported;

TEST(CProfileTimer, ReportsATitleAndGivesThePriorityBack)
{
    tev::SetProfileReporter([](const CXTString<wchar_t>& text) { g_reported = text; });
    const int priority = tev::platform::GetOwnPriority();
    CProfileTimer timer(0);
    timer.Start();
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
    const unsigned long quiet = timer.End(L"");
    EXPECT_GE(quiet, 3U);
    EXPECT_TRUE(g_reported.IsEmpty());
    timer.Start();
    const unsigned long shown = timer.End(L"r\u00f6hre");
    CXTString<wchar_t> start;
    start.Format(L"******** r\u00f6hre ********\n%d ms 0.", shown);
    EXPECT_EQ(g_reported.Left(start.GetLength()), start);
    EXPECT_EQ(g_reported.Right(3), L" s\n");
    EXPECT_EQ(tev::platform::GetOwnPriority(), priority);

    // Without a reporter the text goes to the log.
    tev::SetProfileReporter(nullptr);
    const TempFolder folder;
    ASSERT_TRUE(SetLogFile(folder.WidePath("log").c_str(), xLogCreate, 0));
    timer.End(L"Q");
    CloseLogFile();
    EXPECT_NE(folder.ReadFile("log").find("*\0 \0Q\0 \0*\0"s), std::string::npos);
}
} // namespace
