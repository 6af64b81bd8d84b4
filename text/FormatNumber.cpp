#include "text/FormatNumber.h"

#include "platform/NumericLocale.h"

#include <cfenv>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <limits>
#include <memory>

using namespace tev;

namespace
{
// A number's text in the order in which it is printed.
struct NumberText
{
    char prefix[3] = {}; // sign and base
    size_t prefixLength = 0;
    size_t leadingZeros = 0;
    const char* digits = nullptr;
    size_t digitCount = 0;
    size_t trailingZeros = 0;
    const char* exponent = nullptr;
    size_t exponentLength = 0;

    void AddPrefix(char character) noexcept { prefix[prefixLength++] = character; }
};

// Most runs are empty, and the check is cheaper than calling the library's functions.
template <class T>
T* PutFill(T* at, T character, size_t count) noexcept
{
    return count == 0 ? at : std::fill_n(at, count, character);
}

template <class T, class Source>
T* PutRun(T* at, const Source* run, size_t count) noexcept
{
    return count == 0 ? at : std::copy_n(run, count, at);
}

// Writes the number with digits that `putDigits` puts to an address.
template <class T, class PutDigits>
bool WriteNumber(FormatOutput<T>& output, const FormatSpec& spec, const NumberText& text, size_t digitCount,
                 bool zeroFill, PutDigits putDigits)
{
    const size_t length = text.prefixLength + text.leadingZeros + digitCount + text.trailingZeros + text.exponentLength;
    const auto width = static_cast<size_t>(spec.width);
    const size_t fill = width > length ? width - length : 0;
    const bool fillWithZeros = zeroFill && spec.zero && !spec.left;
    T* at = output.Extend(length + fill);
    if (at == nullptr)
        return false;
    if (!spec.left && !fillWithZeros)
        at = PutFill(at, T(' '), fill);
    for (size_t i = 0; i < text.prefixLength; ++i)
        *at++ = text.prefix[i];
    at = PutFill(at, T('0'), text.leadingZeros + (fillWithZeros ? fill : 0));
    putDigits(at);
    at += digitCount;
    at = PutFill(at, T('0'), text.trailingZeros);
    at = PutRun(at, text.exponent, text.exponentLength);
    if (spec.left)
        PutFill(at, T(' '), fill);
    return true;
}

template <class T>
bool WriteNumber(FormatOutput<T>& output, const FormatSpec& spec, const NumberText& text, bool zeroFill)
{
    return WriteNumber(output, spec, text, text.digitCount, zeroFill,
                       [&](T* at) { PutRun(at, text.digits, text.digitCount); });
}

void AddSign(NumberText& text, const FormatSpec& spec, bool negative) noexcept
{
    if (negative)
        text.AddPrefix('-');
    else if (spec.plus)
        text.AddPrefix('+');
    else if (spec.space)
        text.AddPrefix(' ');
}

constexpr char kDigitPairs[] = "00010203040506070809101112131415161718192021222324"
                               "25262728293031323334353637383940414243444546474849"
                               "50515253545556575859606162636465666768697071727374"
                               "75767778798081828384858687888990919293949596979899";

constexpr size_t kMaximumDigits = 20;

// How many digits the number has; 0 has none.
size_t CountDecimal(unsigned long long value) noexcept
{
    size_t count = 0;
    for (; value >= 10000; value /= 10000)
        count += 4;
    return count + (value >= 1000 ? 4 : value >= 100 ? 3 : value >= 10 ? 2 : value > 0 ? 1 : 0);
}

size_t CountPowerOfTwo(unsigned long long value, unsigned bits) noexcept
{
    size_t count = 0;
    for (; value != 0; value >>= bits)
        ++count;
    return count;
}

// Puts the digits of the number in front of `end`.
template <class T>
void PutDecimal(unsigned long long value, T* end) noexcept
{
    while (value >= 100)
    {
        const char* pair = kDigitPairs + value % 100 * 2;
        value /= 100;
        *--end = pair[1];
        *--end = pair[0];
    }
    if (value >= 10)
    {
        const char* pair = kDigitPairs + value * 2;
        *--end = pair[1];
        *--end = pair[0];
    }
    else if (value > 0)
    {
        *--end = static_cast<T>('0' + value);
    }
}

template <class T>
void PutPowerOfTwo(unsigned long long value, unsigned bits, const char* digits, T* end) noexcept
{
    const unsigned mask = (1u << bits) - 1;
    for (; value != 0; value >>= bits)
        *--end = digits[value & mask];
}

// How many bits a digit of the conversion has; 0 for decimal digits.
unsigned BitsOfDigit(char letter) noexcept
{
    switch (letter)
    {
    case 'x':
    case 'X':
    case 'p':
        return 4;
    case 'o':
        return 3;
    default:
        return 0;
    }
}

// The minimum number of digits of the conversion.
size_t WantedDigits(const FormatSpec& spec) noexcept
{
    return spec.precision == FormatSpec::kNoPrecision ? 1 : static_cast<size_t>(spec.precision);
}

template <class T>
bool WriteMagnitude(FormatOutput<T>& output, const FormatSpec& spec, NumberText text, unsigned long long value)
{
    const unsigned bits = BitsOfDigit(spec.letter);
    const size_t digitCount = bits == 0 ? CountDecimal(value) : CountPowerOfTwo(value, bits);
    size_t wanted = WantedDigits(spec);
    if (spec.alternate && spec.letter == 'o')
        wanted = std::max(wanted, digitCount + 1);
    text.leadingZeros = wanted > digitCount ? wanted - digitCount : 0;
    const auto putDigits = [&](T* at) {
        if (bits == 0)
            PutDecimal(value, at + digitCount);
        else
            PutPowerOfTwo(value, bits, spec.letter == 'X' ? "0123456789ABCDEF" : "0123456789abcdef", at + digitCount);
    };
    return WriteNumber(output, spec, text, digitCount, spec.precision == FormatSpec::kNoPrecision, putDigits);
}

// Nothing but the number: "%d" and the like, which most integers are printed by.
bool IsBareDecimal(const FormatSpec& spec) noexcept
{
    return spec.width == 0 && spec.precision == FormatSpec::kNoPrecision && !spec.plus && !spec.space && !spec.grouped;
}

template <class T>
bool WriteBareDecimal(FormatOutput<T>& output, bool negative, unsigned long long value)
{
    const size_t count = std::max<size_t>(CountDecimal(value), 1);
    T* const at = output.Extend(count + (negative ? 1 : 0));
    if (at == nullptr)
        return false;
    at[0] = T(negative ? '-' : '0');
    PutDecimal(value, at + count + (negative ? 1 : 0));
    return true;
}

// The value as an integer of so many bytes.
long long SignedValue(long long value, int size) noexcept
{
    switch (size)
    {
    case 1:
        return static_cast<std::int8_t>(value);
    case 2:
        return static_cast<std::int16_t>(value);
    case 4:
        return static_cast<std::int32_t>(value);
    default:
        return value;
    }
}

unsigned long long UnsignedValue(long long value, int size) noexcept
{
    const auto bits = static_cast<unsigned long long>(value);
    return size >= 8 ? bits : bits & ((1ull << (8 * size)) - 1);
}

// Writes what the C library printed: its separators and its decimal point are in the encoding of the locale, which
// narrow text takes as it is.
bool WritePrinted(FormatOutput<char>& output, const FormatSpec& spec, const NumberText& text)
{
    return WriteNumber(output, spec, text, true);
}

bool WritePrinted(FormatOutput<wchar_t>& output, const FormatSpec& spec, const NumberText& text)
{
    const std::unique_ptr<wchar_t[]> digits(new wchar_t[text.digitCount]);
    size_t count = 0;
    std::mbstate_t state{};
    for (size_t at = 0; at < text.digitCount; ++count)
    {
        const size_t left = text.digitCount - at;
        const size_t length = std::mbrtowc(&digits[count], text.digits + at, left, &state);
        if (length == 0 || length > left)
            return false;
        at += length;
    }
    return WriteNumber(output, spec, text, count, true, [&](wchar_t* to) { std::copy_n(digits.get(), count, to); });
}

// A decimal integer with the separators of the locale.
template <class T>
bool WriteGrouped(FormatOutput<T>& output, const FormatSpec& spec, NumberText text, unsigned long long value)
{
    char printed[kMaximumDigits * (1 + MB_LEN_MAX)];
    // Not a constant, because the flag is of the system's C library and not of the language's.
    char format[] = "%'llu";
    const int length = std::snprintf(printed, sizeof printed, format, value);
    if (length < 0 || static_cast<size_t>(length) >= sizeof printed)
        return false;
    text.digits = printed;
    text.digitCount = static_cast<size_t>(length);
    const auto digits = static_cast<size_t>(std::count_if(printed, printed + length, IsDigit<char>));
    text.leadingZeros = WantedDigits(spec) > digits ? WantedDigits(spec) - digits : 0;
    return WritePrinted(output, spec, text);
}

bool IsUpperCase(char conversion) noexcept
{
    return conversion >= 'A' && conversion <= 'Z';
}

// The letter of the conversion in lower case.
char Style(const FormatSpec& spec) noexcept
{
    return IsUpperCase(spec.letter) ? static_cast<char>(spec.letter - 'A' + 'a') : spec.letter;
}

char ExponentMark(const FormatSpec& spec) noexcept
{
    const char mark = Style(spec) == 'a' ? 'p' : 'e';
    return IsUpperCase(spec.letter) ? static_cast<char>(mark - 'a' + 'A') : mark;
}

// Parses a printed number. The sign is in the prefix already.
void Split(NumberText& text, const FormatSpec& spec, const char* printed, const char* end) noexcept
{
    if (*printed == '-')
        ++printed;
    if (Style(spec) == 'a')
    {
        text.AddPrefix(printed[0]);
        text.AddPrefix(printed[1]);
        printed += 2;
    }
    const char* exponent = Style(spec) == 'f' ? end : std::find(printed, end, ExponentMark(spec));
    text.digits = printed;
    text.digitCount = static_cast<size_t>(exponent - printed);
    text.exponent = exponent;
    text.exponentLength = static_cast<size_t>(end - exponent);
}

constexpr int kDefaultPrecision = 6;

// Digits after the decimal point from which on a number of this type has only zeros, in every conversion.
template <class Value>
constexpr int kExactDigits = std::numeric_limits<Value>::digits - std::numeric_limits<Value>::min_exponent;

// The digits to compute; the zeros after them are appended without computation.
template <class Value>
int PrepareZeros(NumberText& text, const FormatSpec& spec) noexcept
{
    const bool zerosStay = Style(spec) != 'g' || spec.alternate;
    if (spec.precision > kExactDigits<Value> && zerosStay)
        text.trailingZeros = static_cast<size_t>(spec.precision - kExactDigits<Value>);
    if (spec.precision == FormatSpec::kNoPrecision)
        return Style(spec) == 'a' ? FormatSpec::kNoPrecision : kDefaultPrecision;
    return std::min(spec.precision, kExactDigits<Value>);
}

template <class T, class Value>
bool WriteByLibrary(FormatOutput<T>& output, const FormatSpec& spec, NumberText text, Value value, int precision)
{
    char format[8];
    char* at = format;
    *at++ = '%';
    if (spec.grouped)
        *at++ = '\'';
    if (spec.alternate)
        *at++ = '#';
    *at++ = '.';
    *at++ = '*';
    if (std::is_same_v<Value, long double>)
        *at++ = 'L';
    *at++ = spec.letter;
    *at = 0;

    constexpr double kDigitsOfBit = 0.30103;
    constexpr size_t kSignsAndExponent = 64;
    constexpr size_t kSeparatorBytes = 8;
    const bool longest = Style(spec) == 'f' && std::fabs(value) >= 1;
    size_t capacity = longest ? static_cast<size_t>(std::ilogb(value) * kDigitsOfBit) + 1 : 0;
    capacity += static_cast<size_t>(std::max(precision, 0));
    capacity = capacity * (spec.grouped ? kSeparatorBytes : 1) + kSignsAndExponent;

    constexpr size_t kOnStack = 512;
    char first[kOnStack];
    std::unique_ptr<char[]> more;
    if (capacity > kOnStack)
        more.reset(new char[capacity]);
    char* printed = more ? more.get() : first;
    const int length = std::snprintf(printed, std::max(capacity, kOnStack), format, precision, value);
    if (length < 0 || static_cast<size_t>(length) >= std::max(capacity, kOnStack))
        return false;
    Split(text, spec, printed, printed + length);
    return WritePrinted(output, spec, text);
}

// Whether the standard library's conversion, which ignores locale and rounding mode, prints what the C library does.
bool IsPlain(const FormatSpec& spec, const char* decimalPoint) noexcept
{
    const bool onePoint = decimalPoint[0] > 0 && decimalPoint[1] == 0;
    return onePoint && !spec.alternate && !spec.grouped && Style(spec) != 'a' && std::fegetround() == FE_TONEAREST;
}

// A number of everyday size in the style of %f, rounded to even by integer arithmetic, which is exact.
struct FixedNumber
{
    static constexpr int kMaximumPrecision = 9;

