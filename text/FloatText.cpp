#include "text/FloatText.h"

#include "platform/NumericLocale.h"

#include <charconv>
#include <string>
#include <system_error>
#include <type_traits>

using namespace tev;

namespace
{
// The standard library's own conversion, which is faster and needs no terminator, but gives no value for a number that
// is too large or too close to 0. False for such a number.
template <class Value>
bool ReadInRange(const char* text, const char* end, Value& value, size_t& length)
{
    length = 0;
    const char* at = text;
    const bool negative = at != end && *at == '-';
    if (at != end && (*at == '+' || *at == '-'))
        ++at;
    // from_chars takes a sign of its own.
    if (at == end || *at == '-')
        return true;
    const bool hasPrefix = end - at > 2 && at[0] == '0' && AsciiLower(at[1]) == 'x';
    const bool isHexadecimal =
        hasPrefix && (DigitValue(at[2]) < 16 || (end - at > 3 && at[2] == '.' && DigitValue(at[3]) < 16));
    if (isHexadecimal)
        at += 2;
    const auto format = isHexadecimal ? std::chars_format::hex : std::chars_format::general;
    const auto [past, error] = std::from_chars(at, end, value, format);
    if (error == std::errc::invalid_argument)
        return true;
    if (error != std::errc())
        return false;
    if (negative)
        value = -value;
    length = static_cast<size_t>(past - text);
    return true;
}
} // namespace

template <class Value>
size_t tev::ReadFloat(const char* text, const char* end, Value& value)
{
    if constexpr (!std::is_same_v<Value, long double>) // from_chars gives no
                                                       // subnormal one
    {
        size_t length;
        if (ReadInRange(text, end, value, length))
            return length;
    }
    return platform::ReadFloatInCLocale(std::string(text, end).c_str(), value);
}

template size_t tev::ReadFloat(const char*, const char*, float&);
template size_t tev::ReadFloat(const char*, const char*, double&);
template size_t tev::ReadFloat(const char*, const char*, long double&);
