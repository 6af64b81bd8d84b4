#pragma once

#include <memory>

// The threads of the library that share the work of parallel loops, of unpacking archives and of writing behind. There are
// at most as many as OMPGetMaxThreadCount says, less one, for the whole process. They are started when there is work, as far
// as the system allows, and end when there has been none for a while. No work ever waits for one of them to come: its
// owner does alone what no other thread takes. A forked child starts without them and makes its own.
// Safe from several threads at once.

namespace tev
{
class Team;

/// Offers work of the calling thread to the pool for as long as the object exists. Objects of one thread are destroyed in
/// the reverse order of their construction.
class Teamwork
{
public:
    /// A part of the work, called once on each helper. Exceptions must not leave it.
    using Work = void (*)(void* context);

    /// `helpers` is the most that may come. Does nothing where there is no memory.
    Teamwork(unsigned helpers, Work work, void* context) noexcept;
    /// Waits for the helpers that came.
    ~Teamwork();
    Teamwork(const Teamwork&) = delete;
    Teamwork& operator=(const Teamwork&) = delete;

    /// True where no helper is at work; none comes then.
    bool CloseIfUnused() noexcept;
    /// Waits for the helpers that came; no other comes. True unless what they had begun was lost, in a forked child.
    bool CloseAndWait() noexcept;

private:
    Team* m_team = nullptr; ///< belongs to the pool
};

/// Calls `work` on the calling thread and on up to `workers` - 1 helpers, and returns when all of them have returned; only
/// on the calling thread when that is inside such a call already. False when what helpers had begun was lost.
bool RunTogether(unsigned workers, Teamwork::Work work, void* context);
} // namespace tev
