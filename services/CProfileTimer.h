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
    /// Milliseconds since Start, the low 32 bits of them. With a title, the user interface shows a text of title and
    /// time; without a host's user interface the log receives it.
    /// Gives the thread the priority back that it had.
    unsigned long End(const CXTString<wchar_t>& title);

private:
    int m_priority = 0;
    __int64 m_frequency; ///< ticks a second
    __int64 m_start = 0;
};
