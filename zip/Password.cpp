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

namespace
{
/// The text owns its characters, and none is shared. Conversions may have written behind its end, too.
template <class T>
void OverwriteBuffer(CXTString<T>& text) noexcept
{
    Overwrite(const_cast<T*>(text.GetConstBuffer()), static_cast<CXTCharArray<T>&>(text).m_capacity * sizeof(T));
}

/// What copies a password in large steps leaves it in registers, and where a library's function is found at its first call
/// only, the system's loader stores these on the stack.
void ForgetRegisters() noexcept
{
#if defined(__x86_64__) && defined(__GNUC__)
    asm volatile("pxor %%xmm0, %%xmm0\n pxor %%xmm1, %%xmm1\n pxor %%xmm2, %%xmm2\n pxor %%xmm3, %%xmm3\n"
                 "pxor %%xmm4, %%xmm4\n pxor %%xmm5, %%xmm5\n pxor %%xmm6, %%xmm6\n pxor %%xmm7, %%xmm7\n"
                 "pxor %%xmm8, %%xmm8\n pxor %%xmm9, %%xmm9\n pxor %%xmm10, %%xmm10\n pxor %%xmm11, %%xmm11\n"
                 "pxor %%xmm12, %%xmm12\n pxor %%xmm13, %%xmm13\n pxor %%xmm14, %%xmm14\n pxor %%xmm15, %%xmm15\n"
                 :
                 :
                 : "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "xmm8", "xmm9", "xmm10", "xmm11",
                   "xmm12", "xmm13", "xmm14", "xmm15");
#endif
}
} // namespace

void OverwriteText(CXTString<wchar_t>& text) noexcept
{
    OverwriteBuffer(text);
    const CXTString<wchar_t> released(std::move(text)); // emptying it could allocate
}

Password::Password(const CXTString<wchar_t>& text)
{
    struct NarrowCopy
    {
        // Also where memory runs out meanwhile.
        ~NarrowCopy() { OverwriteBuffer(m_bytes); }
        CXTString<char> m_bytes;
    } copy;
    static_cast<void>(
        XEncodeText(text.GetConstBuffer(), text.GetLength64(), xEncodingUtf8, copy.m_bytes)); // never fails
    ForgetRegisters();
    m_utf8.assign(copy.m_bytes.GetConstBuffer(), copy.m_bytes.GetLength64());
    ForgetRegisters();
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
