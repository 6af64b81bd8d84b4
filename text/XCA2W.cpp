#include "text/XCA2W.h"

#include "text/CodePageText.h"
#include "text/FailureRecord.h"

#include <cstring>
#include <cwchar>

XCA2W::XCA2W(const char* text, xStringEncoding encoding)
{
    m_valid =
        (text != nullptr && tev::DecodeCodePage(text, std::strlen(text), tev::NarrowCodePage(encoding), m_text)) ||
        tev::NoteBadArgument("XCA2W");
}

XCW2A::XCW2A(const wchar_t* text, xStringEncoding encoding)
{
    m_valid =
        (text != nullptr && tev::EncodeCodePage(text, std::wcslen(text), tev::NarrowCodePage(encoding), m_text)) ||
        tev::NoteBadArgument("XCW2A");
}

XCA2A::XCA2A(const char* text, xStringEncoding)
{
    m_text = text;
    m_valid = text != nullptr || tev::NoteBadArgument("XCA2A");
}

XCW2W::XCW2W(const wchar_t* text, xStringEncoding)
{
    m_text = text;
    m_valid = text != nullptr || tev::NoteBadArgument("XCW2W");
}

CXTString<wchar_t> XDecodeUtf8(std::string_view bytes)
{
    CXTString<wchar_t> text;
    if (!bytes.empty())
        static_cast<void>(XDecodeText(bytes.data(), bytes.size(), xEncodingUtf8, text));
    return text;
}

CXTString<char> XEncodeUtf8(const CXTString<wchar_t>& text)
{
    CXTString<char> bytes;
    static_cast<void>(
        XEncodeText(text.GetConstBuffer(), static_cast<std::size_t>(text.GetLength64()), xEncodingUtf8, bytes));
    return bytes;
}
