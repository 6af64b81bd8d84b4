#pragma once

#include "zip/CZipExtractCallback.h"

#include <cstdint>

namespace tev
{
/// Tells a callback, where there is one, how an action of an archive goes on. One thread at a time.
class ZipAction
{
public:
    /// Bytes between two reports.
    static constexpr unsigned kStep = 64 * 1024;

    ZipAction(CXZipCallback* callback, XZipAction action, std::uint64_t total);
    /// Ends the action, whatever became of it.
    ~ZipAction();
    ZipAction(const ZipAction&) = delete;
    ZipAction& operator=(const ZipAction&) = delete;

    /// False to cancel.
    [[nodiscard]] bool Advance(std::uint64_t count);
    [[nodiscard]] bool AdvanceTo(std::uint64_t processed);
    /// Reports what was not reported yet.
    [[nodiscard]] bool Finish();

private:
    CXZipCallback* m_callback;
    XZipAction m_action;
    std::uint64_t m_processed = 0;
    std::uint64_t m_reported = 0;
};
} // namespace tev
