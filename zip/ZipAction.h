#pragma once

#include "zip/CZipExtractCallback.h"

#include <cstdint>

namespace tev
{
/// Reports the progress of an archive's action to a callback, where there is one. One thread at a time.
class ZipAction
{
public:
    /// Bytes between two reports.
    static constexpr unsigned kStep = 64 * 1024;

    ZipAction(CXZipCallback* callback, XZipAction action, std::uint64_t total);
    /// Reports the end of the action, whether it succeeded or not.
    ~ZipAction();
    ZipAction(const ZipAction&) = delete;
    ZipAction& operator=(const ZipAction&) = delete;

    /// False to cancel.
    [[nodiscard]] bool Advance(std::uint64_t count);
    [[nodiscard]] bool AdvanceTo(std::uint64_t processed);
    /// Reports the bytes that were not reported yet.
    [[nodiscard]] bool Finish();

private:
    CXZipCallback* m_callback;
    XZipAction m_action;
    std::uint64_t m_processed = 0;
    std::uint64_t m_reported = 0;
};
} // namespace tev
