#pragma once

#include "objects/CXFileException.h"
#include "qt/log/LineScan.h"
#include "threads/CCustomThread.h"

#include <deque>
#include <memory>
#include <optional>

/// What happened to a file while it is shown.
enum class FileEvent
{
    None,
    Cut,
    Replaced,
    Changed,
    Deleted,    ///< what was read of it is still shown
    Locked,     ///< another program denies reading
    Unreadable, ///< for any other reason
    Back        ///< it can be read again
};

/// A line of the file as the view shows it.
struct LogRow
{
    std::uint64_t m_row = 0;
    std::uint64_t m_line = 0;
    QString m_text; ///< the start of a line that is too long to be shown
    bool m_isCut = false;
};

struct LogStatus
{
    unsigned m_generation = 0; ///< changes when the rows are numbered anew
    bool m_isOpen = false;
    xStringEncoding m_encoding = xEncodingUnknown;
    FileEvent m_event = FileEvent::None;
    unsigned m_eventCount = 0;
    CXTString<wchar_t> m_reason; ///< why the file cannot be read
    std::uint64_t m_fileSize = 0;
    bool m_isFiltered = false;
    bool m_isSearched = false;
    LineScan::Totals m_lines;
    LineScan::Totals m_rows;    ///< of the filter, else as m_lines
    LineScan::Totals m_matches; ///< hits are the rows found
};

/// A log file as rows: its lines, or those of them that a filter lets through. Lines and matches are counted by a thread that
/// exists only while there is something to count. What happens to the file is noticed after RequestCheck, and the document
/// goes on with what can be read.
/// One thread at a time, apart from the thread that it starts.
class LogDocument
{
public:
    static constexpr std::size_t kShownBytes = 8 * 1024; ///< of a line

    enum class Work
    {
        InThread,
        InTick ///< as where the system has no thread to spare
    };

    explicit LogDocument(Work work = Work::InThread) : m_work(work) {}
    /// Asks the thread to end, and waits for it.
    ~LogDocument();
    LogDocument(const LogDocument&) = delete;
    LogDocument& operator=(const LogDocument&) = delete;

    /// Shows another file from its start, and reads as much of it as a first screen needs. One that cannot be opened is
    /// opened when it can be.
    void Open(const CXTString<wchar_t>& path, xStringEncoding encoding = xEncodingUnknown);
    /// Lets through what matches and is indented by less than so many columns; 0 for any indentation.
    void SetFilter(const LinePattern& pattern, int columns);
    void SetSearch(const LinePattern& pattern);
    /// Has it looked at what happened to the file.
    void RequestCheck();
    /// Continues what is to be done. To be called regularly.
    void Tick();
    /// Whether Tick has nothing to do.
    bool IsIdle() const;

    LogStatus GetStatus() const;
    const CXTString<wchar_t>& GetPath() const noexcept { return m_path; }
    const LineMatcher& GetSearch() const noexcept { return m_search; }

    std::vector<LogRow> ReadRows(std::uint64_t first, std::size_t count) const;
    /// The lines of rows as text, each followed by a line feed; `isCut` where they are longer than `limit` bytes of the file.
    /// What is left of these stays in `limit`.
    QString CopyRows(std::uint64_t first, std::uint64_t last, std::uint64_t& limit, bool& isCut) const;
    /// The row of a line; where the filter holds it back, that of the next one.
    std::uint64_t RowOfLine(std::uint64_t line) const;
    /// The next row from one on, or the last one before it, that the search found. Nothing where there is none so far.
    std::optional<std::uint64_t> NextMatch(std::uint64_t row) const;
    std::optional<std::uint64_t> PreviousMatch(std::uint64_t row) const;
    /// Which of so many equal parts of the rows that folds leave hold matches; those that are hidden count where their fold is.
    std::vector<bool> FindMatchingParts(std::size_t parts, const RowFolds& folds = {}) const;

    struct Fold
    {
        std::uint64_t m_row = 0; ///< behind which rows are indented more
        std::uint64_t m_end = 0; ///< the first one that is not
    };
    /// Looks for the rows that are indented more than one, in the background; TakeFold returns them.
    void RequestFold(std::uint64_t row);
    std::optional<Fold> TakeFold();

private:
    class Worker;
    struct Content
    {
        std::shared_ptr<TextFile> m_file;
        std::shared_ptr<LineScan> m_lines;
        std::shared_ptr<LineScan> m_filtered; // null without filter
        std::shared_ptr<LineScan> m_found;    // null without search
        unsigned m_generation = 0;

        const std::shared_ptr<LineScan>& Rows() const { return m_filtered != nullptr ? m_filtered : m_lines; }
    };
    struct WantedFold
    {
        std::uint64_t m_row = 0;
        unsigned m_generation = 0;
        bool m_needsAllRows = false; ///< its end is not among the rows that are known
    };

    Content GetContent() const;
    void Install(const std::shared_ptr<TextFile>& file, FileEvent event) X_REQUIRES(m_lock);
    void Report(FileEvent event, const CXTString<wchar_t>& reason) X_REQUIRES(m_lock);
    void MakeScans() X_REQUIRES(m_lock);
    static bool IsBehind(const LineScan& scan);
    static bool MayHoldMore(const LineScan& scan);
    static bool HasMoreRows(const Content& content);
    bool WorkOnce();
    void CheckFile(const Content& content);
    void FindFold(const Content& content, const WantedFold& wanted);
    void Run(CCustomThread& thread);
    void SetBusy(bool isBusy);
    void SetWorking(bool isWorking);
    bool StartThread();
    void EndThread();
    LogRow ReadRow(const TextFile& file, const LinePlace& place) const;

    const Work m_work;
    CXTString<wchar_t> m_path;
    LineMatcher m_filter;
    LineMatcher m_search;
    std::unique_ptr<CCustomThread> m_thread;

    mutable CXCriticalSection m_lock;
    Content m_content X_GUARDED_BY(m_lock);
    CXTString<wchar_t> m_checkedPath X_GUARDED_BY(m_lock);
    xStringEncoding m_encoding X_GUARDED_BY(m_lock) = xEncodingUnknown;
    FileEvent m_event X_GUARDED_BY(m_lock) = FileEvent::None;
    FileEvent m_trouble X_GUARDED_BY(m_lock) = FileEvent::None;
    unsigned m_eventCount X_GUARDED_BY(m_lock) = 0;
    unsigned m_generation X_GUARDED_BY(m_lock) = 0;
    CXTString<wchar_t> m_reason X_GUARDED_BY(m_lock);
    bool m_isCheckWanted X_GUARDED_BY(m_lock) = false;
    bool m_isWorking X_GUARDED_BY(m_lock) = false;
    bool m_isBusy X_GUARDED_BY(m_lock) = false; // with what was wanted
    std::deque<WantedFold> m_wantedFolds X_GUARDED_BY(m_lock);
    std::deque<Fold> m_folds X_GUARDED_BY(m_lock);
    std::atomic<bool> m_mustEnd{false};
};
