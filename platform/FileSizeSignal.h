#pragma once

namespace tev::platform
{
/// While it exists, writing a file beyond the process's limit fails on the calling thread instead of raising a signal.
class WithoutFileSizeSignal
{
public:
    WithoutFileSizeSignal() noexcept;
    ~WithoutFileSizeSignal();
    WithoutFileSizeSignal(const WithoutFileSizeSignal&) = delete;
    WithoutFileSizeSignal& operator=(const WithoutFileSizeSignal&) = delete;

private:
    bool m_wasBlocked;
};
} // namespace tev::platform
