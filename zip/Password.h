#pragma once

#include "text/CXTString.h"

#include <cstddef>
#include <string>

namespace tev
{
/// Writes zeros over memory, also where the compiler sees that nothing reads them.
void Overwrite(void* memory, std::size_t size) noexcept;

/// Empties a text, of which no copy stays in its memory.
void OverwriteText(CXTString<wchar_t>& text) noexcept;

/// A password in UTF-8, whose memory is overwritten before it is released. One thread at a time.
class Password
{
public:
    Password() = default;
    explicit Password(const CXTString<wchar_t>& text);
    Password(const Password& other) : m_utf8(other.m_utf8) {} // moving would leave a copy of a short one
    Password& operator=(const Password& other);
    ~Password() { Clear(); }

    const std::string& Utf8() const noexcept { return m_utf8; }
    bool IsEmpty() const noexcept { return m_utf8.empty(); }
    void Clear() noexcept;

private:
    std::string m_utf8;
};
} // namespace tev
