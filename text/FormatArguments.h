#pragma once

// Objects as arguments of formats: a text is passed on as its C string, and no other object is passed on at all.

#include "text/StandardText.h"
#include "text/TextEncoding.h"

namespace tev
{
/// What a format takes as it is: a number, an enumerator, a pointer.
template <class Argument>
inline constexpr bool kIsScalarArgument = std::is_scalar_v<std::decay_t<Argument>>;

template <class Argument, class T>
inline constexpr bool kIsTextObject = kIsStdText<Argument, T> || std::is_base_of_v<CXTString<T>, Argument>;

/// Calls without an object among the arguments are those of the C-variadic functions.
template <class... Arguments>
using IfAnyObject = std::enable_if_t<!(kIsScalarArgument<Arguments> && ...), int>;

template <class T>
const T* StartOfText(const CXTString<T>& text) noexcept
{
    return text.GetConstBuffer();
}

template <class T, class Allocator>
const T* StartOfText(const std::basic_string<T, std::char_traits<T>, Allocator>& text) noexcept
{
    return text.c_str();
}

/// Keeps what is passed on until the call is over.
template <class Argument>
class PassedArgument
{
public:
    explicit PassedArgument(const Argument& argument) noexcept : m_argument(argument) {}

    auto Get() const noexcept
    {
        if constexpr (kIsScalarArgument<Argument>)
            return m_argument;
        else
            return StartOfText(m_argument);
    }

private:
    const Argument& m_argument;
};

/// A view may have no terminator.
template <class T>
class PassedArgument<std::basic_string_view<T>>
{
public:
    explicit PassedArgument(std::basic_string_view<T> text) : m_text(text) {}
    const T* Get() const noexcept { return m_text.GetConstBuffer(); }

private:
    CXTString<T> m_text;
};

/// Fails to compile for an object that a format of T does not take.
template <class T, class... Arguments>
constexpr void RequireFormatArguments() noexcept
{
    static_assert(((kIsScalarArgument<Arguments> || kIsTextObject<Arguments, T>)&&...),
                  "A format takes numbers, pointers and, for %s, texts of its own width: CXTString, CPathString, "
                  "std::basic_string, std::basic_string_view.");
}

/// What X_FORMAT makes of a format, see text/CheckedFormat.h.
template <class Literal>
struct CheckedFormat;
} // namespace tev
