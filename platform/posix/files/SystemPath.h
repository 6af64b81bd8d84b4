#pragma once

#include "platform/PathNames.h"

#include <cerrno>

#include <limits.h>

namespace tev::platform
{
/// A path in the form that system calls take, on the stack: clean-up after a lack of memory must not allocate.
class SystemPath
{
public:
    explicit SystemPath(const wchar_t* path) noexcept
    {
        bool isTooLong = false;
        if (!WidePathToSystem(path, m_bytes, sizeof m_bytes, isTooLong))
            m_error = isTooLong ? ENAMETOOLONG : EILSEQ;
    }

    /// False, with the reason in errno, for a path that no file can have.
    [[nodiscard]] bool IsValid() const noexcept
    {
        errno = m_error != 0 ? m_error : errno;
        return m_error == 0;
    }
    const char* Get() const noexcept { return m_bytes; }

private:
    char m_bytes[PATH_MAX];
    int m_error = 0;
};
} // namespace tev::platform