    unsigned long long whole = 0;
    unsigned long long decimals = 0;
    int precision = 0;

    // False when the number is too large or too small for 64 bits.
    bool Set(double value, int wantedPrecision) noexcept
    {
        static_assert(std::numeric_limits<double>::is_iec559 && sizeof(double) == sizeof(std::uint64_t));
        constexpr int kMantissaBits = 52;
        constexpr int kExponentMask = 0x7FF;
        constexpr int kExponentOfUnits = 1023 + kMantissaBits;
        constexpr int kMaximumShift = 60; // ten times the fraction fits into 64 bits

        std::uint64_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        const int shift = kExponentOfUnits - static_cast<int>((bits >> kMantissaBits) & kExponentMask);
        if (wantedPrecision > kMaximumPrecision || shift < 1 || shift > kMaximumShift)
            return false;
        const std::uint64_t leadingBit = std::uint64_t{1} << kMantissaBits;
        const std::uint64_t mantissa = (bits & (leadingBit - 1)) | leadingBit;
        const std::uint64_t unit = std::uint64_t{1} << shift;
        precision = wantedPrecision;
        whole = mantissa >> shift;
        decimals = 0;
        std::uint64_t fraction = mantissa & (unit - 1);
        std::uint64_t limit = 1;
        for (int i = 0; i < precision; ++i)
        {
            fraction *= 10;
            decimals = decimals * 10 + (fraction >> shift);
            fraction &= unit - 1;
            limit *= 10;
        }
        const bool isOdd = ((precision == 0 ? whole : decimals) & 1) != 0;
        if (fraction > unit / 2 || (fraction == unit / 2 && isOdd))
            ++decimals;
        if (decimals == limit)
        {
            decimals = 0;
            ++whole;
        }
        return true;
    }
};

template <class T>
bool WriteFixed(FormatOutput<T>& output, const FormatSpec& spec, const NumberText& text, const FixedNumber& number,
                char decimalPoint)
{
    const size_t wholeCount = std::max<size_t>(CountDecimal(number.whole), 1);
    const auto decimalCount = static_cast<size_t>(number.precision);
    const size_t length = wholeCount + (decimalCount == 0 ? 0 : 1 + decimalCount);
    return WriteNumber(output, spec, text, length, true, [&](T* at) {
        std::fill_n(at, length, T('0'));
        PutDecimal(number.whole, at + wholeCount);
        if (decimalCount == 0)
            return;
        at[wholeCount] = static_cast<T>(decimalPoint);
        PutDecimal(number.decimals, at + length);
    });
}

template <class T>
bool WritePlain(FormatOutput<T>& output, const FormatSpec& spec, NumberText text, double value, int precision,
                char decimalPoint)
{
    const char style = Style(spec);
    FixedNumber number;
    if (style == 'f' && number.Set(value, precision))
        return WriteFixed(output, spec, text, number, decimalPoint);
    const auto format = style == 'f'   ? std::chars_format::fixed
                        : style == 'e' ? std::chars_format::scientific
                                       : std::chars_format::general;
    char printed[kExactDigits<double> + std::numeric_limits<double>::max_exponent10 + 16];
    char* const end = std::to_chars(printed, printed + sizeof printed, value, format, precision).ptr;
    if (decimalPoint != '.')
        std::replace(printed, end, '.', decimalPoint);
    if (IsUpperCase(spec.letter))
        std::replace(printed, end, 'e', 'E');
    Split(text, spec, printed, end);
    return WriteNumber(output, spec, text, true);
}

template <class T, class Value>
bool WriteAnyFloat(FormatOutput<T>& output, const FormatSpec& spec, Value value)
{
    NumberText text;
    AddSign(text, spec, std::signbit(value));
    if (!std::isfinite(value))
    {
        const bool upper = IsUpperCase(spec.letter);
        text.digits = std::isnan(value) ? (upper ? "NAN" : "nan") : (upper ? "INF" : "inf");
        text.digitCount = 3;
        return WriteNumber(output, spec, text, false);
    }
    const int precision = PrepareZeros<Value>(text, spec);
    if constexpr (std::is_same_v<Value, double>)
    {
        const char* decimalPoint = platform::DecimalPoint();
        if (IsPlain(spec, decimalPoint))
            return WritePlain(output, spec, text, value, precision, *decimalPoint);
    }
    return WriteByLibrary(output, spec, text, value, precision);
}
} // namespace

