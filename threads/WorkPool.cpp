#include "threads/WorkPool.h"

#include "base/NeverDestroyed.h"
#include "objects/CXCriticalSection.h"
#include "objects/ResultOr.h"
#include "objects/ThreadStatus.h"
#include "platform/ForkHandlers.h"
#include "platform/SharedWork.h"
#include "platform/Threads.h"
#include "threads/WorkerCount.h"

#include <algorithm>

namespace
{
constexpr std::chrono::seconds kIdleTime(10); ///< after which a thread without work ends

/// True while the calling thread takes part in the work of a team.
thread_local bool t_isInTeam TEV_NEAR_THREAD_LOCAL = false;

class InTeam
{
public:
    InTeam() noexcept { t_isInTeam = true; }
    ~InTeam() { t_isInTeam = m_before; }
    InTeam(const InTeam&) = delete;
    InTeam& operator=(const InTeam&) = delete;

private:
    const bool m_before = t_isInTeam;
};
} // namespace

/// The thread that offers the work and those that help. It is what a helper knows of the thread it works for.
class tev::Team final : public ThreadStatus
{
public:
    Team(Teamwork::Work work, void* context)
        : m_work(work),
          m_context(context),
          m_owner(StatusOfThisThread() == nullptr ? nullptr : StatusOfThisThread()->shared_from_this())
    {
        SetThreadId(IdOfThisThreadsWork());
    }

    bool IsAskedToEnd() const noexcept override
    {
        return m_shared.IsEnding() || (m_owner != nullptr ? m_owner->IsAskedToEnd() : IsThreadCancelled(ThreadId()));
    }

    /// On a pool thread that has entered. Leaves also when the system unwinds the thread.
    void Help()
    {
        const Visit visit(*this);
        const InTeam inTeam;
        m_work(m_context);
    }

    platform::SharedWork m_shared;
    unsigned m_places = 0;        ///< how many more helpers may come
    std::shared_ptr<Team> m_next; ///< in the pool's list

private:
    class Visit
    {
    public:
        explicit Visit(Team& team) : m_team(team) { SetStatusOfThisThread(&team); }
        ~Visit()
        {
            SetStatusOfThisThread(nullptr);
            m_team.m_shared.Leave();
        }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

    private:
        Team& m_team;
    };

    const Teamwork::Work m_work;
    void* const m_context;
    const std::shared_ptr<const ThreadStatus> m_owner; ///< null for a thread that the library did not start
};

namespace
{
using tev::Team;

class Pool
{
public:
    static Pool& Get()
    {
        static tev::NeverDestroyed<Pool> pool;
        return pool.Get();
    }

    /// The list is what keeps the team in memory, so that one whose owner was ended by force is released as well.
    void Offer(std::shared_ptr<Team> team, unsigned helpers)
    {
        const tev::LockGuard guard(m_lock);
        std::shared_ptr<Team>* end = &m_first;
        while (*end != nullptr)
        {
            if ((*end)->m_shared.IsAbandoned())
                *end = std::shared_ptr<Team>((*end)->m_next);
            else
                end = &(*end)->m_next;
        }
        team->m_places = helpers;
        team->m_shared.Begin();
        *end = std::move(team);

        const unsigned idle = std::min(helpers, m_idle);
        const unsigned most = OMPGetMaxThreadCount() - 1;
        for (unsigned missing = helpers - idle; missing > 0 && m_threads < most && StartThread(); --missing)
            ++m_threads;
        m_offers.fetch_add(1);
        for (unsigned i = 0; i < idle; ++i)
            tev::platform::WakeOne(m_offers);
    }

    static void BeforeFork() X_NO_THREAD_SAFETY_ANALYSIS { Get().m_lock.Lock(); }
    static void InParent() X_NO_THREAD_SAFETY_ANALYSIS { Get().m_lock.Unlock(); }
    // The child's only thread may own teams, or be a helper, which returns soon and ends.
    static void InChild() X_NO_THREAD_SAFETY_ANALYSIS
    {
        Pool& pool = Get();
        ++pool.m_process;
        pool.m_threads = 0;
        pool.m_idle = 0;
        tev::platform::SharedWork::LoseHelpersOfAll();
        for (std::shared_ptr<Team>* place = &pool.m_first; *place != nullptr;)
        {
            tev::platform::SharedWork& shared = (*place)->m_shared;
            if (shared.IsOfThisThread())
            {
                place = &(*place)->m_next;
                continue;
            }
            shared.Lose();
            *place = std::shared_ptr<Team>((*place)->m_next);
        }
        pool.m_lock.Unlock();
    }

