#pragma once

// The types of the standard library that texts are made from and become, told by their form, so that <filesystem> need
// not be included for paths.

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

// A program that defines XTEXT_NO_ANSI has no silent conversions between the widths.
#if defined(XTEXT_NO_ANSI)
#define X_ANSI_CONVERSION = delete
#else
#define X_ANSI_CONVERSION
#endif

namespace tev
{
#if defined(XTEXT_NO_ANSI)
constexpr bool kConvertsAnsi = false;
#else
constexpr bool kConvertsAnsi = true;
#endif

/// Bytes that become text of T without a word; wide text is made of them through the ANSI code page.
struct NoBytes;
template <class T>
using AnsiBytes = std::conditional_t<kConvertsAnsi || std::is_same_v<T, char>, unsigned char, NoBytes>;

/// Whether `Text` is a string or a view of the standard library with elements of T.
template <class Text, class T>
inline constexpr bool kIsStdText = false;
template <class T, class Allocator>
inline constexpr bool kIsStdText<std::basic_string<T, std::char_traits<T>, Allocator>, T> = true;
template <class T>
inline constexpr bool kIsStdText<std::basic_string_view<T>, T> = true;

template <class Text, class T>
using IfStdText = std::enable_if_t<kIsStdText<Text, T>, int>;

template <class Text, class T>
using IfAnsiText = std::enable_if_t<kConvertsAnsi && kIsStdText<Text, T>, int>;

/// Whether `Path` is std::filesystem::path or a class with the same interface.
template <class Path, class = void>
inline constexpr bool kIsPath = false;
template <class Path>
inline constexpr bool
    kIsPath<Path, std::enable_if_t<std::is_same_v<Path, decltype(std::declval<Path&>().make_preferred().filename())>>> =
        true;

/// Only wide text is made from a path and becomes one.
template <class Path, class T>
using IfPath = std::enable_if_t<std::conjunction_v<std::is_same<T, wchar_t>, std::bool_constant<kIsPath<Path>>>, int>;

/// For functions that take a path as a C string.
template <class Path>
using IfPathArgument = std::enable_if_t<kIsPath<Path> || kIsStdText<Path, wchar_t>, int>;
} // namespace tev
