#pragma once

namespace host
{
/// A way in which programs fail, for trying what becomes of it.
struct CrashWay
{
    const char16_t* m_english;
    const char16_t* m_french;
    bool m_isReportedBySanitizers; ///< themselves, before the program learns of it
    bool m_ends;                   ///< the process; else an exception of the library is thrown
    void (*m_crash)();
};

extern const CrashWay kCrashWays[];
extern const int kCrashWayCount;
} // namespace host
