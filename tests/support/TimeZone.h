#pragma once

#include "tests/support/Testing.h"

#include <time.h>

namespace tev::test
{

/// Sets the process's time zone while it lives. One thread at a time.
class TimeZone
{
public:
    explicit TimeZone(const char* zone)
    {
        if (const char* before = std::getenv("TZ"))
            m_before = before;
        setenv("TZ", zone, 1);
    }
    ~TimeZone()
    {
        if (m_before)
            setenv("TZ", m_before->c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    std::optional<std::string> m_before;
};

} // namespace tev::test
