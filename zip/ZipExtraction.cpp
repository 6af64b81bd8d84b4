#include "zip/ZipExtraction.h"

#include "objects/ResultOr.h"
#include "objects/ThreadStatus.h"
#include "platform/AddressWait.h"
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
using platform::ZipReadResult;

constexpr std::uint64_t kLocalHeaderSize = 30;
constexpr std::uint64_t kWorthAnotherThread = 256 * 1024; // bytes to be unpacked
constexpr std::size_t kMostFilesAtOnce = 32;
constexpr std::chrono::milliseconds kReportEvery(50);
constexpr std::uint64_t kPlanReportEvery = 1024; // entries

constexpr unsigned kDiskFull = 112;
constexpr unsigned kTooManyOpenFiles = 4;
constexpr unsigned kNotEnoughMemory = 8;
constexpr unsigned kDeviceFailed = 23;

/// Whether the error would occur for every other file, too.
bool EndsEverything(unsigned systemError)
{
    return systemError == kDiskFull || systemError == kTooManyOpenFiles || systemError == kNotEnoughMemory ||
           systemError == kDeviceFailed;
}

CXSkipReason ReasonOf(ZipReadResult result)
{
    switch (result)
    {
    case ZipReadResult::WrongPassword:
        return CXSkipReason::kWrongPassword;
    case ZipReadResult::Unsupported:
        return CXSkipReason::kUnsupported;
    default:
        return CXSkipReason::kDamaged;
    }
}
} // namespace

/// Decides for each entry whether and where it is written; creates the folders that are entries themselves.
class ZipExtraction::Plan
{
public:
    explicit Plan(ZipExtraction& extraction) : m_all(extraction), m_compressedBytesLeft(extraction.m_reader.Size()) {}

    /// False when it was cancelled.
    bool Make()
    {
        const std::uint64_t count = m_all.m_reader.Count();
        for (std::uint64_t index = 0; index < count; ++index)
        {
            if (index % kPlanReportEvery == 0 && (IsThreadAskedToEnd() || !m_all.m_progress(0, 0)))
                return false;
            Decide(index);
        }
        RefuseOverlaps();
        return true;
    }

    std::uint64_t TotalBytes() const { return m_totalBytes; }

private:
    struct Span
    {
        std::uint64_t m_begin;
        std::uint64_t m_end;
        std::size_t m_file;
    };

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
        if (!m_names.Claim(name->m_path, isFolder))
            return Skip(index, CXSkipReason::kNameClash);
        if (isFolder)
        {
            if (!m_all.m_folder.CreateFolders(name->m_path))
                Skip(index, CXSkipReason::kNotWritable);
            return;
        }
        // Nothing is ever written beyond the declared size, so that is what counts here.
        CXExtractionLimits left = m_all.m_limits;
        left.m_totalBytes -= m_totalBytes;
        if (!left.Allows(entry.size, entry.compressedSize))
            return Skip(index, CXSkipReason::kTooLarge);
        if (entry.compressedSize > m_compressedBytesLeft)
            return Skip(index, CXSkipReason::kDamaged);
        m_totalBytes += entry.size;
        if (entry.offset)
            m_spans.push_back(
                {*entry.offset, *entry.offset + kLocalHeaderSize + entry.compressedSize, m_all.m_files.size()});
        else // the only sign: entries that share bytes add up to more than the archive has
            m_compressedBytesLeft -= entry.compressedSize;
        File file;
        file.m_index = index;
        file.m_path = name->m_path;
        file.m_size = entry.size;
        file.m_lastWrite = entry.lastWrite;
        m_all.m_files.push_back(std::move(file));
    }

    void Skip(std::uint64_t index, CXSkipReason reason) { m_all.m_skipped.push_back({index, m_entry.name, reason}); }

    /// Entries that share bytes of the archive multiply them. One that reaches into the next one is skipped; of two at the
    /// same position, the later one.
    void RefuseOverlaps()
    {
        std::sort(m_spans.begin(), m_spans.end(), [](const Span& a, const Span& b) {
            return a.m_begin != b.m_begin ? a.m_begin > b.m_begin : a.m_file < b.m_file;
        });
        std::uint64_t nextBegin = ~std::uint64_t{0};
        for (const Span& span : m_spans)
        {
            File& file = m_all.m_files[span.m_file];
            if (span.m_end > nextBegin)
            {
                file.m_state = State::kSkipped;
                m_totalBytes -= file.m_size;
            }
            else
                nextBegin = span.m_begin;
        }
    }

    ZipExtraction& m_all;
    PlainZipEntry m_entry;
    EntryNames m_names;
    std::vector<Span> m_spans;
    std::uint64_t m_totalBytes = 0;
    std::uint64_t m_compressedBytesLeft;
};

/// Writes the files, on several threads.
class ZipExtraction::Work
{
public:
    Work(ZipExtraction& extraction, std::uint64_t totalBytes)
        : m_all(extraction), m_totalBytes(totalBytes), m_caller(platform::CurrentThreadId())
    {
    }

