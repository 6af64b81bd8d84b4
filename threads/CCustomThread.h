#pragma once

#include "arrays/CXArray.h"
#include "threads/CXThread.h"

/// A worker that exists, as CCustomThread::GetWorkers found it.
struct CXWorkerState
{
    unsigned __int64 m_threadId = 0;   ///< 0 when it was not started
    bool m_isRunning = false;          ///< started, and not ended
    const char* m_operation = nullptr; ///< the long operation of the library that it is in, null when in none
};

/// A worker that the shutdown of the program reaches: every object is registered from its construction to its destruction.
/// The body checks MustTerminate() regularly and returns when it is true. See docs/threads.md for the shutdown.
/// Safe from several threads at once, construction and destruction apart.
class TEVTOOLS_API CCustomThread : public CXThread
{
public:
    X_DECLARE_LIBRARY_CLASS(CCustomThread)

    CCustomThread();
    CCustomThread(bool (*function)(void*), void* data);
    ~CCustomThread() override;

    /// True when this worker, or every worker, is asked to end.
    [[nodiscard]] bool MustTerminate() const noexcept;
    void StopThread() noexcept;

    /// True when every worker is asked to end, including those created later.
    [[nodiscard]] static bool ThreadsMustTerminate() noexcept;
    /// The number of worker objects, whether their threads run or not.
    static unsigned int GetRunningThreadCount();
    /// Fills the array with the existing workers, in no order, and returns their number. An operation completes a sentence
    /// that begins with "the thread is": "in a parallel loop", "unpacking an archive".
    static unsigned int GetWorkers(CXArray<CXWorkerState>& workers);
    /// Has `report` called by EndThreads when its time is over, and by WaitEndOfThreads after a second and every ten
    /// seconds from then on, with the workers that still exist: on the waiting thread, which holds no lock. Null for no
    /// report. Returns the previous one. InitFerngateApplication sets one that writes to the log.
    using DelayReport = void (*)(const CXArray<CXWorkerState>& workers);
    static DelayReport SetDelayReport(DelayReport report) noexcept;
    /// Asks every worker to end, and marks its thread as cancelled; one that was not started has no thread to mark. With
    /// `resume` suspended workers are resumed, so that they can see the request.
    static void AskForThreadsEnd(bool resume);
    /// Asks every worker to end and waits, without time-out, until every worker object is destroyed. Does not wait when
    /// the workers were asked before. Afterwards new workers may run, unless `keepStopFlag` is true.
    static void WaitEndOfThreads(bool keepStopFlag);
    /// Asks every worker to end, resumes suspended ones, and waits until every worker object is destroyed or the time is
    /// over, also when they were asked before. True when none is left; new workers may run then. A time of 0 only asks
    /// and looks. XLastFailure() says that the time was over.
    [[nodiscard]] static bool EndThreads(unsigned int timeoutMs);
    /// Kills workers, and the threads that are recorded as their children; with `onlyKillable` only those that have the
    /// flag ThreadHardKillable. A worker whose object lies on the stack of a victim is killed before that. The last resort:
    /// locks that they hold stay locked. The objects are not deleted, but are no longer counted; so is that of a worker that
    /// was never started. The calling thread is left alone. True when a thread was killed. Takes 0.1 s for each worker after
    /// the first; meanwhile no worker can be created or deleted.
    static bool HardThreadsTermination(bool onlyKillable);

    /// Thread names are accepted and ignored.
    static void SetThreadName(unsigned __int64 id, const char* name);
    static void SetCurrentThreadName(const char* name);
    void SetThreadName(const char* name);
    static unsigned __int64 GetCurrentThreadID();

private:
    class Termination;
};

/// A worker that can hold the platform's component run-time for its thread.
class TEVTOOLS_API CWinCustomThread : public CCustomThread
{
public:
    X_DECLARE_LIBRARY_CLASS(CWinCustomThread)

    using CCustomThread::CCustomThread;
    ~CWinCustomThread() override;

    /// Initialises or uninitialises the component run-time for the calling thread. False when initialisation fails; it
    /// never fails on a platform without such a run-time.
    bool InitOle(bool enable) const;

protected:
    void ExitInstance();

private:
    mutable bool m_oleInitialized = false;
};
