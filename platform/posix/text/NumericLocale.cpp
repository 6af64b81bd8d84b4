#include "platform/NumericLocale.h"

#include <cstdlib>

#include <langinfo.h>
#include <locale.h>

namespace
{
template <class Value>
std::size_t Read(Value (*read)(const char*, char**, locale_t), const char* text, Value& value) noexcept
{
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr); // there without an allocation
    char* end = nullptr;
    value = read(text, &end, cLocale);
    return static_cast<std::size_t>(end - text);
}
} // namespace

// Not localeconv, which writes to a record that all threads share.
const char* tev::platform::DecimalPoint() noexcept
{
    return nl_langinfo(RADIXCHAR);
}

std::size_t tev::platform::ReadFloatInCLocale(const char* text, float& value) noexcept
{
    return Read(strtof_l, text, value);
}

std::size_t tev::platform::ReadFloatInCLocale(const char* text, double& value) noexcept
{
    return Read(strtod_l, text, value);
}

std::size_t tev::platform::ReadFloatInCLocale(const char* text, long double& value) noexcept
{
    return Read(strtold_l, text, value);
}
