#pragma once

#include <cstddef>
#include <cstdint>

namespace tev::platform
{
/// The system's identifier of the calling thread; never 0. It may be reused for another thread once this one has ended.
std::uint64_t CurrentThreadId() noexcept;
// Not noexcept: the system may end the thread there (ForcedUnwind.h).
void SleepThisThread(unsigned milliseconds);

/// A thread that was started here. Every pointer to one is a counted reference, released with ReleaseThread; the thread
/// itself is not affected by that, and can be queried until the last reference is released.
/// The functions below are safe from several threads at once.
struct StartedThread;

/// A function that is called on a thread that is being killed, which may be in a signal handler, with the bounds of its
/// stack: objects that lie there are never destroyed. Define it as an object with static storage at namespace scope.
class KilledStackHook
{
public:
    using Function = void (*)(const void* low, const void* high) noexcept;

    explicit KilledStackHook(Function function) noexcept;
    KilledStackHook(const KilledStackHook&) = delete;
    KilledStackHook& operator=(const KilledStackHook&) = delete;

    static void CallAll(const void* low, const void* high) noexcept;

private:
    const Function m_function;
    const KilledStackHook* m_next = nullptr;
};

/// Whether an object lies within such bounds.
bool IsWithin(const void* object, const void* low, const void* high) noexcept;

struct ThreadProcedure
{
    unsigned (*run)(void* argument);          ///< the thread's body; returns its exit code; no exception leaves it
    void (*discard)(void* argument) noexcept; ///< called once after it, also when it never ran or was killed
};

/// Whose thread it is. The library's own threads are not found by OpenThread.
enum class ThreadOwner
{
    Program,
    Library
};

/// Starts a thread that waits for ResumeThread. A stack size of 0 is the system's default, a small one is raised to what
/// is needed. The thread has an alternate signal stack. Null, with nothing discarded, when the system refuses.
[[nodiscard]] StartedThread* StartThread(const ThreadProcedure& procedure, void* argument, std::size_t stackSize,
                                         ThreadOwner owner) noexcept;
/// The thread with that identifier, null when it was not started here for the program
/// or has ended.
[[nodiscard]] StartedThread* OpenThread(std::uint64_t id) noexcept;
void RetainThread(StartedThread* thread) noexcept;
void ReleaseThread(StartedThread* thread) noexcept;

std::uint64_t ThreadId(const StartedThread* thread) noexcept;
/// Whether an object lies on the stack of the thread, which has not ended.
bool IsOnStackOf(const StartedThread* thread, const void* object) noexcept;
/// True, with the exit code, once the thread has ended. Destructors of its thread-local objects may run later.
bool HasEnded(const StartedThread* thread, unsigned& exitCode) noexcept;
/// Waits for the end; false on time-out.
bool WaitForThread(const StartedThread* thread, unsigned timeoutMs) noexcept;

/// Sets the priority, from -2 (lowest) to 2 (highest), 0 being what the process runs at. False where that is not allowed,
/// and for a thread that has ended.
bool SetThreadPriority(StartedThread* thread, int level) noexcept;

/// Stops the thread until ResumeThread has been called as often as this. Returns when the thread has stopped. A thread
/// stops only where it holds no CXCriticalSection; if it holds one all the time it is stopped with it after a while, but
/// never with a lock of the library itself. False when the thread has ended; and when it could not be stopped within half
/// a second: it then stops as soon as it can be. Between this and ResumeThread the caller must not use anything that the
/// thread may hold: memory allocation, the loader, the locks of the program. A thread that calls it for itself stops here.
bool SuspendThread(StartedThread* thread) noexcept;
/// Undoes one SuspendThread; the thread continues after the last one. False when it has ended.
bool ResumeThread(StartedThread* thread) noexcept;
/// Lets a thread continue, however often it was suspended; not one that could not be killed.
void ContinueThread(StartedThread* thread) noexcept;
/// As ContinueThread, for a thread that still waits at its start; does nothing for others.
void LeaveStart(StartedThread* thread) noexcept;

/// Ends another thread by force, as a last resort. Its stack, memory arena and thread-local objects are released; the
/// destructors of the objects on its stack do not run, and locks that it holds stay locked: it is ended where it holds
/// no CXCriticalSection, if it reaches such a place within 0.1 s, never while it holds a lock of the library itself, and
/// not inside the C and C++ libraries except in a blocking call. After a second it is ended there, too, and its stack and
/// thread-local objects are leaked. Returns when the thread has ended. False when it had ended already, is the calling
/// one, or did not end within two seconds; it is then left suspended, if it holds a lock of the library once it has
/// released that. One killer at a time.
bool KillThread(StartedThread* thread, unsigned exitCode) noexcept;
/// What NumberOfThisThread returns on that thread.
std::uint64_t ThreadNumber(const StartedThread* thread) noexcept;
} // namespace tev::platform
