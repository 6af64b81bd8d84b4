#include "zip/ZipExtraction.h"

#include "objects/ResultOr.h"
#include "objects/ThreadStatus.h"
#include "platform/AddressWait.h"
#include "platform/FatalSignals.h"
#include "platform/SystemErrors.h"
#include "platform/Threads.h"
#include "threads/WorkPool.h"
#include "threads/WorkerCount.h"
#include "zip/EntryName.h"
#include "zip/WriteBehind.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <numeric>

namespace tev
{
namespace
{
using platform::PlainZipEntry;
using platform::PlainZipReader;
using platform::ZipEntryKind;
using platform::ZipError;
using platform::ZipFailure;
using Failure = CXExtractionFailure;

constexpr std::uint64_t kWorthAnotherThread = 256 * 1024; // bytes to be unpacked
constexpr std::size_t kMostFilesAtOnce = 32;
constexpr std::chrono::milliseconds kReportEvery(50);
constexpr std::uint64_t kPlanReportEvery = 1024; // entries

constexpr unsigned kDeviceFailed = 23;

/// Why an error would occur for every other file, too; kNone when it would not.
Failure FailureForAll(unsigned systemError)
{
    switch (systemError)
    {
    case platform::kNotEnoughMemory:
        return Failure::kNoMemory;
    case platform::kTooManyOpenFiles:
        return Failure::kTooManyOpenFiles;
    default:
        return Failure::kNone;
    }
}

/// Of an error of the destination. One of the archive may concern a few of its sectors only.
Failure WritingFailureForAll(unsigned systemError)
{
    const bool isOfTheDisk = systemError == platform::kDiskFull || systemError == kDeviceFailed;
    return isOfTheDisk ? Failure::kNotWritable : FailureForAll(systemError);
}

CXSkipReason ReasonOf(ZipFailure failure)
{
    switch (failure)
    {
    case ZipFailure::PasswordNeeded:
    case ZipFailure::WrongPassword:
    case ZipFailure::WrongPasswordOrDamaged:
        return CXSkipReason::kWrongPassword;
    case ZipFailure::Unsupported:
        return CXSkipReason::kUnsupported;
    case ZipFailure::System:
        return CXSkipReason::kUnreadable;
    default:
        return CXSkipReason::kDamaged;
    }
}
} // namespace

/// Decides for each entry whether and where it is written; creates the folders that are entries themselves once it is
/// known that everything fits.
class ZipExtraction::Plan
{
public:
    explicit Plan(ZipExtraction& extraction) : m_all(extraction) {}

    Failure Make()
    {
        const std::uint64_t count = m_all.m_reader.Count();
        for (std::uint64_t index = 0; index < count; ++index)
        {
            if (IsCancelled(index))
                return Failure::kCancelled;
            Decide(index);
        }
        if (!m_all.m_folder.HasSpaceFor(m_totalBytes))
        {
            m_all.m_systemError = platform::kDiskFull;
            return Failure::kNotWritable;
        }
        for (std::size_t i = 0; i < m_folders.size() && m_failure == Failure::kNone; ++i)
        {
            if (IsCancelled(i))
                return Failure::kCancelled;
            CreateFolders(m_folders[i]);
        }
        return m_failure;
    }

    std::uint64_t TotalBytes() const { return m_totalBytes; }

private:
    struct Folder
    {
        std::uint64_t m_index;
        std::string m_path;
    };

    bool IsCancelled(std::uint64_t step)
    {
        return step % kPlanReportEvery == 0 && (IsThreadAskedToEnd() || !m_all.m_progress(0, 0));
    }

    void Decide(std::uint64_t index)
    {
        PlainZipEntry& entry = m_entry;
        entry.name.clear();
        if (!m_all.m_reader.GetEntry(index, entry))
            return Skip(index, CXSkipReason::kDamaged);
        if (entry.kind == ZipEntryKind::Special)
            return Skip(index, CXSkipReason::kSpecialFile);
        const std::optional<EntryName> name = SafeEntryName(entry.name);
        if (!name)
            return Skip(index, CXSkipReason::kUnsafeName);
        const bool isFolder = entry.kind == ZipEntryKind::Folder;
        if (!Claim(name->m_path, isFolder))
            return Skip(index, CXSkipReason::kNameClash);
        if (isFolder)
            return m_folders.push_back({index, name->m_path});
        if (entry.sharesBytes)
            return Skip(index, CXSkipReason::kDamaged);
        // Nothing is ever written beyond the declared size, so that is what counts here.
        CXExtractionLimits left = m_all.m_limits;
        left.m_totalBytes -= m_totalBytes;
        if (entry.isReadable && !left.Allows(entry.size, entry.compressedSize))
            return Skip(index, CXSkipReason::kTooLarge);
        m_totalBytes += entry.isReadable ? entry.size : 0; // reading it says why it is not
        File file;
        file.m_index = index;
        file.m_path = name->m_path;
        file.m_size = entry.size;
        file.m_compressedSize = entry.compressedSize;
        file.m_lastWrite = entry.lastWrite;
        constexpr unsigned kOwnersUse = 0600; // else the owner could not read or replace it
        if (entry.permissions)
            file.m_permissions = *entry.permissions | kOwnersUse;
        m_all.m_files.push_back(std::move(file));
    }

