#pragma once

#include "base/TevTypes.h"
#include "text/FormatArguments.h"
#include "text/StandardText.h"
#include "text/TextEncoding.h"

#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

/// The three fields of a string, for code that works on the buffer directly.
template <class T>
struct CXTCharArray
{
    T* m_data;                   ///< NUL-terminated, from the C heap
    unsigned __int64 m_length;   ///< characters before the terminator
    unsigned __int64 m_capacity; ///< characters the buffer holds, terminator included; 0 when no buffer is owned
};

/// The string class of the library's interfaces: owned, NUL-terminated text of `char` or `wchar_t`. Copies share
/// nothing. Text of the other width is converted through the ANSI code page. Positions and counts are `int`; -1 as a
/// count means "all of it", and texts of 2^31 characters and more are reached through GetLength64 and GetConstBuffer.
/// An argument may point into the string that is changed. Growing throws std::bad_alloc and leaves the string as it was.
/// XLastFailure() says why a parameter, a position or a format was refused. One thread at a time; not checked in debug builds.
///
/// Strings and views of the standard library are taken wherever a string is, and given: see docs/text.md. Where a program
/// defines XTEXT_NO_ANSI, what would silently convert between the widths does not compile; the library is the same.
///
/// A buffer that must grow to n characters gets room for 2n + 1, at least 16, and 64 where that is from 16 to 63; it
/// never shrinks. Strings that were moved from are empty, own no buffer until written to, and share one terminator.
template <class T>
class TEVTOOLS_API CXTString
{
public:
    /// The character type of the other instantiation.
    using OtherChar = std::conditional_t<std::is_same_v<T, char>, wchar_t, char>;

    CXTString();
    CXTString(const CXTString& other);
    CXTString(CXTString&& other) noexcept;
    CXTString(std::nullptr_t) : CXTString() {}
    CXTString(const T* text);
    /// Copies exactly `count` characters, NULs included; -1 copies up to the first NUL.
    CXTString(const T* text, int count);
    CXTString(T character, int count);
    /// The whole text, NULs included.
    template <class Text, tev::IfStdText<Text, T> = 0>
    CXTString(const Text& text) : CXTString(text.data(), CountOf(text.size()))
    {
        if (Size() != text.size())
            Assign(text.data(), text.size());
    }
    /// Wide text from a path: each byte that is not part of UTF-8 becomes one of U+DC80 to U+DCFF.
    template <class Path, tev::IfPath<Path, T> = 0>
    CXTString(const Path& path) : CXTString()
    {
        if constexpr (std::is_same_v<typename Path::value_type, T>)
            Assign(path.native().data(), path.native().size());
        else
            XDecodePath(path.c_str(), *this);
    }
    ~CXTString()
    {
        if (m_text.m_capacity != 0)
            std::free(m_text.m_data);
    }

    CXTString& operator=(const CXTString& other);
    CXTString& operator=(CXTString&& other) noexcept;
    CXTString& operator=(std::nullptr_t);
    CXTString& operator=(const T* text);
    CXTString& operator=(T character);
    template <class Text, tev::IfStdText<Text, T> = 0>
    CXTString& operator=(const Text& text)
    {
        return Assign(text.data(), text.size());
    }

    CXTString& operator+=(const CXTString& other) { return Append(other.m_text.m_data, other.m_text.m_length); }
    CXTString& operator+=(const T* text);
    CXTString& operator+=(T character);
    template <class Text, tev::IfStdText<Text, T> = 0>
    CXTString& operator+=(const Text& text)
    {
        return Append(text.data(), text.size());
    }

    // Conversions through the ANSI code page.

    CXTString(const OtherChar* text) X_ANSI_CONVERSION;
    CXTString& operator=(const OtherChar* text) X_ANSI_CONVERSION;
    CXTString& operator+=(const OtherChar* text) X_ANSI_CONVERSION;
    CXTString& operator=(const tev::AnsiBytes<T>* text);
    CXTString& operator+=(const tev::AnsiBytes<T>* text);
    template <class Text, tev::IfAnsiText<Text, OtherChar> = 0>
    explicit CXTString(const Text& text) : CXTString(FromOtherWidth(text.data(), text.size()))
    {
    }

    /// Replaces the text by `count` characters, NULs included; -1 copies up to the first NUL.
    /// A null pointer with a count other than 0 is an invalid parameter (errno 22) and changes nothing.
    void Copy(const T* text, int count);
    CXTString& Assign(const T* text, std::size_t count);
    CXTString& Append(const T* text, std::size_t count);

    // Size and access

