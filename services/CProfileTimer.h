#pragma once

#include "text/CXTString.h"

/// Measures elapsed time, and runs the measured part at the highest normal thread priority where the system permits.
/// Start and End are called by one thread. One thread at a time.
class TEVTOOLS_API CProfileTimer
{
public:
    /// The argument is not used.
    explicit CProfileTimer(int unused = 0) noexcept;

    void Start() noexcept;
    /// Returns the milliseconds since Start, the low 32 bits of them, and restores the thread's priority. With a title,
    /// the user interface shows title and time; without a host's user interface they are logged.
    unsigned long End(const CXTString<wchar_t>& title);

private:
    int m_priority = 0;
    __int64 m_frequency; ///< ticks a second
    __int64 m_start = 0;
};
