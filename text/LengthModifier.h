#pragma once

// The parts of a conversion such as "%-5I64d" that formats and scans have in common.

#include <climits>
#include <cstddef>
#include <cstdint>

namespace tev
{
enum class LengthModifier : unsigned char
{
    None,
    Char,       ///< hh
    Short,      ///< h
    Long,       ///< l
    LongLong,   ///< ll, q, I64
    LongDouble, ///< L
    Max,        ///< j
    Size,       ///< z
    Difference, ///< t
    Int32,      ///< I32
    Pointer,    ///< I
    Wide        ///< w
};

template <class T>
constexpr bool IsDigit(T character) noexcept
{
    return character >= '0' && character <= '9';
}

/// Reads the digits at `at`, perhaps none, and moves past them. False when the number passes 2^31 - 1.
template <class T>
constexpr bool ReadNumber(const T*& at, int& number) noexcept
{
    long long value = 0;
    for (; IsDigit(*at); ++at)
    {
        value = value * 10 + (*at - '0');
        if (value > INT_MAX)
            return false;
    }
    number = static_cast<int>(value);
    return true;
}

template <class T>
constexpr LengthModifier ReadLengthModifier(const T*& at) noexcept
{
    const auto take = [&at](int count, LengthModifier modifier) {
        at += count;
        return modifier;
    };
    switch (*at)
    {
    case 'h':
        return at[1] == 'h' ? take(2, LengthModifier::Char) : take(1, LengthModifier::Short);
    case 'l':
        return at[1] == 'l' ? take(2, LengthModifier::LongLong) : take(1, LengthModifier::Long);
    case 'q':
        return take(1, LengthModifier::LongLong);
    case 'L':
        return take(1, LengthModifier::LongDouble);
    case 'j':
        return take(1, LengthModifier::Max);
    case 'z':
        return take(1, LengthModifier::Size);
    case 't':
        return take(1, LengthModifier::Difference);
    case 'w':
        return take(1, LengthModifier::Wide);
    case 'I':
        if (at[1] == '6' && at[2] == '4')
            return take(3, LengthModifier::LongLong);
        if (at[1] == '3' && at[2] == '2')
            return take(3, LengthModifier::Int32);
        return take(1, LengthModifier::Pointer);
    default:
        return LengthModifier::None;
    }
}

/// Bytes of the integer that the modifier names; 0 when it is none for integers.
constexpr int IntegerSize(LengthModifier modifier) noexcept
{
    switch (modifier)
    {
    case LengthModifier::None:
        return sizeof(int);
    case LengthModifier::Char:
        return sizeof(char);
    case LengthModifier::Short:
        return sizeof(short);
    case LengthModifier::Long:
        return sizeof(long);
    case LengthModifier::LongLong:
    case LengthModifier::LongDouble:
        return sizeof(long long);
    case LengthModifier::Max:
        return sizeof(std::intmax_t);
    case LengthModifier::Size:
        return sizeof(std::size_t);
    case LengthModifier::Difference:
        return sizeof(std::ptrdiff_t);
    case LengthModifier::Int32:
        return sizeof(std::int32_t);
    case LengthModifier::Pointer:
        return sizeof(void*);
    case LengthModifier::Wide:
        return 0;
    }
    return 0;
}

enum class TextWidth : unsigned char
{
    None, ///< the modifier is none for text
    Narrow,
    Wide
};

/// The width of the text that a conversion of a format of T takes. `otherWidth` stands for an upper-case conversion.
template <class T>
constexpr TextWidth TextWidthOf(LengthModifier modifier, bool otherWidth) noexcept
{
    switch (modifier)
    {
    case LengthModifier::None:
        return (sizeof(T) == sizeof(char)) != otherWidth ? TextWidth::Narrow : TextWidth::Wide;
    case LengthModifier::Short:
        return TextWidth::Narrow;
    case LengthModifier::Long:
    case LengthModifier::Wide:
        return TextWidth::Wide;
    default:
        return TextWidth::None;
    }
}
} // namespace tev