    /// 1 for narrow text (ANSI), 3 for wide text (UTF-16).
    static constexpr xStringEncoding GetDefaultEncoding() noexcept
    {
        return std::is_same_v<T, char> ? xEncodingAnsi : xEncodingUtf16;
    }
    /// Length in characters; 2^31 - 1 for a text that is longer still.
    int GetLength() const noexcept;
    unsigned __int64 GetLength64() const noexcept { return m_text.m_length; }
    [[nodiscard]] bool IsEmpty() const noexcept { return m_text.m_length == 0; }
    /// Makes the string empty and keeps its buffer.
    void Empty() { SetLength(0); }
    /// The character, or NUL when the position lies outside the text.
    T GetAt(int position) const noexcept;
    /// The character's address, or null when the position lies outside the text.
    T* GetAtPtr(int position) noexcept;
    const T* GetAtPtr(int position) const noexcept;
    /// Replaces one character. A position outside the text is an invalid parameter (errno 34) and changes nothing.
    void SetAt(int position, T character);
    /// Not checked: the position is from 0 to the length (the terminator's position).
    template <class Index, std::enable_if_t<std::is_integral_v<Index>, int> = 0>
    T& operator[](Index position) noexcept
    {
        return m_text.m_data[position];
    }
    template <class Index, std::enable_if_t<std::is_integral_v<Index>, int> = 0>
    const T& operator[](Index position) const noexcept
    {
        return m_text.m_data[position];
    }
    operator const T*() const noexcept { return m_text.m_data; }
    const T* GetConstBuffer() const noexcept { return m_text.m_data; }
    /// The whole text, NULs included; valid until the string changes.
    operator std::basic_string_view<T>() const noexcept { return {m_text.m_data, Size()}; }
    explicit operator std::basic_string<T>() const { return {m_text.m_data, Size()}; }
    /// The characters without the terminator; invalid when the string changes otherwise than through them.
    T* begin() noexcept { return m_text.m_data; }
    const T* begin() const noexcept { return m_text.m_data; }
    T* end() noexcept { return m_text.m_data + m_text.m_length; }
    const T* end() const noexcept { return m_text.m_data + m_text.m_length; }
    operator CXTCharArray<T>&() noexcept { return m_text; }
    /// Sets the length and returns the buffer to fill. The first characters stay, new ones are unspecified.
    /// A negative length is an invalid parameter (errno 34): null, nothing changed.
    T* GetBufferSetLength(int length);
    /// As GetBufferSetLength, for any length.
    T* GetBufferSetLength64(unsigned __int64 length) { return SetLength(length); }
    /// Sets the length after the buffer was written to; -1 looks for the terminator.
    /// A length past the buffer is an invalid parameter (errno 34) and changes nothing.
    void ReleaseBuffer(int length = -1);
    /// Hands the buffer over to the caller, who releases it with `free`. The string is empty afterwards.
    [[nodiscard]] T* DetachBuffer();

    // Formatting: see docs/text.md for the conversions. A format that cannot be carried out makes the result empty;
    // a null format changes nothing.

    void Format(const T* format, ...);
    /// Takes the format from the library's message texts; an unknown number makes the string empty.
    void Format(unsigned int messageId, ...);
    void FormatV(const T* format, va_list arguments);
    /// Appends nothing when the format cannot be carried out.
    void AppendFormat(const T* format, ...);
    void AppendFormat(unsigned int messageId, ...);
    // With texts of this width among the arguments, for `%s`: CXTString and what is derived from it, std::basic_string,
    // std::basic_string_view. The text ends at its first NUL. Other objects do not compile.

    template <class... Arguments, tev::IfAnyObject<Arguments...> = 0>
    void Format(const T* format, const Arguments&... arguments)
    {
        tev::RequireFormatArguments<T, Arguments...>();
        Format(format, tev::PassedArgument<Arguments>(arguments).Get()...);
    }
    template <class... Arguments, tev::IfAnyObject<Arguments...> = 0>
    void Format(unsigned int messageId, const Arguments&... arguments)
    {
        tev::RequireFormatArguments<T, Arguments...>();
        Format(messageId, tev::PassedArgument<Arguments>(arguments).Get()...);
    }
    template <class... Arguments, tev::IfAnyObject<Arguments...> = 0>
    void AppendFormat(const T* format, const Arguments&... arguments)
    {
        tev::RequireFormatArguments<T, Arguments...>();
        AppendFormat(format, tev::PassedArgument<Arguments>(arguments).Get()...);
    }
    template <class... Arguments, tev::IfAnyObject<Arguments...> = 0>
    void AppendFormat(unsigned int messageId, const Arguments&... arguments)
    {
        tev::RequireFormatArguments<T, Arguments...>();
        AppendFormat(messageId, tev::PassedArgument<Arguments>(arguments).Get()...);
    }
    /// With a format that is checked while compiling, X_FORMAT("%s: %d"); texts may be of either width.
    template <class Literal, class... Arguments>
    void Format(tev::CheckedFormat<Literal> format, const Arguments&... arguments)
    {
        format.template Require<T, Arguments...>();
        Format(Literal::Text(), tev::PassedArgument<Arguments>(arguments).Get()...);
    }
    template <class Literal, class... Arguments>
    void AppendFormat(tev::CheckedFormat<Literal> format, const Arguments&... arguments)
    {
        format.template Require<T, Arguments...>();
        AppendFormat(Literal::Text(), tev::PassedArgument<Arguments>(arguments).Get()...);
    }

