#pragma once

#include "zip/ZipTypes.h"
#include "zip/engine/ZipEngine.h"

namespace tev
{
/// How an operation on an archive ended.
struct ZipOutcome
{
    XZipFailure m_failure = XZipFailure::kNone;
    unsigned m_systemError = 0;

    explicit operator bool() const noexcept { return m_failure == XZipFailure::kNone; }
    static ZipOutcome Of(const platform::ZipError& error) noexcept;
    /// The system's last error.
    static ZipOutcome OfSystem() noexcept;
};
} // namespace tev
