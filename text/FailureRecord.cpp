#include "text/FailureRecord.h"

#include "platform/SystemErrors.h"
#include "platform/ThreadLocks.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cwchar>

namespace
{
using tev::FailureNote;

constexpr unsigned kSlotCount = 256;

/// Where the paths of failures are kept: a thread's own storage has no room for them where the library is opened by a
/// plug-in, and memory may be short. Many threads may have one slot; the latest of them has its path.
struct PathSlot
{
    std::atomic<bool> m_isBusy;
    std::uint64_t m_owner;
    std::size_t m_length;
    wchar_t m_path[tev::kFailurePathRoom];
};

PathSlot g_slots[kSlotCount];
std::atomic<std::uint64_t> g_threads{0};

/// Held for the time of a copy. Who does not get it does without a path: the one that holds it may be a thread that a
/// forked child does not have.
class SlotHeld
{
public:
    explicit SlotHeld(PathSlot& slot) noexcept : m_slot(slot)
    {
        for (int attempt = 0; attempt < kAttempts && !m_isHeld; ++attempt)
            m_isHeld = !slot.m_isBusy.exchange(true, std::memory_order_acquire);
    }
    ~SlotHeld()
    {
        if (m_isHeld)
            m_slot.m_isBusy.store(false, std::memory_order_release);
    }
    SlotHeld(const SlotHeld&) = delete;
    SlotHeld& operator=(const SlotHeld&) = delete;

    explicit operator bool() const noexcept { return m_isHeld; }

private:
    static constexpr int kAttempts = 1000;

    PathSlot& m_slot;
    bool m_isHeld = false;
};

/// The thread's record, without the path.
struct ThreadRecord
{
    FailureNote m_note;
    std::uint64_t m_thread; ///< from 1 on; 0 before the first failure
    unsigned m_muted;
    bool m_isPathCut;
    bool m_hasPath;
};

thread_local ThreadRecord t_record TEV_NEAR_THREAD_LOCAL = {{"", XFailureKind::kNone}, 0, 0, false, false};

PathSlot& SlotOf(const ThreadRecord& record) noexcept
{
    return g_slots[record.m_thread % kSlotCount];
}

void KeepPath(ThreadRecord& record, const wchar_t* path) noexcept
{
    record.m_hasPath = path != nullptr && *path != L'\0';
    record.m_isPathCut = false;
    if (!record.m_hasPath)
        return;
    if (record.m_thread == 0)
        record.m_thread = ++g_threads;
    const std::size_t length = std::wcslen(path);
    PathSlot& slot = SlotOf(record);
    const SlotHeld held(slot);
    record.m_hasPath = static_cast<bool>(held);
    record.m_isPathCut = length > tev::kFailurePathRoom;
    if (!held)
        return;
    slot.m_owner = record.m_thread;
    slot.m_length = std::min(length, tev::kFailurePathRoom);
    std::copy_n(path, slot.m_length, slot.m_path);
}
} // namespace

tev::RecordedFailure tev::ReadFailure(wchar_t* path) noexcept
{
    const ThreadRecord& record = t_record;
    *path = L'\0';
    if (record.m_hasPath)
    {
        PathSlot& slot = SlotOf(record);
        const SlotHeld held(slot);
        if (held && slot.m_owner == record.m_thread)
            *std::copy_n(slot.m_path, slot.m_length, path) = L'\0';
    }
    return {record.m_note, record.m_isPathCut};
}

void tev::ClearFailure() noexcept
{
    t_record.m_note = {"", XFailureKind::kNone};
    t_record.m_hasPath = t_record.m_isPathCut = false;
}

bool tev::NoteFailure(const FailureNote& note, const wchar_t* path) noexcept
{
    ThreadRecord& record = t_record;
    if (record.m_muted != 0)
        return false;
    record.m_note = note;
    KeepPath(record, path);
    return false;
}

bool tev::NoteBadData(const char* operation, const wchar_t* path) noexcept
{
    return NoteFailure({operation, XFailureKind::kData}, path);
}

bool tev::NoteNoMemory(const char* operation, const wchar_t* path) noexcept
{
    return NoteFailure({operation, XFailureKind::kMemory, platform::kNotEnoughMemory}, path);
}

bool tev::NoteBadArgument(const char* operation, const wchar_t* path) noexcept
{
    return NoteFailure({operation, XFailureKind::kArgument}, path);
}

tev::FailuresUnnoted::FailuresUnnoted() noexcept
{
    ++t_record.m_muted;
}

tev::FailuresUnnoted::~FailuresUnnoted()
{
    --t_record.m_muted;
}

tev::FailuresOfParts::FailuresOfParts() noexcept : m_before(ReadFailure(m_path))
{
    ClearFailure();
}

tev::FailuresOfParts::~FailuresOfParts()
{
    if (!m_isFailed)
        NoteFailure(m_before.m_note, m_path);
}

bool tev::FailuresOfParts::Fail(const char* operation, XFailureKind kind, const wchar_t* path) noexcept
{
    m_isFailed = true;
    ThreadRecord& record = t_record;
    if (record.m_note.m_kind == XFailureKind::kNone)
        return NoteFailure({operation, kind}, path);
    record.m_note.m_operation = operation;
    return false;
}
