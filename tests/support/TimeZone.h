#pragma once

#include "tests/support/EnvironmentVariable.h"
#include "tests/support/Testing.h"

#include <time.h>

namespace tev::test
{
/// Sets the process's time zone while it lives. One thread at a time.
class TimeZone
{
public:
    explicit TimeZone(const char* zone) : m_variable("TZ", zone) {}

private:
    struct ReadAgain
    {
        ~ReadAgain() { tzset(); }
    };
    ReadAgain m_whenItIsAsBefore;
    const EnvironmentVariable m_variable;
};
} // namespace tev::test
