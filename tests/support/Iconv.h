#pragma once

#include "tests/support/Testing.h"

#include <iconv.h>

namespace tev::test
{
/// Bytes in another encoding, as the C library converts them.
inline std::string Iconv(const char* to, const char* from, const std::string& bytes)
{
    const iconv_t converter = iconv_open(to, from);
    std::string result(bytes.size() * 4 + 16, '\0');
    char* in = const_cast<char*>(bytes.data());
    std::size_t inLeft = bytes.size();
    char* out = result.data();
    std::size_t outLeft = result.size();
    if (converter == reinterpret_cast<iconv_t>(-1) ||
        iconv(converter, &in, &inLeft, &out, &outLeft) == static_cast<std::size_t>(-1))
        throw std::runtime_error(std::string("iconv cannot convert from ") + from + " to " + to);
    iconv(converter, nullptr, nullptr, &out, &outLeft);
    iconv_close(converter);
    result.resize(result.size() - outLeft);
    return result;
}

inline std::string Iconv(const char* to, const std::wstring& text)
{
    const auto* bytes = reinterpret_cast<const char*>(text.data());
    return Iconv(to, "WCHAR_T", std::string(bytes, text.size() * sizeof(wchar_t)));
}

inline std::string Utf16(const std::string& utf8)
{
    return Iconv("UTF-16LE", "UTF-8", utf8);
}
} // namespace tev::test