    /// Scans the text in the manner of sscanf_s: `%s`, `%c` and `%[` take the target and its capacity (unsigned int).
    /// Returns the number of targets filled, -1 when the text ends before the first conversion.
    int ScanS(const T* format, ...) const;
    int ScanS(int position, const T* format, ...) const;
    int ScanVS(const T* format, va_list arguments) const;
    int ScanVS(int position, const T* format, va_list arguments) const;

    // Comparison: -1, 0 or 1. A null argument equals the empty text.

    /// Compares by the unsigned value of each character.
    int Compare(const T* text) const noexcept;
    int Compare(const CXTString& other) const noexcept;
    /// Compares as the C library does without regard to case, in its current locale.
    int CompareNoCase(const T* text) const noexcept;
    /// Compares by the collation of the C library's current locale.
    int Collate(const T* text) const noexcept;
    int CollateNoCase(const T* text) const;

    // Search: the position, or -1. A negative start counts as 0.

    int Find(T character, int start = 0) const noexcept;
    int Find(const T* text, int start = 0, bool noCase = false) const;
    int FindNoCase(const T* text, int start = 0) const { return Find(text, start, true); }
    int FindOneOf(const T* characters, int start = 0) const noexcept;
    /// Searches backwards for a match that begins at `start` or before it; -1 starts at the end.
    int ReverseFind(T character, int start = -1) const noexcept;
    int ReverseFind(const T* text, int start = -1) const noexcept;
    /// As Find, but the position just past the match.
    int FindEndPos(const T* text, int start = 0, bool noCase = false) const;

    // Editing

    /// Replaces at most `maxCount` matches that begin at `start` or later and before `limit`; -1 means no bound.
    /// Inserted text is not searched again. Returns the number of replacements.
    int Replace(T oldCharacter, T newCharacter, int maxCount = -1, int limit = -1, int start = 0);
    int Replace(const T* oldText, const T* newText, int maxCount = -1, int limit = -1, int start = 0);
    /// Removes every occurrence at `start` or later and returns how many there were.
    int Remove(T character, int start = 0);
    int Remove(const T* text, bool noCase = false, int start = 0);
    /// Inserts before the position, which is clamped to the range 0 to length. Returns the new length.
    int Insert(int position, T character);
    int Insert(int position, const T* text);
    /// Deletes the part of the given range that lies within the text. Returns the new length.
    int Delete(int position, int count = 1);

    // Extraction

    CXTString Mid(int first, int count = -1) const;
    CXTString Left(int count) const;
    CXTString Right(int count) const;
    /// The leading characters that are in the set; SpanExcluding: those that are not.
    CXTString SpanIncluding(const T* characters) const;
    CXTString SpanExcluding(const T* characters) const;
    /// The next token at `position` or later; `position` moves past it. Without another token, an empty text and
    /// position -1.
    CXTString Tokenize(const T* separators, int& position) const;

    // Case, order and trimming, in place. Case and white space follow the C library's current locale.

    CXTString& MakeUpper(int count = -1);
    CXTString& MakeLower(int count = -1);
    /// Reverses the order of the elements; in narrow text these are bytes.
    CXTString& MakeReverse();
    CXTString& Trim() { return TrimSpace(TrimSides::kBoth); }
    CXTString& Trim(T character) { return TrimCharacter(TrimSides::kBoth, character); }
    CXTString& Trim(const T* characters) { return TrimSet(TrimSides::kBoth, characters); }
    CXTString& TrimLeft() { return TrimSpace(TrimSides::kLeft); }
    CXTString& TrimLeft(T character) { return TrimCharacter(TrimSides::kLeft, character); }
    CXTString& TrimLeft(const T* characters) { return TrimSet(TrimSides::kLeft, characters); }
    CXTString& TrimRight() { return TrimSpace(TrimSides::kRight); }
    CXTString& TrimRight(T character) { return TrimCharacter(TrimSides::kRight, character); }
    CXTString& TrimRight(const T* characters) { return TrimSet(TrimSides::kRight, characters); }