    void Skip(std::uint64_t index, CXSkipReason reason) { m_all.m_skipped.push_back({index, m_entry.name, reason}); }

    /// On a file system that ignores case the later of two names that differ in case only would replace the earlier one.
    bool Claim(const std::string& path, bool isFolder)
    {
        const bool isNew = m_names.Claim(path, isFolder);
        const bool isLooselyNew = m_looseNames.Claim(path, isFolder);
        if (isNew && !isLooselyNew && !m_tellsNamesApart)
            m_tellsNamesApart = m_all.m_folder.TellsNamesApart();
        return isNew && (isLooselyNew || *m_tellsNamesApart);
    }

    void CreateFolders(const Folder& folder)
    {
        if (m_all.m_folder.CreateFolders(folder.m_path))
            return;
        const unsigned error = platform::LastSystemError();
        m_failure = WritingFailureForAll(error);
        if (m_failure != Failure::kNone)
            m_all.m_systemError = error;
        else if (m_all.m_reader.GetEntry(folder.m_index, m_entry))
            Skip(folder.m_index, CXSkipReason::kNotWritable);
    }

    ZipExtraction& m_all;
    PlainZipEntry m_entry;
    EntryNames m_names{EntryNames::Compared::Exactly};
    EntryNames m_looseNames{EntryNames::Compared::Loosely};
    std::vector<Folder> m_folders;
    std::optional<bool> m_tellsNamesApart; ///< the folder; asked when it matters
    std::uint64_t m_totalBytes = 0;
    Failure m_failure = Failure::kNone;
};

/// Writes the files, on several threads.
class ZipExtraction::Work
{
public:
    Work(ZipExtraction& extraction, std::uint64_t totalBytes)
        : m_all(extraction), m_totalBytes(totalBytes), m_caller(platform::CurrentThreadId())
    {
    }

    Failure Do()
    {
        const std::size_t files = m_all.m_files.size();
        unsigned workers = m_totalBytes < kWorthAnotherThread ? 1 : OMPGetMaxThreadCount();
        workers = static_cast<unsigned>(std::min<std::size_t>(workers, files));
        if (workers == 0)
            return Failure::kNone;
        if (workers < OMPGetMaxThreadCount() && m_totalBytes >= kWorthAnotherThread)
            m_writersOfFiles = WriteBehind::Threads::kItsOwn; // a few large files leave threads idle
        if (!Report()) // the others may have finished before this thread reports again
            return Failure::kCancelled;
        m_filesAtOnce =
            std::clamp<std::size_t>(OMPGetScheduleChunkSize(static_cast<unsigned>(files)), 1, kMostFilesAtOnce);
        // What helpers had begun is lost in a child that was forked meanwhile.
        if (!RunTogether(
                workers, [](void* work) { static_cast<Work*>(work)->RunOnThisThread(); }, this))
            End(Failure::kNotWritable);
        m_all.m_systemError = m_systemError.load();
        return m_failure.load();
    }

private:
    /// Counts a thread that extracts. One that the system ends meanwhile ends the work.
    class Activity
    {
    public:
        explicit Activity(Work& work) noexcept : m_work(work) { m_work.m_active.fetch_add(1); }
        ~Activity()
        {
            if (!m_isDone)
                m_work.End(Failure::kCancelled);
            m_work.m_active.fetch_sub(1);
            platform::WakeAll(m_work.m_active);
        }
        Activity(const Activity&) = delete;
        Activity& operator=(const Activity&) = delete;
        void SetDone() noexcept { m_isDone = true; }

    private:
        Work& m_work;
        bool m_isDone = false;
    };

    void RunOnThisThread()
    {
        const bool isCaller = platform::CurrentThreadId() == m_caller;
        {
            Activity activity(*this);
            ExtractOnThisThread(isCaller);
            activity.SetDone();
        }
        if (isCaller)
            ReportWhileOthersWork();
    }

    void ExtractOnThisThread(bool isCaller)
    {
        const auto extract = [&] {
            const std::unique_ptr<PlainZipReader> another = isCaller ? nullptr : m_all.m_reader.Another();
            if (isCaller || another != nullptr)
                TakeFiles(isCaller ? m_all.m_reader : *another, isCaller);
            return true;
        };
        if (!ResultOr(false, extract))
            End(Failure::kNoMemory);
    }

    void TakeFiles(PlainZipReader& reader, bool isCaller)
    {
        const std::size_t files = m_all.m_files.size();
        for (;;)
        {
            const std::size_t begin = m_next.fetch_add(m_filesAtOnce);
            const std::size_t end = std::min(begin + m_filesAtOnce, files);
            for (std::size_t i = begin; i < end; ++i)
            {
                if (HasEnded() || (isCaller && !Report()))
                    return;
                if (m_all.m_files[i].m_state == State::kWaiting)
                    Extract(reader, m_all.m_files[i], isCaller);
            }
            if (end >= files)
                return;
        }
    }

