#include "text/TextFormat.h"

#include "text/FormatNumber.h"
#include "text/FormatString.h"

#include <algorithm>
#include <type_traits>

using namespace tev;

// Each conversion is parsed, its argument fetched, and its text appended, in one pass. Only a format
// with positions ("%2$s") is read twice, because the types of all arguments must be known before the first is fetched.

namespace
{
constexpr int kMaximumPosition = 64;

// Sources of an argument other than the positions 1 to 64.
constexpr int kNext = 0;
constexpr int kInFormat = -1;

// The meaning of a character after the field of a conversion.
enum class LetterKind : unsigned char
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

struct LetterTable
{
    static constexpr int kSize = 128;

    LetterKind kinds[kSize] = {};

    constexpr LetterTable()
    {
        Enter("hljztqLIw", LetterKind::Modifier);
        Enter("diuoxX", LetterKind::Integer);
        Enter("fFeEgGaA", LetterKind::Float);
        Enter("cC", LetterKind::Character);
        Enter("sS", LetterKind::String);
        Enter("p", LetterKind::Pointer);
        Enter("%", LetterKind::Percent);
    }

private:
    constexpr void Enter(const char* letters, LetterKind kind)
    {
        for (; *letters != 0; ++letters)
            kinds[static_cast<int>(*letters)] = kind;
    }
};

constexpr LetterTable kLetters;

template <class T>
LetterKind KindOfLetter(T letter) noexcept
{
    const auto index = static_cast<std::make_unsigned_t<T>>(letter);
    return index < LetterTable::kSize ? kLetters.kinds[index] : LetterKind::None;
}

struct Conversion : FormatSpec
{
    int widthPosition = kInFormat;
    int precisionPosition = kInFormat;
    int valuePosition = kNext;
    LetterKind kind = LetterKind::None;
};

enum class ArgumentKind : unsigned char
{
    None,
    Int,
    LongLong,
    Double,
    LongDouble,
    Pointer
};

union Argument {
    long long integer;
    double number;
    long double longNumber;
    const void* pointer;
};

template <class T>
bool ReadFlag(T character, Conversion& conversion) noexcept
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
bool IsPosition(const T* behindNumber, int number) noexcept
{
    return *behindNumber == '$' && number >= 1 && number <= kMaximumPosition;
}

// A width or precision: "*", "*2$" or digits.
template <class T>
bool ReadFieldNumber(const T*& at, int& number, int& position) noexcept
{
    if (*at != '*')
        return ReadNumber(at, number);
    ++at;
    position = kNext;
    if (!IsDigit(*at))
        return true;
    if (!ReadNumber(at, position) || !IsPosition(at, position))
        return false;
    ++at;
    return true;
}

// Position, flags, width and precision.
template <class T>
bool ReadField(const T*& at, Conversion& conversion) noexcept
{
    bool widthIsRead = false;
    if (IsDigit(*at) && *at != '0')
    {
        int number = 0;
        if (!ReadNumber(at, number))
            return false;
        if (IsPosition(at, number))
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
        while (ReadFlag(*at, conversion))
            ++at;
        if (!ReadFieldNumber(at, conversion.width, conversion.widthPosition))
            return false;
    }
    if (*at != '.')
        return true;
    ++at;
    conversion.precision = 0;
    return ReadFieldNumber(at, conversion.precision, conversion.precisionPosition);
}

// Reads what follows the '%', and moves past it.
template <class T>
bool ReadConversion(const T*& at, Conversion& conversion) noexcept
{
    // All that may come before the modifier has codes below the letters.
    if (*at < 'A' && !ReadField(at, conversion))
        return false;
    if (KindOfLetter(*at) == LetterKind::Modifier)
        conversion.modifier = ReadLengthModifier(at);
    conversion.kind = KindOfLetter(*at);
    if (conversion.kind == LetterKind::None)
        return false;
    conversion.letter = static_cast<char>(*at++);
    return true;
}

ArgumentKind KindOfInteger(LengthModifier modifier) noexcept
{
    const int size = IntegerSize(modifier);
    if (size == 0)
        return ArgumentKind::None;
    return size <= static_cast<int>(sizeof(int)) ? ArgumentKind::Int : ArgumentKind::LongLong;
}

ArgumentKind KindOfNumber(LengthModifier modifier) noexcept
{
    switch (modifier)
    {
    case LengthModifier::None:
    case LengthModifier::Long:
        return ArgumentKind::Double;
    case LengthModifier::LongDouble:
        return ArgumentKind::LongDouble;
    default:
        return ArgumentKind::None;
    }
}

template <class T>
ArgumentKind KindOfText(LengthModifier modifier, ArgumentKind kind) noexcept
{
    return TextWidthOf<T>(modifier, false) == TextWidth::None ? ArgumentKind::None : kind;
}

// None for a conversion that does not go with its modifier.
template <class T>
ArgumentKind KindOfValue(const Conversion& conversion) noexcept
{
    const LengthModifier modifier = conversion.modifier;
    switch (conversion.kind)
    {
    case LetterKind::Integer:
        return KindOfInteger(modifier);
    case LetterKind::Float:
        return KindOfNumber(modifier);
    case LetterKind::Character:
        return KindOfText<T>(modifier, ArgumentKind::Int);
    case LetterKind::String:
        return KindOfText<T>(modifier, ArgumentKind::Pointer);
    case LetterKind::Pointer:
        return modifier == LengthModifier::None ? ArgumentKind::Pointer : ArgumentKind::None;
    default:
        return ArgumentKind::None;
    }
}

// Hands out the arguments one after the other, or, when the format begins with a position, by position; never both.
template <class T>
class Arguments
{
public:
    Arguments(const T* format, va_list list) noexcept : m_format(format), m_list(list) {}
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    bool Fetch(ArgumentKind kind, int position, Argument& value)
    {
        if (position == kNext)
        {
            if (m_positions != 0)
                return false;
            m_takenInOrder = true;
            FetchNext(kind, value);
            return true;
        }
        if (m_takenInOrder || (m_positions == 0 && !FetchAll()))
            return false;
        value = m_values[position - 1];
        return true;
    }

private:
    void FetchNext(ArgumentKind kind, Argument& value) noexcept
    {
        switch (kind)
        {
        case ArgumentKind::Int:
            value.integer = va_arg(m_list, int);
            break;
        case ArgumentKind::LongLong:
            value.integer = va_arg(m_list, long long);
            break;
        case ArgumentKind::Double:
            value.number = va_arg(m_list, double);
            break;
        case ArgumentKind::LongDouble:
            value.longNumber = va_arg(m_list, long double);
            break;
        case ArgumentKind::Pointer:
            value.pointer = va_arg(m_list, const void*);
            break;
        case ArgumentKind::None:
            break;
        }
    }