    void Withdraw(Team* team)
    {
        const tev::LockGuard guard(m_lock);
        team->m_shared.End();
        std::shared_ptr<Team>* place = &m_first;
        while (place->get() != team)
            place = &(*place)->m_next;
        *place = std::shared_ptr<Team>((*place)->m_next);
    }

private:
    static std::uintptr_t NumberOf(void* process) noexcept { return reinterpret_cast<std::uintptr_t>(process); }

    bool StartThread() const X_REQUIRES(m_lock)
    {
        const auto run = [](void* process) {
            while (const std::shared_ptr<Team> team = Get().NextTeam(NumberOf(process)))
                team->Help();
            return 0u;
        };
        const auto discard = [](void* process) noexcept { Get().CountEndedThread(NumberOf(process)); };
        tev::platform::StartedThread* const thread = tev::platform::StartThread(
            {run, discard}, reinterpret_cast<void*>(m_process), 0, tev::platform::ThreadOwner::Library);
        if (thread == nullptr)
            return false;
        tev::platform::ResumeThread(thread);
        tev::platform::ReleaseThread(thread);
        return true;
    }

    void CountEndedThread(std::uintptr_t process) noexcept
    {
        const tev::LockGuard guard(m_lock);
        if (process == m_process)
            --m_threads;
    }

    /// A team that the calling thread has entered; null when there was none for a while.
    std::shared_ptr<Team> NextTeam(std::uintptr_t process)
    {
        std::uint32_t offers = 0;
        for (bool hasWaited = false;; hasWaited = true)
        {
            {
                const tev::LockGuard guard(m_lock);
                if (process != m_process)
                    return nullptr;
                if (std::shared_ptr<Team> team = EnterOne())
                    return team;
                if (hasWaited && offers == m_offers.load())
                    return nullptr;
                offers = m_offers.load();
                ++m_idle;
            }
            tev::platform::WaitWhile(m_offers, offers, kIdleTime);
            const tev::LockGuard guard(m_lock);
            if (process == m_process)
                --m_idle;
        }
    }

    std::shared_ptr<Team> EnterOne() const X_REQUIRES(m_lock)
    {
        for (std::shared_ptr<Team> team = m_first; team != nullptr; team = team->m_next)
        {
            if (team->m_places > 0 && team->m_shared.Enter())
            {
                --team->m_places;
                return team;
            }
        }
        return nullptr;
    }

    tev::LibraryLock m_lock;
    std::shared_ptr<Team> m_first X_GUARDED_BY(m_lock);
    unsigned m_threads X_GUARDED_BY(m_lock) = 0;
    unsigned m_idle X_GUARDED_BY(m_lock) = 0;
    /// Counts the forks that led to this process, and tells a thread whether it was started in it.
    std::uintptr_t m_process X_GUARDED_BY(m_lock) = 0;
    std::atomic<std::uint32_t> m_offers{0};
};

const tev::platform::ForkHandler g_forkOfPool(tev::platform::ForkRank::WorkerPool, &Pool::BeforeFork, &Pool::InParent,
                                              &Pool::InChild);
} // namespace

tev::Teamwork::Teamwork(unsigned helpers, Work work, void* context) noexcept
{
    if (helpers == 0)
        return;
    std::shared_ptr<Team> team =
        ResultOr(std::shared_ptr<Team>(), [&] { return std::make_shared<Team>(work, context); });
    if (team == nullptr)
        return;
    m_team = team.get();
    Pool::Get().Offer(std::move(team), helpers);
}

tev::Teamwork::~Teamwork()
{
    if (m_team == nullptr)
        return;
    m_team->m_shared.CloseAndWait();
    Pool::Get().Withdraw(m_team);
}

bool tev::Teamwork::CloseIfUnused() noexcept
{
    return m_team == nullptr || m_team->m_shared.CloseIfUnused();
}

bool tev::Teamwork::CloseAndWait() noexcept
{
    if (m_team == nullptr)
        return true;
    m_team->m_shared.CloseAndWait();
    return !m_team->m_shared.IsEnding();
}

bool tev::RunTogether(unsigned workers, Teamwork::Work work, void* context)
{
    Teamwork team(t_isInTeam || workers == 0 ? 0 : workers - 1, work, context);
    {
        const InTeam inTeam;
        work(context);
    }
    return team.CloseAndWait();
}
