#include "zip/Password.h"

#include "text/TextEncoding.h"

#include <utility>

namespace tev
{
void Overwrite(void* memory, std::size_t size) noexcept
{
    volatile auto* const bytes = static_cast<volatile unsigned char*>(memory);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = 0;
}

void OverwriteText(CXTString<wchar_t>& text) noexcept
{
    // The text owns its characters, and none is shared.
    Overwrite(const_cast<wchar_t*>(text.GetConstBuffer()), text.GetLength64() * sizeof(wchar_t));
    const CXTString<wchar_t> released(std::move(text)); // emptying it could allocate
}

Password::Password(const CXTString<wchar_t>& text)
{
    struct NarrowCopy
    {
        // Also where memory runs out meanwhile.
        ~NarrowCopy() { Overwrite(const_cast<char*>(m_bytes.GetConstBuffer()), m_bytes.GetLength64()); }
        CXTString<char> m_bytes;
    } copy;
    static_cast<void>(
        XEncodeText(text.GetConstBuffer(), text.GetLength64(), xEncodingUtf8, copy.m_bytes)); // never fails
    m_utf8.assign(copy.m_bytes.GetConstBuffer(), copy.m_bytes.GetLength64());
}

Password& Password::operator=(const Password& other)
{
    if (this != &other)
    {
        Clear();
        m_utf8 = other.m_utf8;
    }
    return *this;
}

void Password::Clear() noexcept
{
    Overwrite(m_utf8.data(), m_utf8.size());
    m_utf8.clear();
}
} // namespace tev