    bool Note(ArgumentKind kind, int position) noexcept
    {
        if (position == kNext)
            return false;
        ArgumentKind& noted = m_kinds[position - 1];
        if (noted != ArgumentKind::None && noted != kind)
            return false;
        noted = kind;
        m_positions = std::max(m_positions, position);
        return true;
    }

    bool NoteKinds() noexcept
    {
        for (const T* at = m_format; *at != 0;)
        {
            if (*at++ != '%')
                continue;
            Conversion conversion;
            if (!ReadConversion(at, conversion))
                return false;
            if (conversion.widthPosition != kInFormat && !Note(ArgumentKind::Int, conversion.widthPosition))
                return false;
            if (conversion.precisionPosition != kInFormat && !Note(ArgumentKind::Int, conversion.precisionPosition))
                return false;
            if (conversion.kind != LetterKind::Percent && !Note(KindOfValue<T>(conversion), conversion.valuePosition))
                return false;
        }
        return true;
    }

    bool FetchAll() noexcept
    {
        std::fill_n(m_kinds, kMaximumPosition, ArgumentKind::None);
        if (!NoteKinds())
            return false;
        for (int i = 0; i < m_positions; ++i)
        {
            // The arguments after one of unknown size cannot be reached.
            if (m_kinds[i] == ArgumentKind::None)
                return false;
            FetchNext(m_kinds[i], m_values[i]);
        }
        return true;
    }