    Ending Do()
    {
        const std::size_t files = m_all.m_files.size();
        unsigned workers = m_totalBytes < kWorthAnotherThread ? 1 : OMPGetMaxThreadCount();
        workers = static_cast<unsigned>(std::min<std::size_t>(workers, files));
        if (workers == 0)
            return Ending::kDone;
        if (workers < OMPGetMaxThreadCount() && m_totalBytes >= kWorthAnotherThread)
            m_writersOfFiles = WriteBehind::Threads::kItsOwn; // a few large files leave threads idle
        if (!Report()) // the others may have finished before this thread reports again
            return Ending::kCancelled;
        m_filesAtOnce =
            std::clamp<std::size_t>(OMPGetScheduleChunkSize(static_cast<unsigned>(files)), 1, kMostFilesAtOnce);
        // What helpers had begun is lost in a child that was forked meanwhile.
        if (!RunTogether(
                workers, [](void* work) { static_cast<Work*>(work)->RunOnThisThread(); }, this))
            End(Ending::kFailed);
        return m_ending.load();
    }

private:
    /// Counts a thread that extracts, also where the system ends it meanwhile.
    class Activity
    {
    public:
        explicit Activity(Work& work) noexcept : m_work(work) { m_work.m_active.fetch_add(1); }
        ~Activity()
        {
            m_work.m_active.fetch_sub(1);
            platform::WakeAll(m_work.m_active);
        }
        Activity(const Activity&) = delete;
        Activity& operator=(const Activity&) = delete;

    private:
        Work& m_work;
    };

    void RunOnThisThread()
    {
        const bool isCaller = platform::CurrentThreadId() == m_caller;
        {
            const Activity activity(*this);
            ExtractOnThisThread(isCaller);
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
            End(Ending::kFailed);
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
        const std::unique_ptr<platform::ContainedFile> target = m_all.m_folder.CreateFile(file.m_path);
        if (target == nullptr)
        {
            if (EndsEverything(platform::LastSystemError()))
                return End(Ending::kFailed);
            return Skip(file, CXSkipReason::kNotWritable);
        }
        WriteBehind behind(*target, m_writersOfFiles);
        // An archive may have two directories, of which one way of reading takes this one and another way that one.
        std::uint64_t left = file.m_size;
        const auto write = [&](const void* bytes, std::size_t count) {
            if (count > left)
                return false;
            left -= count;
            if (!behind.Write(bytes, count))
            {
                End(Ending::kFailed);
                return false;
            }
            m_processed.fetch_add(count, std::memory_order_relaxed);
            return !HasEnded() && (!isCaller || Report());
        };
        const ZipReadResult result = reader.Read(file.m_index, write);
        if (HasEnded())
            return;
        if (result != ZipReadResult::Done || left != 0)
            return Skip(file, ReasonOf(result));
        if (!behind.Finish() || !target->Keep(file.m_lastWrite, file.m_identity))
            return End(Ending::kFailed);
        file.m_state = State::kWritten;
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
        End(Ending::kCancelled);
        return false;
    }

    void ReportWhileOthersWork() noexcept
    {
        for (;;)
        {
            const std::uint32_t active = m_active.load();
            if (active == 0)
                return;
            platform::WaitWhile(m_active, active, kReportEvery);
            if (!HasEnded())
                Report();
        }
    }

    bool HasEnded()
    {
        if (m_ending.load(std::memory_order_relaxed) == Ending::kDone && IsThreadAskedToEnd())
            End(Ending::kCancelled);
        return m_ending.load(std::memory_order_relaxed) != Ending::kDone;
    }

    void End(Ending ending)
    {
        Ending none = Ending::kDone;
        m_ending.compare_exchange_strong(none, ending);
    }

    ZipExtraction& m_all;
    const std::uint64_t m_totalBytes;
    const std::uint64_t m_caller;
    std::size_t m_filesAtOnce = 1;
    WriteBehind::Threads m_writersOfFiles = WriteBehind::Threads::kCallersOnly;
    std::atomic<std::size_t> m_next{0};
    std::atomic<std::uint64_t> m_processed{0};
    std::atomic<std::uint32_t> m_active{0};
    std::atomic<Ending> m_ending{Ending::kDone};
};

ZipExtraction::ZipExtraction(PlainZipReader& reader, platform::ContainedFolder& folder,
                             const CXExtractionLimits& limits, const ExtractionProgress& progress)
    : m_reader(reader), m_folder(folder), m_limits(limits), m_progress(progress)
{
}

ZipExtraction::Ending ZipExtraction::Run()
{
    const LongOperation operation("unpacking an archive");
    Plan plan(*this);
    if (!plan.Make())
        return Ending::kCancelled;
    // Reserved before anything is written, so that reporting needs no memory.
    m_written.reserve(m_files.size());
    m_skipped.reserve(m_skipped.size() + m_files.size());
    const Ending ending = Work(*this, plan.TotalBytes()).Do();
    ReportResults();
    return ending;
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
