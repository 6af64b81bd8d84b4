#pragma once

#include "text/CXTString.h"

#include <string_view>

// Converters for the length of an expression: `Show(XCA2W(name))` gives a function that takes `const wchar_t*` a narrow
// text, which lives until the expression ends. For a text that is kept, take CXTString, XDecodeUtf8 or XDecodeText.
//
// The encoding names the narrow side: xEncodingAnsi and xEncodingUnknown are the ANSI code page, xEncodingUtf8 is UTF-8,
// and any other value is a code-page number. That holds for 3 and 4 too: as numbers they name no code page and the
// conversion fails, since a C string cannot hold UTF-16.

/// What the converters have in common. One thread at a time.
template <class T>
class XCConverter
{
public:
    XCConverter(const XCConverter&) = delete;
    XCConverter& operator=(const XCConverter&) = delete;

    /// False when the source was null or the code page is unknown; XLastFailure() says so.
    bool IsValid() const noexcept { return m_valid; }
    /// The text, which lives as long as the converter. Null when the conversion failed.
    operator const T*() const noexcept { return m_valid ? m_text.GetConstBuffer() : nullptr; }

protected:
    XCConverter() = default;
    ~XCConverter() = default;

    CXTString<T> m_text;
    bool m_valid = false;
};

/// Wide text from a narrow C string.
class TEVTOOLS_API XCA2W : public XCConverter<wchar_t>
{
public:
    explicit XCA2W(const char* text, xStringEncoding encoding = xEncodingAnsi);
};

/// Narrow text from a wide C string.
class TEVTOOLS_API XCW2A : public XCConverter<char>
{
public:
    explicit XCW2A(const wchar_t* text, xStringEncoding encoding = xEncodingAnsi);
};

/// A copy of a narrow C string, so that code for both widths can name one kind of converter. The encoding changes nothing.
class TEVTOOLS_API XCA2A : public XCConverter<char>
{
public:
    explicit XCA2A(const char* text, xStringEncoding encoding = xEncodingAnsi);
};

/// A copy of a wide C string. The encoding changes nothing.
class TEVTOOLS_API XCW2W : public XCConverter<wchar_t>
{
public:
    explicit XCW2W(const wchar_t* text, xStringEncoding encoding = xEncodingAnsi);
};

// UTF-8, which cannot fail, NULs included: for text that the standard library or another one keeps. Safe from several
// threads at once.

/// Bytes that are not part of UTF-8 become U+FFFD.
[[nodiscard]] TEVTOOLS_API CXTString<wchar_t> XDecodeUtf8(std::string_view bytes);
[[nodiscard]] TEVTOOLS_API CXTString<char> XEncodeUtf8(const CXTString<wchar_t>& text);
