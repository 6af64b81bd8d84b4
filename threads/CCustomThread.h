#pragma once

#include "threads/CXThread.h"

/// A worker that a shutdown of the whole program reaches: every object is known from its construction to its destruction.
/// The body looks at MustTerminate() and returns when it is true. See docs/threads.md for the shutdown.
/// Safe from several threads at once, construction and destruction apart.
class TEVTOOLS_API CCustomThread : public CXThread
{
public:
    X_DECLARE_CLASS(CCustomThread)

    CCustomThread();
    CCustomThread(bool (*function)(void*), void* data);
    ~CCustomThread() override;

    /// True when this worker, or every worker, is asked to end.
    bool MustTerminate() const noexcept { return ThreadsMustTerminate() || m_stop.load(); }
    void StopThread() noexcept { m_stop.store(true); }

    /// True when every worker is asked to end, those that are yet to be made included.
    static bool ThreadsMustTerminate() noexcept;
    /// How many workers there are: objects, whether their threads run or not.
    static unsigned int GetRunningThreadCount();
    /// Asks every worker to end, and marks its thread as cancelled. With `resume` a suspended one goes on, so that it can
    /// see it.
    static void AskForThreadsEnd(bool resume);
    /// Asks as above and waits until every worker is destroyed, without limit. Does not wait when the workers were asked
    /// before. Afterwards new workers may run, unless the flag is to be kept.
    static void WaitEndOfThreads(bool keepStopFlag);
    /// Asks as above, resumes, and waits until every worker is destroyed or the time is over, whether they were asked
    /// before or not. True when none is left; new workers may run then.
    static bool EndThreads(unsigned int timeoutMs);
    /// Ends workers by force, and the threads that are recorded as their children; with `onlyKillable` only those that bear
    /// ThreadHardKillable. The last resort: what they held stays held, and the objects are not deleted, but count no more.
    /// A worker that was never started only stops to count. The calling thread is left alone. True when a thread was
    /// killed. Takes 0.1 s for each worker after the first.
    static bool HardThreadsTermination(bool onlyKillable);

    /// Names are not used.
    static void SetThreadName(unsigned __int64 id, const char* name);
    static void SetCurrentThreadName(const char* name);
    void SetThreadName(const char* name);
    static unsigned __int64 GetCurrentThreadID();

private:
    std::atomic<bool> m_stop{false};
};

/// A worker that can hold the platform's component run-time for its thread.
class TEVTOOLS_API CWinCustomThread : public CCustomThread
{
public:
    X_DECLARE_CLASS(CWinCustomThread)

    using CCustomThread::CCustomThread;
    ~CWinCustomThread() override;

    /// Takes the component run-time for the calling thread, or gives it back. False when it cannot be had. Where the
    /// platform has none, it always can.
    bool InitOle(bool enable) const;

protected:
    void ExitInstance();

private:
    mutable bool m_oleInitialized = false;
};
