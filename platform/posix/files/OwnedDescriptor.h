#pragma once

#include <cerrno>
#include <utility>

#include <sys/syscall.h>
#include <unistd.h>

namespace tev::platform
{
/// A descriptor that is closed, with errno kept, unless it is released.
class OwnedDescriptor
{
public:
    explicit OwnedDescriptor(int descriptor) : m_descriptor(descriptor) {}
    ~OwnedDescriptor()
    {
        const int error = errno;
        if (m_descriptor >= 0)
            syscall(SYS_close, m_descriptor); // no point of cancellation, which a destructor must not pass
        errno = error;
    }
    OwnedDescriptor(OwnedDescriptor&& other) noexcept : m_descriptor(other.Release()) {}
    OwnedDescriptor(const OwnedDescriptor&) = delete;
    OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;
    OwnedDescriptor& operator=(OwnedDescriptor&& other) noexcept
    {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }

    int Get() const { return m_descriptor; }
    int Release()
    {
        const int descriptor = m_descriptor;
        m_descriptor = -1;
        return descriptor;
    }

private:
    int m_descriptor;
};
} // namespace tev::platform