    /// Loads one of the library's message texts. False, with the string empty, for an unknown number.
    bool LoadString(unsigned int messageId);

    // Concatenation and comparison take strings and C strings on either side. A comparison is by the unsigned value of
    // each character; a null pointer equals the empty text.

    friend CXTString operator+(CXTString left, const CXTString& right) { return std::move(left += right); }
    friend CXTString operator+(CXTString left, const T* right) { return std::move(left += right); }
    friend CXTString operator+(CXTString left, T right) { return std::move(left += right); }
    friend CXTString operator+(const T* left, const CXTString& right) { return std::move(CXTString(left) += right); }
    friend CXTString operator+(T left, const CXTString& right) { return std::move(CXTString(left, 1) += right); }

    friend bool operator==(const CXTString& a, const CXTString& b) noexcept { return a.Equals(b); }
    friend bool operator==(const CXTString& a, const T* b) noexcept { return a.Compare(b) == 0; }
    friend bool operator==(const T* a, const CXTString& b) noexcept { return b.Compare(a) == 0; }
    friend bool operator!=(const CXTString& a, const CXTString& b) noexcept { return !a.Equals(b); }
    friend bool operator!=(const CXTString& a, const T* b) noexcept { return a.Compare(b) != 0; }
    friend bool operator!=(const T* a, const CXTString& b) noexcept { return b.Compare(a) != 0; }
    friend bool operator<(const CXTString& a, const CXTString& b) noexcept { return a.Compare(b) < 0; }
    friend bool operator<(const CXTString& a, const T* b) noexcept { return a.Compare(b) < 0; }
    friend bool operator<(const T* a, const CXTString& b) noexcept { return b.Compare(a) > 0; }
    friend bool operator>(const CXTString& a, const CXTString& b) noexcept { return a.Compare(b) > 0; }
    friend bool operator>(const CXTString& a, const T* b) noexcept { return a.Compare(b) > 0; }
    friend bool operator>(const T* a, const CXTString& b) noexcept { return b.Compare(a) < 0; }
    friend bool operator<=(const CXTString& a, const CXTString& b) noexcept { return a.Compare(b) <= 0; }
    friend bool operator<=(const CXTString& a, const T* b) noexcept { return a.Compare(b) <= 0; }
    friend bool operator<=(const T* a, const CXTString& b) noexcept { return b.Compare(a) >= 0; }
    friend bool operator>=(const CXTString& a, const CXTString& b) noexcept { return a.Compare(b) >= 0; }
    friend bool operator>=(const CXTString& a, const T* b) noexcept { return a.Compare(b) >= 0; }
    friend bool operator>=(const T* a, const CXTString& b) noexcept { return b.Compare(a) <= 0; }

    // With strings and views of the standard library.

    template <class Text, tev::IfStdText<Text, T> = 0>
    friend bool operator==(const CXTString& a, const Text& b) noexcept
    {
        return a.EqualsRun(b.data(), b.size());
    }
    template <class Text, tev::IfStdText<Text, T> = 0>
    friend bool operator==(const Text& a, const CXTString& b) noexcept
    {
        return b.EqualsRun(a.data(), a.size());
    }
    template <class Text, tev::IfStdText<Text, T> = 0>
    friend bool operator!=(const CXTString& a, const Text& b) noexcept
    {
        return !a.EqualsRun(b.data(), b.size());
    }
    template <class Text, tev::IfStdText<Text, T> = 0>
    friend bool operator!=(const Text& a, const CXTString& b) noexcept
    {
        return !b.EqualsRun(a.data(), a.size());
    }
    template <class Text, tev::IfStdText<Text, T> = 0>
    friend bool operator<(const CXTString& a, const Text& b) noexcept
    {
        return a.CompareRun(b.data(), b.size()) < 0;
    }
    template <class Text, tev::IfStdText<Text, T> = 0>
    friend bool operator<(const Text& a, const CXTString& b) noexcept
    {
        return b.CompareRun(a.data(), a.size()) > 0;
    }
    template <class Text, tev::IfStdText<Text, T> = 0>
    friend bool operator>(const CXTString& a, const Text& b) noexcept
    {
        return a.CompareRun(b.data(), b.size()) > 0;
    }
    template <class Text, tev::IfStdText<Text, T> = 0>
    friend bool operator>(const Text& a, const CXTString& b) noexcept
    {
        return b.CompareRun(a.data(), a.size()) < 0;
    }
    template <class Text, tev::IfStdText<Text, T> = 0>
    friend bool operator<=(const CXTString& a, const Text& b) noexcept
    {
        return a.CompareRun(b.data(), b.size()) <= 0;
    }
    template <class Text, tev::IfStdText<Text, T> = 0>
    friend bool operator<=(const Text& a, const CXTString& b) noexcept
    {
        return b.CompareRun(a.data(), a.size()) >= 0;
    }
    template <class Text, tev::IfStdText<Text, T> = 0>
    friend bool operator>=(const CXTString& a, const Text& b) noexcept
    {
        return a.CompareRun(b.data(), b.size()) >= 0;
    }
    template <class Text, tev::IfStdText<Text, T> = 0>
    friend bool operator>=(const Text& a, const CXTString& b) noexcept
    {
        return b.CompareRun(a.data(), a.size()) <= 0;
    }

