#pragma once

// The grammar of formats: what stands between a '%' and its letter, and the argument that it takes. Formats are read by it
// when they are carried out, and by X_FORMAT while a program is compiled.

#include "text/LengthModifier.h"

#include <type_traits>

namespace tev
{
/// One conversion of a format. A width or precision that is an argument is filled in before the text is written.
struct FormatSpec
{
    static constexpr int kNoPrecision = -1;

    bool left = false;
    bool plus = false;
    bool space = false;
    bool alternate = false;
    bool zero = false;
    bool grouped = false;
    LengthModifier modifier = LengthModifier::None;
    char letter = 0;
    int width = 0;
    int precision = kNoPrecision;
};

inline constexpr int kMaximumFormatPosition = 64;

// Sources of an argument other than the positions 1 to 64.
inline constexpr int kNextArgument = 0;
inline constexpr int kWrittenInFormat = -1;

// The meaning of a character after the field of a conversion.
enum class FormatLetter : unsigned char
{
    None,
    Modifier,
    Integer,
    Float,
    Character,
    String,
    Pointer,
    Percent
};

struct FormatLetterTable
{
    static constexpr int kSize = 128;

    FormatLetter kinds[kSize] = {};

    constexpr FormatLetterTable()
    {
        Enter("hljztqLIw", FormatLetter::Modifier);
        Enter("diuoxX", FormatLetter::Integer);
        Enter("fFeEgGaA", FormatLetter::Float);
        Enter("cC", FormatLetter::Character);
        Enter("sS", FormatLetter::String);
        Enter("p", FormatLetter::Pointer);
        Enter("%", FormatLetter::Percent);
    }

private:
    constexpr void Enter(const char* letters, FormatLetter kind)
    {
        for (; *letters != 0; ++letters)
            kinds[static_cast<int>(*letters)] = kind;
    }
};

inline constexpr FormatLetterTable kFormatLetters;

template <class T>
constexpr FormatLetter LetterOf(T letter) noexcept
{
    const auto index = static_cast<std::make_unsigned_t<T>>(letter);
    return index < FormatLetterTable::kSize ? kFormatLetters.kinds[index] : FormatLetter::None;
}

struct FormatConversion : FormatSpec
{
    int widthPosition = kWrittenInFormat;
    int precisionPosition = kWrittenInFormat;
    int valuePosition = kNextArgument;
    FormatLetter kind = FormatLetter::None;
};

enum class FormatArgument : unsigned char
{
    None,
    Int,
    LongLong,
    Double,
    LongDouble,
    Pointer
};

template <class T>
constexpr bool ReadFormatFlag(T character, FormatConversion& conversion) noexcept
{
    switch (character)
    {
    case '-':
        return conversion.left = true;
    case '+':
        return conversion.plus = true;
    case ' ':
        return conversion.space = true;
    case '#':
        return conversion.alternate = true;
    case '0':
        return conversion.zero = true;
    case '\'':
        return conversion.grouped = true;
    default:
        return false;
    }
}

template <class T>
constexpr bool IsFormatPosition(const T* behindNumber, int number) noexcept
{
    return *behindNumber == '$' && number >= 1 && number <= kMaximumFormatPosition;
}

// A width or precision: "*", "*2$" or digits.
template <class T>
constexpr bool ReadFormatNumber(const T*& at, int& number, int& position) noexcept
{
    if (*at != '*')
        return ReadNumber(at, number);
    ++at;
    position = kNextArgument;
    if (!IsDigit(*at))
        return true;
    if (!ReadNumber(at, position) || !IsFormatPosition(at, position))
        return false;
    ++at;
    return true;
}

// Position, flags, width and precision.
template <class T>
constexpr bool ReadFormatField(const T*& at, FormatConversion& conversion) noexcept
{
    bool widthIsRead = false;
    if (IsDigit(*at) && *at != '0')
    {
        int number = 0;
        if (!ReadNumber(at, number))
            return false;
        if (IsFormatPosition(at, number))
        {
            conversion.valuePosition = number;
            ++at;
        }
        else
        {
            conversion.width = number;
            widthIsRead = true;
        }
    }
    if (!widthIsRead)
    {
        while (ReadFormatFlag(*at, conversion))
            ++at;
        if (!ReadFormatNumber(at, conversion.width, conversion.widthPosition))
            return false;
    }
    if (*at != '.')
        return true;
    ++at;
    conversion.precision = 0;
    return ReadFormatNumber(at, conversion.precision, conversion.precisionPosition);
}

// Reads what follows the '%', and moves past it.
template <class T>
constexpr bool ReadFormatConversion(const T*& at, FormatConversion& conversion) noexcept
{
    // All that may come before the modifier has codes below the letters.
    if (*at < 'A' && !ReadFormatField(at, conversion))
        return false;
    if (LetterOf(*at) == FormatLetter::Modifier)
        conversion.modifier = ReadLengthModifier(at);
    conversion.kind = LetterOf(*at);
    if (conversion.kind == FormatLetter::None)
        return false;
    conversion.letter = static_cast<char>(*at++);
    return true;
}

constexpr FormatArgument ArgumentOfInteger(LengthModifier modifier) noexcept
{
    const int size = IntegerSize(modifier);
    if (size == 0)
        return FormatArgument::None;
    return size <= static_cast<int>(sizeof(int)) ? FormatArgument::Int : FormatArgument::LongLong;
}

constexpr FormatArgument ArgumentOfNumber(LengthModifier modifier) noexcept
{
    switch (modifier)
    {
    case LengthModifier::None:
    case LengthModifier::Long:
        return FormatArgument::Double;
    case LengthModifier::LongDouble:
        return FormatArgument::LongDouble;
    default:
        return FormatArgument::None;
    }
}

template <class T>
constexpr FormatArgument ArgumentOfText(LengthModifier modifier, FormatArgument kind) noexcept
{
    return TextWidthOf<T>(modifier, false) == TextWidth::None ? FormatArgument::None : kind;
}

// None for a conversion that does not go with its modifier.
template <class T>
constexpr FormatArgument ArgumentOfValue(const FormatConversion& conversion) noexcept
{
    const LengthModifier modifier = conversion.modifier;
    switch (conversion.kind)
    {
    case FormatLetter::Integer:
        return ArgumentOfInteger(modifier);
    case FormatLetter::Float:
        return ArgumentOfNumber(modifier);
    case FormatLetter::Character:
        return ArgumentOfText<T>(modifier, FormatArgument::Int);
    case FormatLetter::String:
        return ArgumentOfText<T>(modifier, FormatArgument::Pointer);
    case FormatLetter::Pointer:
        return modifier == LengthModifier::None ? FormatArgument::Pointer : FormatArgument::None;
    default:
        return FormatArgument::None;
    }
}
} // namespace tev