template <class T>
bool tev::WriteInteger(FormatOutput<T>& output, const FormatSpec& spec, long long value)
{
    const int size = IntegerSize(spec.modifier);
    const bool isSigned = spec.letter == 'd' || spec.letter == 'i';
    const bool isDecimal = isSigned || spec.letter == 'u';
    const long long number = isSigned ? SignedValue(value, size) : 0;
    unsigned long long magnitude = UnsignedValue(value, size);
    if (isSigned)
        magnitude = number < 0 ? 0 - static_cast<unsigned long long>(number) : static_cast<unsigned long long>(number);
    if (isDecimal && IsBareDecimal(spec))
        return WriteBareDecimal(output, number < 0, magnitude);
    NumberText text;
    if (isSigned)
        AddSign(text, spec, number < 0);
    if (spec.grouped && isDecimal && magnitude != 0)
        return WriteGrouped(output, spec, text, magnitude);
    const bool isHexadecimal = spec.letter == 'x' || spec.letter == 'X';
    if (isHexadecimal && spec.alternate && magnitude != 0)
    {
        text.AddPrefix('0');
        text.AddPrefix(spec.letter);
    }
    return WriteMagnitude(output, spec, text, magnitude);
}

template <class T>
bool tev::WritePointer(FormatOutput<T>& output, const FormatSpec& spec, const void* value)
{
    NumberText text;
    if (value == nullptr)
    {
        static constexpr char kNull[] = "(nil)";
        text.digits = kNull;
        text.digitCount = sizeof(kNull) - 1;
        return WriteNumber(output, spec, text, false);
    }
    AddSign(text, spec, false);
    text.AddPrefix('0');
    text.AddPrefix('x');
    return WriteMagnitude(output, spec, text, reinterpret_cast<std::uintptr_t>(value));
}

template <class T>
bool tev::WriteFloat(FormatOutput<T>& output, const FormatSpec& spec, double value)
{
    return WriteAnyFloat(output, spec, value);
}

template <class T>
bool tev::WriteFloat(FormatOutput<T>& output, const FormatSpec& spec, long double value)
{
    return WriteAnyFloat(output, spec, value);
}

template bool tev::WriteInteger(FormatOutput<char>&, const FormatSpec&, long long);
template bool tev::WriteInteger(FormatOutput<wchar_t>&, const FormatSpec&, long long);
template bool tev::WritePointer(FormatOutput<char>&, const FormatSpec&, const void*);
template bool tev::WritePointer(FormatOutput<wchar_t>&, const FormatSpec&, const void*);
template bool tev::WriteFloat(FormatOutput<char>&, const FormatSpec&, double);
template bool tev::WriteFloat(FormatOutput<wchar_t>&, const FormatSpec&, double);
template bool tev::WriteFloat(FormatOutput<char>&, const FormatSpec&, long double);
template bool tev::WriteFloat(FormatOutput<wchar_t>&, const FormatSpec&, long double);