    /// Writes the text. What has the other width than the stream is converted through the ANSI code page.
    template <class Traits>
    friend std::basic_ostream<T, Traits>& operator<<(std::basic_ostream<T, Traits>& out, const CXTString& text)
    {
        return out << std::basic_string_view<T, Traits>(text.m_text.m_data, text.Size());
    }
    template <class Traits>
    friend std::basic_ostream<OtherChar, Traits>& operator<<(std::basic_ostream<OtherChar, Traits>& out,
                                                             const CXTString& text)
    {
        return out << CXTString<OtherChar>(std::basic_string_view<T>(text));
    }

private:
    enum class TrimSides
    {
        kLeft,
        kRight,
        kBoth
    };
    struct Run
    {
        const T* m_data;
        std::size_t m_count;
    };
    using FindFunction = std::size_t (*)(const T*, std::size_t, std::size_t, const T*, std::size_t);

    std::size_t Size() const noexcept { return static_cast<std::size_t>(m_text.m_length); }
    /// For the constructor that takes an `int`; 0 where that cannot hold the count.
    static constexpr int CountOf(std::size_t size) noexcept { return size > INT_MAX ? 0 : static_cast<int>(size); }
    static CXTString FromOtherWidth(const OtherChar* text, std::size_t length);
    bool Equals(const CXTString& other) const noexcept;
    bool EqualsRun(const T* text, std::size_t length) const noexcept;
    int CompareRun(const T* text, std::size_t length) const noexcept;
    int EditRuns(FindFunction find, Run oldRun, Run newRun, int maxCount, int limit, int start);
    int InsertRun(int position, Run run);
    CXTString Part(std::size_t first, std::size_t count) const;
    template <class Predicate>
    CXTString& TrimWhere(TrimSides sides, Predicate isTrimmed);
    CXTString& TrimSpace(TrimSides sides);
    CXTString& TrimCharacter(TrimSides sides, T character);
    CXTString& TrimSet(TrimSides sides, const T* characters);
    T* SetLength(unsigned __int64 length);
    T* Grow(unsigned __int64 length);
    bool Contains(const T* pointer) const noexcept;
    CXTString& KeepRange(unsigned __int64 first, unsigned __int64 count);

    CXTCharArray<T> m_text;
};

template <class T>
inline CXTString<T>& CXTString<T>::operator+=(T character)
{
    if (m_text.m_length + 1 >= m_text.m_capacity)
        Grow(m_text.m_length + 1);
    T* end = m_text.m_data + m_text.m_length++;
    end[0] = character;
    end[1] = T();
    return *this;
}

template <class T>
inline T* CXTString<T>::SetLength(unsigned __int64 length)
{
    T* data = length < m_text.m_capacity ? m_text.m_data : Grow(length);
    m_text.m_length = length;
    data[length] = T();
    return data;
}

extern template class CXTString<char>;
extern template class CXTString<wchar_t>;

#undef X_ANSI_CONVERSION

/// The same as of a std::basic_string_view of the text.
template <class T>
struct std::hash<CXTString<T>>
{
    std::size_t operator()(const CXTString<T>& text) const noexcept
    {
        return std::hash<std::basic_string_view<T>>()(text);
    }
};

/// A copy of the text without the "&" that mark accelerators in menus and buttons.
TEVTOOLS_API CXTString<wchar_t> CleanText(const CXTString<wchar_t>& text);

/// Lower-cases the text and upper-cases its first character, as the C library's current locale maps them.
TEVTOOLS_API void CapitalizeText(CXTString<wchar_t>& text);
