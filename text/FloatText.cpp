#include "text/FloatText.h"

#include <charconv>
#include <climits>
#include <limits>
#include <system_error>

using namespace tev;

namespace
{
// Whether a number that no type can hold is too large, rather than too close to 0.
bool IsTooLarge(const char* at, const char* end, bool isHexadecimal) noexcept
{
    const char mark = isHexadecimal ? 'p' : 'e';
    long long scale = 0;
    bool behindPoint = false;
    bool significant = false;
    for (; at != end && AsciiLower(*at) != mark; ++at)
    {
        significant = significant || (*at != '0' && *at != '.');
        if (*at == '.')
            behindPoint = true;
        else if (!behindPoint && significant)
            ++scale;
        else if (behindPoint && !significant)
            --scale;
    }
    constexpr int kBitsOfDigit = 4;
    if (isHexadecimal)
        scale *= kBitsOfDigit;
    if (at == end)
        return scale > 0;
    ++at;
    const bool negative = at != end && *at == '-';
    if (at != end && (*at == '+' || *at == '-'))
        ++at;
    constexpr long long kBeyondEveryText = LLONG_MAX / 32;
    long long exponent = 0;
    for (; at != end && exponent < kBeyondEveryText; ++at)
        exponent = exponent * 10 + (*at - '0');
    return scale + (negative ? -exponent : exponent) > 0;
}
} // namespace

template <class Value>
size_t tev::ReadFloat(const char* text, const char* end, Value& value)
{
    const char* at = text;
    const bool negative = at != end && *at == '-';
    if (at != end && (*at == '+' || *at == '-'))
        ++at;
    // The standard library takes a sign of its own.
    if (at == end || *at == '-')
        return 0;
    const char* const behindPrefix = at + 2;
    const bool hasPrefix = end - at > 2 && at[0] == '0' && AsciiLower(at[1]) == 'x';
    const bool isHexadecimal =
        hasPrefix && (DigitValue(at[2]) < 16 || (end - at > 3 && at[2] == '.' && DigitValue(at[3]) < 16));
    if (isHexadecimal)
        at = behindPrefix;
    const auto format = isHexadecimal ? std::chars_format::hex : std::chars_format::general;
    const auto [behind, error] = std::from_chars(at, end, value, format);
    if (error == std::errc::invalid_argument)
        return 0;
    if (error == std::errc::result_out_of_range)
    {
        // What is no number is out of range when the payload in its brackets is.
        if (AsciiLower(*at) == 'n')
            value = std::numeric_limits<Value>::quiet_NaN();
        else
            value = IsTooLarge(at, behind, isHexadecimal) ? std::numeric_limits<Value>::infinity() : Value(0);
    }
    if (negative)
        value = -value;
    return static_cast<size_t>(behind - text);
}

template size_t tev::ReadFloat(const char*, const char*, float&);
template size_t tev::ReadFloat(const char*, const char*, double&);
template size_t tev::ReadFloat(const char*, const char*, long double&);
