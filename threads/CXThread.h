#pragma once

#include "base/ThreadSafety.h"
#include "objects/CXObject.h"

#include <atomic>
#include <memory>

class CXException;
namespace tev
{
struct SharedThread;
}
namespace tev::platform
{
struct StartedThread;
}

/// The priority of a thread; any other value counts as normal. What the system allows differs: see docs/threads.md.
enum xThreadPriority : unsigned int
{
    xThreadPriorityLowest = 1,
    xThreadPriorityBelowNormal = 2,
    xThreadPriorityNormal = 3,
    xThreadPriorityAboveNormal = 4,
    xThreadPriorityHighest = 5
};

/// A thread and its state. It runs a function, or the object's own Start, Run and Finish, once. BeginThread starts it; it
/// ends when its body returns, so a long body checks ShouldCancel() from time to time. An exception that leaves the body
/// ends no more than the thread, which counts as failed; TakeException hands it out, else it is deleted with the object.
///
/// With auto-delete the thread deletes the object at its end, so no other thread may use the object once the thread runs.
/// Without it the object's owner deletes it, best after WaitForEnd(). Deleting the object of a thread that still waits
/// suspended at its start ends the thread without running its body; a thread that runs a function continues without the
/// object; one that runs the object's own methods must have ended. Deleting waits for a thread that holds the object's lock.
///
/// XLastFailure() says why a thread could not be started, its priority or state not be changed, or a wait failed.
/// Safe from several threads at once, construction and destruction apart.
class TEVTOOLS_API CXThread : public CXObject
{
public:
    X_DECLARE_LIBRARY_CLASS(CXThread)

    enum ThreadFlags : unsigned int
    {
        ThreadAutoDelete = 1,   ///< the object is deleted by its thread
        ThreadCancel = 2,       ///< the body was asked to end
        ThreadTerminated = 8,   ///< the body has ended, or the thread was killed
        ThreadHardKillable = 16 ///< CCustomThread::HardThreadsTermination(true) may kill the thread; never set here
    };

    /// Bits of the flags that BeginThread takes.
    static constexpr unsigned int kBeginSuspended = 1;
    static constexpr unsigned int kBeginWithoutAutoDelete = 2;

    /// For a thread that runs the methods of a derived class.
    explicit CXThread(bool withoutAutoDelete);
    /// For a thread that runs the function, which returns whether it succeeded.
    CXThread(bool (*function)(void*), void* data);
    CXThread(const CXThread&) = delete;
    CXThread& operator=(const CXThread&) = delete;
    ~CXThread() override;

    /// Starts the object's thread, suspended where the flags say so. A stack size of 0 is the system's default; only its
    /// low 32 bits count. Returns the object, or null when the system refuses the thread; the object is deleted then.
    ///
    /// An object is started once. Null when it was started before: if its thread has ended, and the caller can know that
    /// (it started the thread itself, or IsTerminated, WaitForEnd or GetExitCode has returned true), the object is deleted,
    /// otherwise it is left alone; so of two threads that start an object at once neither takes it away from the other.
    /// The calling thread's pending exception is deleted, also on failure.
    static CXThread* BeginThread(CXThread* thread, xThreadPriority priority, unsigned int flags,
                                 unsigned __int64 stackSize);
    /// As above, with a new object for the function.
    static CXThread* BeginThread(bool (*function)(void*), void* data, xThreadPriority priority, unsigned int flags,
                                 unsigned __int64 stackSize);
    /// As above, with a new object of the class, which receives the data. Null when the class cannot be created or is
    /// not derived from CXThread.
    static CXThread* BeginThread(const CXRuntimeClass* type, void* data, xThreadPriority priority, unsigned int flags,
                                 unsigned __int64 stackSize);

    void* GetUserThreadData() const noexcept { return m_userData; }
    bool IsValidThread() const noexcept { return m_handle.load() != nullptr; }
    /// True between SuspendThread and the next ResumeThread, also when the thread has ended meanwhile.
    bool IsSuspended() const noexcept { return (m_state.load() & kSuspended) != 0; }
    /// Null until the thread is started.
    void* GetThreadHandle() const noexcept { return m_handle.load(); }
    /// The system's identifier, 0 until the thread is started.
    unsigned __int64 GetThreadID() const noexcept;
    /// The priority requested last; 0 when that was refused.
    xThreadPriority GetThreadPriority() const noexcept { return m_priority.load(); }
    [[nodiscard]] bool ShouldCancel() const { return IsFlagSet(ThreadCancel); }
    /// True when the body has ended or the thread was killed, and whenever WaitForEnd has returned true.
    [[nodiscard]] bool IsTerminated() const;
    /// True when the thread has ended; the exit code is 0 when its body returned true, 0xFFFFFFFF when it returned false
    /// or threw or the system ended the thread (pthread_exit), 1 when it was killed.
    bool GetExitCode(unsigned int& exitCode) const;
    /// Waits until the thread has ended; false on time-out, and for an object that was not started. Not for objects with
    /// auto-delete.
    [[nodiscard]] bool WaitForEnd(unsigned int timeoutMs) const;
    /// Hands out the exception of the library that ended the body; the caller deletes it. Null when there is none, when
    /// it was handed out before, and for exceptions of other types. Ask when the thread has ended (WaitForEnd).
    [[nodiscard]] CXException* TakeException();

