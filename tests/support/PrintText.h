#pragma once

#include "tests/support/Testing.h"
#include "text/CXTString.h"

// Lets a failed expectation show the text instead of its address.

inline void PrintTo(const CXTString<char>& text, std::ostream* out)
{
    *out << testing::PrintToString(std::string(text.GetConstBuffer(), text.GetLength64()));
}

inline void PrintTo(const CXTString<wchar_t>& text, std::ostream* out)
{
    *out << testing::PrintToString(std::wstring(text.GetConstBuffer(), text.GetLength64()));
}
