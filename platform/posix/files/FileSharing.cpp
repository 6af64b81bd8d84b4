// How openers find each other: each holds locks of its open file description on single bytes far beyond any data, in up
// to four ranges that say what it does and what it denies to others. It first sets its own locks and then looks for
// those of others in the ranges that contradict them. The second opener sees the first one; two that open at the same
// moment may see each other, so both release their locks and retry after a short random time.
//
// The bytes are chosen at random, because a descriptor that can only read can only set shared locks and one that can
// only write only exclusive ones, and both kinds must live together in one range.

#include "platform/posix/files/FileSharing.h"
#include "platform/Cancellation.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <thread>

#include <fcntl.h>

namespace tev::platform
{
#if defined(F_OFD_SETLK)
namespace
{
static_assert(sizeof(off_t) == 8, "the ranges lie at 2^62");

constexpr off_t kFirstRange = off_t{1} << 62;
constexpr off_t kRangeSize = off_t{1} << 58;
constexpr int kAttempts = 4;
constexpr unsigned kLongestPauseMicroseconds = 1000;

enum LockedRange
{
    Reads = 0,
    Writes = 1,
    DeniesRead = 2,
    DeniesWrite = 3
};
constexpr int kRangeCount = 4;

/// The range that holds the contrary of what the given one holds.
constexpr int Contradiction(int range)
{
    return range ^ 2;
}

off_t StartOf(int range)
{
    return kFirstRange + kRangeSize * range;
}

std::uint64_t NextRandom()
{
    static std::atomic<std::uint64_t> counter{0};
    // The time keeps a child from repeating its parent's numbers. Unlike the process number it takes no call of the system.
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    std::uint64_t x = counter.fetch_add(0x9E3779B97F4A7C15u) + static_cast<std::uint64_t>(now) * 0xD1B54A32D192ED03u;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9u;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBu;
    return x ^ (x >> 31);
}

bool LockCall(int descriptor, int command, struct flock& lock)
{
    const WithoutCancellation whole;
    while (fcntl(descriptor, command, &lock) != 0)
    {
        if (errno != EINTR)
            return false;
    }
    return true;
}

struct flock MakeLock(int type, off_t start, off_t length)
{
    struct flock lock = {};
    lock.l_type = static_cast<short>(type);
    lock.l_whence = SEEK_SET;
    lock.l_start = start;
    lock.l_len = length;
    return lock;
}

void Leave(int descriptor)
{
    struct flock lock = MakeLock(F_UNLCK, kFirstRange, kRangeSize * kRangeCount);
    LockCall(descriptor, F_OFD_SETLK, lock);
}

enum class Mark
{
    Set,
    Blocked,
    NotSupported
};

Mark SetMark(int descriptor, int lockType, int range)
{
    for (int attempt = 0; attempt < kAttempts; ++attempt)
    {
        const off_t byte = static_cast<off_t>(NextRandom() % static_cast<std::uint64_t>(kRangeSize));
        struct flock lock = MakeLock(lockType, StartOf(range) + byte, 1);
        if (LockCall(descriptor, F_OFD_SETLK, lock))
            return Mark::Set;
        if (errno != EAGAIN && errno != EACCES)
            return Mark::NotSupported;
    }
    return Mark::Blocked; // another process has locked the whole file
}

// Looks into ranges that lie side by side.
bool OthersIn(int descriptor, int firstRange, int count)
{
    struct flock lock = MakeLock(F_WRLCK, StartOf(firstRange), kRangeSize * count);
    return LockCall(descriptor, F_OFD_GETLK, lock) && lock.l_type != F_UNLCK;
}

bool TryToEnter(int descriptor, const FileShare& share)
{
    const bool marked[] = {share.reads, share.writes, share.deniesRead, share.deniesWrite};
    const int lockType = share.reads ? F_RDLCK : F_WRLCK;
    for (int range = 0; range < kRangeCount; ++range)
    {
        const Mark mark = marked[range] ? SetMark(descriptor, lockType, range) : Mark::Set;
        if (mark == Mark::Blocked)
            return false;
        if (mark == Mark::NotSupported)
            return true;
    }
    const auto isContradicted = [&](int range) {
        const int own = Contradiction(range);
        return marked[own] || (own == Writes && share.truncates);
    };
    // One call looks into as many ranges as lie side by side.
    int first = 0;
    for (int range = 0; range <= kRangeCount; ++range)
    {
        if (range < kRangeCount && isContradicted(range))
            continue;
        if (range > first && OthersIn(descriptor, first, range - first))
            return false;
        first = range + 1;
    }
    return true;
}
} // namespace

bool EnterSharing(int descriptor, const FileShare& share)
{
    for (int attempt = 1;; ++attempt)
    {
        if (TryToEnter(descriptor, share))
            return true;
        Leave(descriptor);
        if (attempt == kAttempts)
            return false;
        std::this_thread::sleep_for(std::chrono::microseconds(NextRandom() % kLongestPauseMicroseconds));
    }
}
#else
bool EnterSharing(int, const FileShare&)
{
    return true;
}
#endif
} // namespace tev::platform
