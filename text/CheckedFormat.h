#pragma once

#include "text/CXTString.h"
#include "text/FormatSyntax.h"

#include <cstddef>
#include <type_traits>

/// A format, a literal, that is checked against its arguments while the program is compiled: one that
/// cannot be carried out with them does not compile. For CXTString::Format and AppendFormat and for WriteToLogFile, in the
/// place of the format: `text.Format(X_FORMAT("%s: %d"), name, count)`.
///
/// An integer goes with a conversion of its size (after promotion, whatever its sign), a text with one of its width.
#define X_FORMAT(literal)                                                                                              \
    [] {                                                                                                               \
        struct Literal                                                                                                 \
        {                                                                                                              \
            static constexpr auto Text() noexcept { return literal; }                                                  \
        };                                                                                                             \
        return tev::CheckedFormat<Literal>();                                                                          \
    }()

namespace tev
{
/// An argument as a format sees it.
struct CheckedArgument
{
    FormatArgument m_kind = FormatArgument::None;
    TextWidth m_width = TextWidth::None; ///< of text
    bool m_isPointer = false;            ///< and not a text object
    bool m_isNull = false;
};

template <class Argument>
constexpr CheckedArgument CheckedArgumentOf() noexcept
{
    using Value = std::decay_t<Argument>;
    using Target = std::remove_cv_t<std::remove_pointer_t<Value>>;
    if constexpr (std::is_integral_v<Value> || std::is_enum_v<Value>)
        return {sizeof(Value) <= sizeof(int) ? FormatArgument::Int : FormatArgument::LongLong};
    else if constexpr (std::is_same_v<Value, long double>)
        return {FormatArgument::LongDouble};
    else if constexpr (std::is_floating_point_v<Value>)
        return {FormatArgument::Double};
    else if constexpr (std::is_null_pointer_v<Value>)
        return {FormatArgument::Pointer, TextWidth::None, true, true};
    else if constexpr (std::is_pointer_v<Value>)
        return {FormatArgument::Pointer,
                std::is_same_v<Target, char>      ? TextWidth::Narrow
                : std::is_same_v<Target, wchar_t> ? TextWidth::Wide
                                                  : TextWidth::None,
                true};
    else if constexpr (kIsTextObject<Value, char>)
        return {FormatArgument::Pointer, TextWidth::Narrow};
    else if constexpr (kIsTextObject<Value, wchar_t>)
        return {FormatArgument::Pointer, TextWidth::Wide};
    else
        return {};
}

enum class FormatProblem : unsigned char
{
    None,
    Syntax,
    TooFew,
    TooMany,
    Mismatch
};

/// Reads a format as it is when it is carried out, but takes only note of the arguments.
template <class T>
class FormatChecker
{
public:
    constexpr FormatChecker(const CheckedArgument* arguments, int count) noexcept
        : m_arguments(arguments), m_count(count)
    {
    }

    constexpr FormatProblem Check(const T* format) noexcept
    {
        for (const T* at = format; *at != 0;)
        {
            if (*at++ != '%')
                continue;
            FormatConversion conversion;
            if (!ReadFormatConversion(at, conversion))
                return FormatProblem::Syntax;
            const FormatProblem problem = CheckConversion(conversion);
            if (problem != FormatProblem::None)
                return problem;
        }
        for (int i = 0; i < m_highest; ++i)
        {
            if (!m_isTaken[i])
                return FormatProblem::Syntax;
        }
        return m_next + m_highest < m_count ? FormatProblem::TooMany : FormatProblem::None;
    }

private:
    constexpr FormatProblem CheckConversion(const FormatConversion& conversion) noexcept
    {
        FormatConversion number; // what a width or precision takes
        number.kind = FormatLetter::Integer;
        for (const int position : {conversion.widthPosition, conversion.precisionPosition})
        {
            const FormatProblem problem =
                position == kWrittenInFormat ? FormatProblem::None : Take(position, number, FormatArgument::Int);
            if (problem != FormatProblem::None)
                return problem;
        }
        if (conversion.kind == FormatLetter::Percent)
            return FormatProblem::None;
        const FormatArgument kind = ArgumentOfValue<T>(conversion);
        return kind == FormatArgument::None ? FormatProblem::Syntax : Take(conversion.valuePosition, conversion, kind);
    }

    constexpr FormatProblem Take(int position, const FormatConversion& conversion, FormatArgument kind) noexcept
    {
        const bool isInOrder = position == kNextArgument;
        if (isInOrder ? m_highest != 0 : m_next != 0)
            return FormatProblem::Syntax;
        const int index = isInOrder ? m_next++ : position - 1;
        if (index >= m_count)
            return FormatProblem::TooFew;
        if (!isInOrder)
        {
            m_isTaken[index] = true;
            m_highest = position > m_highest ? position : m_highest;
        }
        return Takes(conversion, kind, m_arguments[index]) ? FormatProblem::None : FormatProblem::Mismatch;
    }

    static constexpr bool Takes(const FormatConversion& conversion, FormatArgument kind,
                                const CheckedArgument& argument) noexcept
    {
        if (argument.m_kind != kind)
            return false;
        if (conversion.kind == FormatLetter::Pointer)
            return argument.m_isPointer;
        return conversion.kind != FormatLetter::String || argument.m_isNull ||
               argument.m_width == TextWidthOf<T>(conversion.modifier, conversion.letter == 'S');
    }

    const CheckedArgument* m_arguments;
    int m_count;
    int m_next = 0;
    int m_highest = 0; ///< of the positions
    bool m_isTaken[kMaximumFormatPosition] = {};
};

template <class Literal>
struct CheckedFormat
{
    /// Does not compile where a format of T is something else than this one with these arguments.
    template <class T, class... Arguments>
    static constexpr void Require() noexcept
    {
        static_assert(std::is_same_v<decltype(Literal::Text()), const T*>, "X_FORMAT: the format has the other width");
        static_assert(Problem<Arguments...>() != FormatProblem::Syntax,
                      "X_FORMAT: an unknown conversion, a length that does not go with it, or a wrong position");
        static_assert(Problem<Arguments...>() != FormatProblem::TooFew, "X_FORMAT: too few arguments");
        static_assert(Problem<Arguments...>() != FormatProblem::TooMany, "X_FORMAT: too many arguments");
        static_assert(Problem<Arguments...>() != FormatProblem::Mismatch,
                      "X_FORMAT: an argument that does not go with its conversion");
    }

private:
    template <class... Arguments>
    static constexpr FormatProblem Problem() noexcept
    {
        using T = std::remove_const_t<std::remove_pointer_t<decltype(Literal::Text())>>;
        constexpr CheckedArgument kArguments[] = {CheckedArgumentOf<Arguments>()..., CheckedArgument()};
        return FormatChecker<T>(kArguments, static_cast<int>(sizeof...(Arguments))).Check(Literal::Text());
    }
};
} // namespace tev
