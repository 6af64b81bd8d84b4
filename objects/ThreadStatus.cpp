#include "objects/ThreadStatus.h"

#include "platform/SharedWork.h"
#include "platform/Threads.h"

namespace
{
thread_local tev::ThreadStatus* t_status TEV_NEAR_THREAD_LOCAL = nullptr;
std::atomic<bool (*)(std::uint64_t)> g_isCancelled{nullptr};
} // namespace

tev::ThreadStatus::~ThreadStatus() = default;

tev::ThreadStatus* tev::StatusOfThisThread() noexcept
{
    return t_status;
}

void tev::SetStatusOfThisThread(ThreadStatus* status) noexcept
{
    t_status = status;
}

std::uint64_t tev::IdOfThisThreadsWork() noexcept
{
    return t_status != nullptr ? t_status->ThreadId() : platform::CurrentThreadId();
}

bool tev::IsThreadAskedToEnd() noexcept
{
    const bool isAsked =
        t_status != nullptr ? t_status->IsAskedToEnd() : IsThreadCancelled(platform::CurrentThreadId());
    return isAsked || platform::SharedWork::IsOwnerEnding();
}

void tev::NoteEndingChange() noexcept
{
    platform::g_endingChanges.fetch_add(1);
}

void tev::SetCancelQuery(bool (*isCancelled)(std::uint64_t id)) noexcept
{
    g_isCancelled.store(isCancelled);
}

bool tev::IsThreadCancelled(std::uint64_t id) noexcept
{
    const auto isCancelled = g_isCancelled.load();
    return isCancelled != nullptr && id != 0 && isCancelled(id);
}
