#pragma once

namespace tev::platform
{
/// The calling thread is not cancelled by the system (pthread_cancel) as long as the object exists. Around every call that may
/// block: cancellation would unwind destructors and libraries that it cannot pass through, and end the process.
class WithoutCancellation
{
public:
    WithoutCancellation() noexcept;
    ~WithoutCancellation();
    WithoutCancellation(const WithoutCancellation&) = delete;
    WithoutCancellation& operator=(const WithoutCancellation&) = delete;

private:
    int m_before;
};

/// Ends the calling thread where it was cancelled meanwhile (ForcedUnwind.h). For functions that no destructor calls.
void PassCancellationPoint();
} // namespace tev::platform