    void SetAutoDelete(bool autoDelete);
    /// Asks the body to end.
    void SetCancel();
    /// False when the system refuses, and for a thread that has ended or was not started.
    bool SetThreadPriority(xThreadPriority priority);
    /// Takes back one SuspendThread, or the suspended start. False for a thread that has ended or was not started.
    bool ResumeThread();
    /// Stops the thread where it is, until ResumeThread has been called as often as this. True for every thread that was
    /// started, even if the system refuses. The thread keeps what it holds: read docs/threads.md before using this.
    bool SuspendThread();
    /// Takes the object's lock, or releases it. While it is held no other thread reads or changes the flags, and the thread
    /// does not end. Always true.
    bool Lock(bool lock);

    /// Has `step` called every few milliseconds on each thread that waits in WaitForEnd, CCustomThread::WaitEndOfThreads
    /// or EndThreads, while it holds no lock of the library: a window can go on answering the threads that its own thread
    /// waits for. The step must not throw; the time of a wait may be over before it returns. Null for none. Returns the
    /// previous one.
    using WaitStep = void (*)();
    static WaitStep SetWaitStep(WaitStep step) noexcept;

    static void SleepCurrentThread(unsigned int milliseconds);
    /// The thread that called InitFerngateApplication, 0 before.
    static unsigned __int64 GetMainThreadID();
    static unsigned __int64 GetCurrentThreadID();

protected:
    static WaitStep GetWaitStep() noexcept;

    /// The body of a thread without function: Start; Run when Start returned true; Finish in both cases, unless an
    /// exception was thrown before it.
    virtual bool Start();
    virtual void Finish();
    virtual bool Run();

    /// Deletes the object and returns true where auto-delete is set.
    bool AutoDelete();
    void SetFlag(ThreadFlags flag, bool set);
    bool IsFlagSet(ThreadFlags flag) const;

private:
    friend class CCustomThread;
    struct Body;

    static constexpr unsigned int kSuspended = 1;
    static constexpr unsigned int kRunning = 0x100;

    static bool StaticThreadCallback(void* body);
    bool Begin(xThreadPriority priority, unsigned int flags, unsigned __int64 stackSize);
    bool RunMethods();
    /// Why the thread is asked to end, for long operations (objects/ThreadStatus.h).
    enum EndReason : unsigned int
    {
        kCancelled = 1,
        kStopped = 2,
        kToBeKilled = 4
    };
    void SetEndReason(EndReason reason, bool set);
    bool HasEndReason(EndReason reason) const noexcept;
    /// The thread is also asked to end as long as the flag is set, which is never destroyed.
    void ObeyToo(const std::atomic<bool>& stopOfAll) noexcept;
    /// The long operation of the library that the thread is in, null when in none.
    const char* LongOperation() const noexcept;
    bool HasEnded() const noexcept;
    bool HasSystemThreadEnded() const noexcept;
    /// Whether an object lies on the stack of the thread.
    bool HasOnStack(const void* object) const noexcept;
    /// Ends the thread by force, with exit code 1; true when that ended it. Marks it as terminated in any case.
    bool Kill();
    /// A thread that has ended may have left the object's lock locked.
    void ReleaseLockOfEnded() const;
    /// Before the object is gone: its thread, if suspended, continues without it, or ends where it waits at its start.
    void PartFromThread() noexcept;

    bool (*const m_function)(void*);
    void* m_userData;
    std::atomic<void*> m_handle{nullptr};
    std::atomic<unsigned int> m_state{0};
    std::atomic<xThreadPriority> m_priority{xThreadPriority{}};
    const std::shared_ptr<tev::SharedThread>
        m_shared; ///< the lock, which the thread needs even after the object is deleted
    std::atomic<unsigned int> m_flags;
    std::atomic<bool> m_isClaimed{false};          ///< a call of BeginThread has started it, or is about to
    std::atomic<unsigned __int64> m_starter{0};    ///< the number of the thread that did
    mutable std::atomic<bool> m_isEndKnown{false}; ///< a caller was told that the thread has ended
};

/// Holds a thread object's lock while it exists: see CXThread::Lock. The object must exist as long.
class CXThreadLock
{
public:
    explicit CXThreadLock(CXThread& thread) : m_thread(thread) { m_thread.Lock(true); }
    ~CXThreadLock() { m_thread.Lock(false); }
    CXThreadLock(const CXThreadLock&) = delete;
    CXThreadLock& operator=(const CXThreadLock&) = delete;

private:
    CXThread& m_thread;
};

/// Keeps a thread suspended while it exists, where that was possible: see CXThread::SuspendThread for what must not be done
/// meanwhile. The object must exist as long.
class CXThreadSuspension
{
public:
    explicit CXThreadSuspension(CXThread& thread) : m_thread(thread), m_isSuspended(m_thread.SuspendThread()) {}
    ~CXThreadSuspension()
    {
        if (m_isSuspended)
            m_thread.ResumeThread();
    }
    CXThreadSuspension(const CXThreadSuspension&) = delete;
    CXThreadSuspension& operator=(const CXThreadSuspension&) = delete;

private:
    CXThread& m_thread;
    const bool m_isSuspended;
};
