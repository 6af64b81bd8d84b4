#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

// Whether the calling thread is asked to end, for long operations that it runs: unpacking an archive, a parallel loop,
// waiting for another process. They return soon when it is. Saving a file does not check, nor does taking a lock of this
// process: the last save at shutdown must work.
// Safe from several threads at once.

namespace tev
{
/// What is known of a thread of the library. A pool thread has the status of the work that it helps with.
class ThreadStatus : public std::enable_shared_from_this<ThreadStatus>
{
public:
    ThreadStatus(const ThreadStatus&) = delete;
    ThreadStatus& operator=(const ThreadStatus&) = delete;
    virtual ~ThreadStatus();

    virtual bool IsAskedToEnd() const noexcept = 0;
    /// The system's identifier of the thread for which the work is done, 0 until the thread runs.
    std::uint64_t ThreadId() const noexcept { return m_threadId.load(std::memory_order_relaxed); }
    void SetThreadId(std::uint64_t id) noexcept { m_threadId.store(id, std::memory_order_relaxed); }
    /// The long operation that the thread is in, null when in none.
    const char* Operation() const noexcept { return m_operation.load(std::memory_order_acquire); }

protected:
    ThreadStatus() = default;

private:
    friend class LongOperation;

    std::atomic<std::uint64_t> m_threadId{0};
    std::atomic<const char*> m_operation{nullptr};
};

/// The calling thread's, null on a thread that the library did not start.
ThreadStatus* StatusOfThisThread() noexcept;
/// The status must stay valid until the next call.
void SetStatusOfThisThread(ThreadStatus* status) noexcept;

/// The calling thread, or the one for which a pool thread works now.
std::uint64_t IdOfThisThreadsWork() noexcept;

/// Whether the calling thread, or the one for which a pool thread works now, is asked to end: it or an ancestor was
/// cancelled, it was stopped, all workers are and it is one of them, or it is to be killed.
bool IsThreadAskedToEnd() noexcept;

/// To be called after each event that may ask a thread to end, so that running loops check.
void NoteEndingChange() noexcept;
/// How threads are found cancelled by their identifiers, from the first one on that is.
void SetCancelQuery(bool (*isCancelled)(std::uint64_t id)) noexcept;
bool IsThreadCancelled(std::uint64_t id) noexcept;

/// Names the operation of the calling thread for as long as the object exists, for a report on a shutdown that takes long.
/// The name, a text of the program, completes "the thread is ...".
class LongOperation
{
public:
    explicit LongOperation(const char* name) noexcept : m_status(StatusOfThisThread())
    {
        if (m_status != nullptr)
            m_outer = m_status->m_operation.exchange(name, std::memory_order_acq_rel);
    }
    ~LongOperation()
    {
        if (m_status != nullptr)
            m_status->m_operation.store(m_outer, std::memory_order_release);
    }
    LongOperation(const LongOperation&) = delete;
    LongOperation& operator=(const LongOperation&) = delete;

private:
    ThreadStatus* const m_status;
    const char* m_outer = nullptr;
};
} // namespace tev
