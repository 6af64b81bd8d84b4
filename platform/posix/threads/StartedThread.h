#pragma once

#include "platform/Threads.h"

#include <atomic>
#include <csetjmp>

#include <pthread.h>

namespace tev::platform
{
/// Ways to end a thread, in the order of increasing force.
enum class KillForce : std::uint32_t
{
    None,
    WithoutLocks, ///< only where it holds no lock
    WithLocks,    ///< also where it holds locks of the program
    RawExit ///< inside the C library, too: the thread ends at once and leaves what it was changing there half done
};

struct StartedThread
{
    // m_request: how often suspended, and whether to die. One word, because stopped threads wait on it.
    static constexpr std::uint32_t kDie = 0x80000000u;

    static constexpr unsigned kUnwoundExitCode = 0xFFFFFFFFu; ///< of one that the system ended

    bool IsAskedToStop() const noexcept { return (m_request.load() & ~kDie) != 0; }
    bool IsAskedToDie() const noexcept { return (m_request.load() & kDie) != 0; }
    bool HasEnded() const noexcept { return m_ended.load(std::memory_order_acquire) != 0; }

    std::atomic<std::uint32_t> m_references{2}; ///< the starter's and the thread's own
    ThreadProcedure m_procedure{};
    void* m_argument = nullptr;
    ThreadOwner m_owner = ThreadOwner::Program;
    pthread_t m_thread{};
    std::atomic<std::uint32_t> m_id{0};
    std::uint64_t m_number = 0;
    std::atomic<std::uint32_t> m_request{1};
    std::atomic<std::uint32_t> m_standing{0}; ///< 1 while it is stopped because of m_request
    std::atomic<std::uint32_t> m_ended{0};
    std::atomic<bool> m_hasLeftStart{false};
    std::atomic<KillForce> m_killForce{KillForce::None};
    std::atomic<bool> m_wasKilled{false};
    std::atomic<bool> m_isLost{false};       ///< a thread of the parent, in a forked child
    std::atomic<bool> m_hasLeftRawly{false}; ///< it ended by KillForce::RawExit
    std::atomic<unsigned> m_exitCode{kUnwoundExitCode};
    std::atomic<unsigned> m_killedExitCode{0};
    std::atomic<unsigned> m_refusals{0}; ///< how often in a row it could not stop because of a lock
    sigjmp_buf m_end{};                  ///< where a killed thread jumps to
    std::size_t m_stackSize = 0;
    const char* m_stackLow = nullptr; ///< below the stack, by less than the guard page that lies there
    const char* m_stackTop = nullptr; ///< above all that its procedure has on the stack
    StartedThread* m_next = nullptr;
    StartedThread* m_previous = nullptr;
};

/// The last step of a thread, done by its killer where it ended by the raw exit.
void Leave(StartedThread& thread) noexcept;

/// The calling thread while it may be stopped and killed, else null.
void SetStoppableThread(StartedThread* thread) noexcept;
/// Installs what stops threads. Called before the first thread is started, and by each thread at its start.
void PrepareStops() noexcept;
void AcceptStopsOnThisThread() noexcept;
/// Blocks as long as the calling thread is asked to stop; returns also when it is to die.
void StandStill(StartedThread& self) noexcept;
/// Calls the hooks of stacks that are left as they are, on a thread that is to be killed: what it calls after the jump to its
/// end would lie over the objects that the hooks are told of.
void ReportKilledStack(const StartedThread& self) noexcept;
/// Records on the thread itself that it ends by force.
void NoteKilled(StartedThread& self) noexcept;
} // namespace tev::platform
