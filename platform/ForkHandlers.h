#pragma once

namespace tev::platform
{
/// The process-wide locks of the library in the order in which a thread may take them: one that holds a lock takes later
/// ones only. A fork takes them all in this order, so that no other thread is inside one when the child is made.
enum class ForkRank : unsigned char
{
    ObjectLocks, ///< stores and other objects that several threads use
    CrashRegistry,
    LogFile, ///< a program may hold it (LogLock) and call everything else
    SettingsDatabase,
    FolderWatches,
    FileTypes,
    LiveThreads,
    ThreadObjects,
    ThreadRelations,
    WorkerPool,
    ApplicationName,
    SupportAddress,
    RuntimeClasses,
    ThreadExceptions,
    StartedThreads,
    SystemText, ///< conversions and time zones of the C library
    Count
};

/// Functions that are called around each fork of the process, on the thread that forks. Define it as an object with static
/// storage at namespace scope, so that it is registered when the library is loaded.
/// Handlers are called in the ascending order of their ranks before the fork and in the descending one after it.
/// They must not throw, and need not be there: null is not called.
/// Threads may fork at the same time: what is not under a lock of a handler is prepared by both.
class ForkHandler
{
public:
    using Function = void (*)();

    /// `inParent` is called after a fork that failed, too.
    ForkHandler(ForkRank rank, Function beforeFork, Function inParent, Function inChild) noexcept;
    ForkHandler(const ForkHandler&) = delete;
    ForkHandler& operator=(const ForkHandler&) = delete;

private:
    friend struct ForkCalls;

    const Function m_beforeFork;
    const Function m_inParent;
    const Function m_inChild;
    const ForkHandler* m_next = nullptr; ///< of the same rank
};
} // namespace tev::platform
