#include "text/TextFormat.h"

#include "text/FormatNumber.h"
#include "text/FormatString.h"
#include "text/FormatSyntax.h"

#include <algorithm>
#include <type_traits>

using namespace tev;

// Each conversion is parsed, its argument fetched, and its text appended, in one pass. Only a format
// with positions ("%2$s") is read twice, because the types of all arguments must be known before the first is fetched.

namespace
{
union Argument {
    long long integer;
    double number;
    long double longNumber;
    const void* pointer;
};

// Hands out the arguments one after the other, or, when the format begins with a position, by position; never both.
template <class T>
class Arguments
{
public:
    Arguments(const T* format, va_list list) noexcept : m_format(format), m_list(list) {}
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    bool Fetch(FormatArgument kind, int position, Argument& value)
    {
        if (position == kNextArgument)
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
    void FetchNext(FormatArgument kind, Argument& value) noexcept
    {
        switch (kind)
        {
        case FormatArgument::Int:
            value.integer = va_arg(m_list, int);
            break;
        case FormatArgument::LongLong:
            value.integer = va_arg(m_list, long long);
            break;
        case FormatArgument::Double:
            value.number = va_arg(m_list, double);
            break;
        case FormatArgument::LongDouble:
            value.longNumber = va_arg(m_list, long double);
            break;
        case FormatArgument::Pointer:
            value.pointer = va_arg(m_list, const void*);
            break;
        case FormatArgument::None:
            break;
        }
    }

    bool Note(FormatArgument kind, int position) noexcept
    {
        if (position == kNextArgument)
            return false;
        FormatArgument& noted = m_kinds[position - 1];
        if (noted != FormatArgument::None && noted != kind)
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
            FormatConversion conversion;
            if (!ReadFormatConversion(at, conversion))
                return false;
            if (conversion.widthPosition != kWrittenInFormat && !Note(FormatArgument::Int, conversion.widthPosition))
                return false;
            if (conversion.precisionPosition != kWrittenInFormat &&
                !Note(FormatArgument::Int, conversion.precisionPosition))
                return false;
            if (conversion.kind != FormatLetter::Percent &&
                !Note(ArgumentOfValue<T>(conversion), conversion.valuePosition))
                return false;
        }
        return true;
    }

    bool FetchAll() noexcept
    {
        std::fill_n(m_kinds, kMaximumFormatPosition, FormatArgument::None);
        if (!NoteKinds())
            return false;
        for (int i = 0; i < m_positions; ++i)
        {
            // The arguments after one of unknown size cannot be reached.
            if (m_kinds[i] == FormatArgument::None)
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
    FormatArgument m_kinds[kMaximumFormatPosition];
    Argument m_values[kMaximumFormatPosition];
};

// Fills in a width and a precision that are arguments.
template <class T>
bool FetchField(FormatConversion& conversion, Arguments<T>& arguments)
{
    Argument value{};
    if (conversion.widthPosition != kWrittenInFormat)
    {
        if (!arguments.Fetch(FormatArgument::Int, conversion.widthPosition, value))
            return false;
        conversion.left = conversion.left || value.integer < 0;
        const long long width = value.integer < 0 ? -value.integer : value.integer;
        if (width > INT_MAX)
            return false;
        conversion.width = static_cast<int>(width);
    }
    if (conversion.precisionPosition != kWrittenInFormat)
    {
        if (!arguments.Fetch(FormatArgument::Int, conversion.precisionPosition, value))
            return false;
        conversion.precision = value.integer < 0 ? FormatSpec::kNoPrecision : static_cast<int>(value.integer);
    }
    return true;
}

template <class T>
bool WriteValue(FormatOutput<T>& output, const FormatConversion& conversion, FormatArgument kind, const Argument& value)
{
    switch (conversion.kind)
    {
    case FormatLetter::Integer:
        return WriteInteger(output, conversion, value.integer);
    case FormatLetter::Float:
        return kind == FormatArgument::LongDouble ? WriteFloat(output, conversion, value.longNumber)
                                                  : WriteFloat(output, conversion, value.number);
    case FormatLetter::Character:
        return WriteCharacter(output, conversion, value.integer);
    case FormatLetter::String:
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
    FormatConversion conversion;
    if (!ReadFormatConversion(at, conversion) || !FetchField(conversion, arguments))
        return false;
    if (conversion.kind == FormatLetter::Percent)
        return AppendFill(output, T('%'), 1);
    const FormatArgument kind = ArgumentOfValue<T>(conversion);
    Argument value{};
    return kind != FormatArgument::None && arguments.Fetch(kind, conversion.valuePosition, value) &&
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