    const T* m_format;
    // The type of a parameter that is declared va_list. A copy would wait for the stores of va_start.
    std::decay_t<va_list> m_list;
    bool m_takenInOrder = false;
    int m_positions = 0;
    ArgumentKind m_kinds[kMaximumPosition];
    Argument m_values[kMaximumPosition];
};

// Fills in a width and a precision that are arguments.
template <class T>
bool FetchField(Conversion& conversion, Arguments<T>& arguments)
{
    Argument value{};
    if (conversion.widthPosition != kInFormat)
    {
        if (!arguments.Fetch(ArgumentKind::Int, conversion.widthPosition, value))
            return false;
        conversion.left = conversion.left || value.integer < 0;
        const long long width = value.integer < 0 ? -value.integer : value.integer;
        if (width > INT_MAX)
            return false;
        conversion.width = static_cast<int>(width);
    }
    if (conversion.precisionPosition != kInFormat)
    {
        if (!arguments.Fetch(ArgumentKind::Int, conversion.precisionPosition, value))
            return false;
        conversion.precision = value.integer < 0 ? FormatSpec::kNoPrecision : static_cast<int>(value.integer);
    }
    return true;
}

template <class T>
bool WriteValue(FormatOutput<T>& output, const Conversion& conversion, ArgumentKind kind, const Argument& value)
{
    switch (conversion.kind)
    {
    case LetterKind::Integer:
        return WriteInteger(output, conversion, value.integer);
    case LetterKind::Float:
        return kind == ArgumentKind::LongDouble ? WriteFloat(output, conversion, value.longNumber)
                                                : WriteFloat(output, conversion, value.number);
    case LetterKind::Character:
        return WriteCharacter(output, conversion, value.integer);
    case LetterKind::String:
        return WriteString(output, conversion, value.pointer);
    default:
        return WritePointer(output, conversion, value.pointer);
    }
}

// The text between two conversions is mostly a character or two, for which a call would be the larger cost.
template <class T>
bool AppendShort(FormatOutput<T>& output, const T* text, size_t length)
{
    constexpr size_t kShort = 8;
    if (length > kShort)
        return Append(output, text, length);
    T* added = output.Extend(length);
    if (added == nullptr)
        return false;
    for (size_t i = 0; i < length; ++i)
        added[i] = text[i];
    return true;
}

// Carries out the conversion after a '%' and moves past it.
template <class T>
bool WriteConversion(FormatOutput<T>& output, const T*& at, Arguments<T>& arguments)
{
    Conversion conversion;
    if (!ReadConversion(at, conversion) || !FetchField(conversion, arguments))
        return false;
    if (conversion.kind == LetterKind::Percent)
        return AppendFill(output, T('%'), 1);
    const ArgumentKind kind = KindOfValue<T>(conversion);
    Argument value{};
    return kind != ArgumentKind::None && arguments.Fetch(kind, conversion.valuePosition, value) &&
           WriteValue(output, conversion, kind, value);
}
} // namespace

template <class T>
bool tev::FormatText(FormatOutput<T>& output, const T* format, va_list list)
{
    Arguments<T> arguments(format, list);
    for (const T* at = format;;)
    {
        const T* const run = at;
        while (*at != 0 && *at != '%')
            ++at;
        if (!AppendShort(output, run, static_cast<size_t>(at - run)))
            return false;
        if (*at == 0)
            return true;
        ++at;
        if (!WriteConversion(output, at, arguments))
            return false;
    }
}

template bool tev::FormatText(FormatOutput<char>&, const char*, va_list);
template bool tev::FormatText(FormatOutput<wchar_t>&, const wchar_t*, va_list);