    void Extract(PlainZipReader& reader, File& file, bool isCaller)
    {
        const auto target = m_all.m_folder.CreateFile(file.m_path, file.m_permissions);
        if (target == nullptr)
            return EndOrSkipUnwritten(file);
        WriteBehind behind(*target, m_writersOfFiles);
        std::uint64_t consumed = 0;
        const auto write = [&](const void* bytes, std::size_t count, std::uint64_t consumedUntilNow) {
            consumed = consumedUntilNow;
            if (!behind.Write(bytes, count))
                return EndUnwritten(behind);
            m_processed.fetch_add(count, std::memory_order_relaxed);
            return !HasEnded() && (!isCaller || Report());
        };
        const ZipError error = reader.Read(file.m_index, write);
        if (HasEnded())
            return;
        if (error.failure != ZipFailure::None)
            return EndOrSkip(file, FailureForAll(error.systemError), error.systemError, ReasonOf(error.failure));
        // The declared compressed size may be larger than what was needed of it.
        if (!m_all.m_limits.Allows(file.m_size, consumed))
            return Skip(file, CXSkipReason::kTooLarge);
        if (!behind.Finish())
            return static_cast<void>(EndUnwritten(behind));
        if (!target->Keep(file.m_lastWrite, file.m_identity))
            return EndOrSkipUnwritten(file);
        file.m_state = State::kWritten;
    }

    /// False, always.
    bool EndUnwritten(const WriteBehind& behind)
    {
        const Failure failure = FailureForAll(behind.SystemError());
        End(failure == Failure::kNone ? Failure::kNotWritable : failure, behind.SystemError());
        return false;
    }

    void EndOrSkipUnwritten(File& file)
    {
        const unsigned error = platform::LastSystemError();
        EndOrSkip(file, WritingFailureForAll(error), error, CXSkipReason::kNotWritable);
    }

    void EndOrSkip(File& file, Failure failure, unsigned systemError, CXSkipReason reason)
    {
        if (failure != Failure::kNone)
            End(failure, systemError);
        else
            Skip(file, reason);
    }

    static void Skip(File& file, CXSkipReason reason)
    {
        file.m_state = State::kSkipped;
        file.m_reason = reason;
    }

    bool Report()
    {
        if (m_all.m_progress(m_processed.load(std::memory_order_relaxed), m_totalBytes))
            return true;
        End(Failure::kCancelled);
        return false;
    }

    void ReportWhileOthersWork()
    {
        for (;;)
        {
            const std::uint32_t active = m_active.load();
            if (active == 0 || platform::ProcessId() != m_process) // the other threads do not exist in a forked child
                return;
            platform::WaitWhile(m_active, active, kReportEvery);
            if (!HasEnded())
                Report();
        }
    }

    bool HasEnded()
    {
        if (m_failure.load(std::memory_order_relaxed) == Failure::kNone && IsThreadAskedToEnd())
            End(Failure::kCancelled);
        return m_failure.load(std::memory_order_relaxed) != Failure::kNone;
    }

    /// The first one counts.
    void End(Failure failure, unsigned systemError = 0)
    {
        Failure none = Failure::kNone;
        if (m_failure.compare_exchange_strong(none, failure))
            m_systemError.store(systemError);
    }

    ZipExtraction& m_all;
    const std::uint64_t m_totalBytes;
    const std::uint64_t m_caller;
    const std::uint32_t m_process = platform::ProcessId();
    std::size_t m_filesAtOnce = 1;
    WriteBehind::Threads m_writersOfFiles = WriteBehind::Threads::kCallersOnly;
    std::atomic<std::size_t> m_next{0};
    std::atomic<std::uint64_t> m_processed{0};
    std::atomic<std::uint32_t> m_active{0};
    std::atomic<Failure> m_failure{Failure::kNone};
    std::atomic<unsigned> m_systemError{0};
};

ZipExtraction::ZipExtraction(PlainZipReader& reader, platform::ContainedFolder& folder,
                             const CXExtractionLimits& limits, const ExtractionProgress& progress)
    : m_reader(reader), m_folder(folder), m_limits(limits), m_progress(progress)
{
}

Failure ZipExtraction::Run()
{
    const LongOperation operation("unpacking an archive");
    Plan plan(*this);
    const Failure planned = plan.Make();
    if (planned != Failure::kNone)
    {
        ReportResults();
        return planned;
    }
    // Reserved before anything is written, so that reporting needs no memory.
    m_written.reserve(m_files.size());
    m_skipped.reserve(m_skipped.size() + m_files.size());
    const Failure failure = Work(*this, plan.TotalBytes()).Do();
    ReportResults();
    return failure;
}

void ZipExtraction::ReportResults() noexcept
{
    for (File& file : m_files)
    {
        if (file.m_state == State::kWritten)
            m_written.push_back({std::move(file.m_path), file.m_identity});
        else if (file.m_state == State::kSkipped)
            m_skipped.push_back({file.m_index, std::move(file.m_path), file.m_reason});
    }
    m_files.clear();
    std::sort(m_skipped.begin(), m_skipped.end(),
              [](const SkippedEntry& a, const SkippedEntry& b) { return a.m_index < b.m_index; });
}
} // namespace tev
