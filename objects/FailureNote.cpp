#include "objects/FailureNote.h"

#include "objects/CXArchiveException.h"
#include "objects/CXInternetException.h"
#include "objects/ThrownError.h"
#include "platform/SystemErrors.h"
#include "platform/ThreadLocks.h"
#include "text/MessageTexts.h"

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
    wchar_t m_path[XFailure::kPathRoom];
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
    unsigned m_thrownError;
    unsigned m_muted;
    bool m_isPathCut;
    bool m_hasPath;
};

thread_local ThreadRecord t_record TEV_NEAR_THREAD_LOCAL = {{"", XFailureKind::kNone}, 0, 0, 0, false, false};

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
    record.m_isPathCut = length > XFailure::kPathRoom;
    if (!held)
        return;
    slot.m_owner = record.m_thread;
    slot.m_length = std::min(length, XFailure::kPathRoom);
    std::copy_n(path, slot.m_length, slot.m_path);
}
} // namespace

class tev::FailureRecord
{
public:
    static XFailure Read() noexcept
    {
        const ThreadRecord& record = t_record;
        XFailure failure;
        failure.m_operation = record.m_note.m_operation;
        failure.m_kind = record.m_note.m_kind;
        failure.m_systemError = record.m_note.m_systemError;
        failure.m_cause = record.m_note.m_cause;
        failure.m_textId = record.m_note.m_textId;
        failure.m_isPathCut = record.m_isPathCut;
        if (!record.m_hasPath)
            return failure;
        PathSlot& slot = SlotOf(record);
        const SlotHeld held(slot);
        if (held && slot.m_owner == record.m_thread)
            *std::copy_n(slot.m_path, slot.m_length, failure.m_path) = L'\0';
        return failure;
    }
};

XFailure::XFailure() noexcept
{
    m_path[0] = L'\0';
}

XFailure XLastFailure() noexcept
{
    return tev::FailureRecord::Read();
}

void XClearLastFailure() noexcept
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

bool tev::NoteSystemError(const char* operation, unsigned systemError, const wchar_t* path) noexcept
{
    const XFailureKind kind = systemError == platform::kNotEnoughMemory ? XFailureKind::kMemory
                              : systemError == platform::kInvalidData   ? XFailureKind::kData
                              : systemError == platform::kBadParameter  ? XFailureKind::kArgument
                                                                        : XFailureKind::kSystem;
    const FileExceptionType cause = CXFileException::OsErrorToException(systemError);
    return NoteFailure({operation, kind, systemError, kind == XFailureKind::kSystem ? cause : fileNone}, path);
}

bool tev::NoteLastError(const char* operation, const wchar_t* path) noexcept
{
    return NoteSystemError(operation, platform::LastSystemError(), path);
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

bool tev::NoteException(const char* operation, const CXException& exception, const wchar_t* path) noexcept
{
    FailureNote note{operation, XFailureKind::kSystem};
    if (const auto* file = dynamic_cast<const CXFileException*>(&exception))
    {
        note.m_cause = file->GetCause();
        const bool isOfSystem = CXFileException::OsErrorToException(t_record.m_thrownError) == note.m_cause;
        note.m_systemError = isOfSystem ? t_record.m_thrownError : 0;
        if (note.m_systemError == 0 && (note.m_cause == fileInvalidFile || note.m_cause == fileEndOfFile))
            note.m_kind = XFailureKind::kData;
        note.m_textId = kTextFileCause + note.m_cause;
        path = file->GetFileName().IsEmpty() ? path : file->GetFileName().GetConstBuffer();
    }
    else if (const auto* archive = dynamic_cast<const CXArchiveException*>(&exception))
    {
        note.m_kind = XFailureKind::kData;
        note.m_textId = kTextArchiveCause + archive->GetCause();
        path = archive->GetFileName().IsEmpty() ? path : archive->GetFileName().GetConstBuffer();
    }
    else if (const auto* internet = dynamic_cast<const CXInternetException*>(&exception))
        note.m_systemError = internet->GetErrorCode();
    else if (dynamic_cast<const CXMemoryException*>(&exception) != nullptr)
        return NoteNoMemory(operation, path);
    else if (dynamic_cast<const CXInvalidArgException*>(&exception) != nullptr)
        note.m_kind = XFailureKind::kArgument;
    else if (dynamic_cast<const CXUserException*>(&exception) != nullptr)
        note.m_kind = XFailureKind::kCancelled;
    else
        note.m_textId = kTextThrown;
    return NoteFailure(note, path);
}

void tev::NoteThrownError(unsigned systemError) noexcept
{
    t_record.m_thrownError = systemError;
}

tev::FailuresUnnoted::FailuresUnnoted() noexcept
{
    ++t_record.m_muted;
}

tev::FailuresUnnoted::~FailuresUnnoted()
{
    --t_record.m_muted;
}
