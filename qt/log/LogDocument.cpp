#include "qt/log/LogDocument.h"

#include "objects/LastFailure.h"

#include <algorithm>
#include <chrono>

namespace
{
constexpr auto kTickWork = std::chrono::milliseconds(20);
constexpr unsigned kPatience = 60000; // milliseconds to wait for the thread, again and again
constexpr std::size_t kIndentationBytes = 1024;

FileEvent EventOfFailure(const CXFileException& error)
{
    switch (error.GetCause())
    {
    case fileNotFound:
    case fileBadPath:
        return FileEvent::Deleted;
    case fileSharingViolation:
    case fileLockViolation:
        return FileEvent::Locked;
    default:
        return FileEvent::Unreadable;
    }
}

FileEvent EventOfChange(TextFile::Change change)
{
    switch (change)
    {
    case TextFile::Change::Cut:
        return FileEvent::Cut;
    case TextFile::Change::Replaced:
        return FileEvent::Replaced;
    case TextFile::Change::Changed:
        return FileEvent::Changed;
    case TextFile::Change::None:
        break;
    }
    return FileEvent::None;
}

// False at the end of the file, which is remembered then.
bool ReadOn(TextFile& file, LineScan& lines)
{
    if (lines.Advance())
        return true;
    const LineScan::Totals totals = lines.GetTotals();
    file.Remember(totals.m_scannedTo, totals.m_statedLength);
    return false;
}
} // namespace

class LogDocument::Worker final : public CCustomThread
{
public:
    explicit Worker(LogDocument& document) : m_document(document) {}

protected:
    bool Run() override
    {
        m_document.Run(*this);
        return true;
    }

private:
    LogDocument& m_document;
};

LogDocument::~LogDocument()
{
    EndThread();
}

LogDocument::Content LogDocument::GetContent() const
{
    const tev::LockGuard guard(m_lock);
    return m_content;
}

void LogDocument::Open(const CXTString<wchar_t>& path, xStringEncoding encoding)
{
    CXFileException error;
    const std::shared_ptr<TextFile> file = TextFile::Open(path, encoding, error);
    m_path = path;
    Content content;
    {
        const tev::LockGuard guard(m_lock);
        m_checkedPath = path;
        m_encoding = encoding;
        m_event = m_trouble = FileEvent::None;
        m_reason.Empty();
        Install(file, FileEvent::None);
        if (file == nullptr)
            Report(EventOfFailure(error), error.GetCauseMessage());
        content = m_content;
    }
    if (content.m_lines != nullptr)
        ReadOn(*content.m_file, *content.m_lines);
    Tick();
}

void LogDocument::Install(const std::shared_ptr<TextFile>& file, FileEvent event)
{
    m_content = Content();
    m_content.m_file = file;
    m_wantedFolds.clear();
    m_folds.clear();
    if (file != nullptr)
        m_content.m_lines = std::make_shared<LineScan>(file, LineMatcher(), LineMatcher());
    MakeScans();
    if (event != FileEvent::None)
        Report(event, {});
}

void LogDocument::MakeScans()
{
    m_content.m_generation = ++m_generation;
    m_content.m_filtered = nullptr;
    m_content.m_found = nullptr;
    if (m_content.m_file == nullptr)
        return;
    if (!m_filter.MatchesAll())
        m_content.m_filtered = std::make_shared<LineScan>(m_content.m_file, LineMatcher(), m_filter);
    if (!m_search.MatchesAll())
        m_content.m_found = std::make_shared<LineScan>(m_content.m_file, m_filter, m_search);
}

// A trouble is reported once, and its end too.
void LogDocument::Report(FileEvent event, const CXTString<wchar_t>& reason)
{
    const bool isTrouble = event == FileEvent::Deleted || event == FileEvent::Locked || event == FileEvent::Unreadable;
    if ((isTrouble || event == FileEvent::Back) && m_trouble == (isTrouble ? event : FileEvent::None))
        return;
    m_trouble = isTrouble ? event : FileEvent::None;
    m_event = event;
    m_reason = reason;
    ++m_eventCount;
}

void LogDocument::SetFilter(const LinePattern& pattern, int columns)
{
    {
        const tev::LockGuard guard(m_lock);
        m_filter = LineMatcher(pattern, columns);
        m_wantedFolds.clear();
        m_folds.clear();
        MakeScans();
    }
    Tick();
}

void LogDocument::SetSearch(const LinePattern& pattern)
{
    {
        const tev::LockGuard guard(m_lock);
        m_search = LineMatcher(pattern);
        m_content.m_found = m_content.m_file == nullptr || m_search.MatchesAll()
                                ? nullptr
                                : std::make_shared<LineScan>(m_content.m_file, m_filter, m_search);
    }
    Tick();
}

void LogDocument::RequestCheck()
{
    {
        const tev::LockGuard guard(m_lock);
        m_isCheckWanted = !m_checkedPath.IsEmpty();
    }
    Tick();
}

void LogDocument::RequestFold(std::uint64_t row)
{
    {
        const tev::LockGuard guard(m_lock);
        m_wantedFolds.push_back({row, m_content.m_generation});
    }
    Tick();
}

std::optional<LogDocument::Fold> LogDocument::TakeFold()
{
    const tev::LockGuard guard(m_lock);
    if (m_folds.empty())
        return std::nullopt;
    const Fold fold = m_folds.front();
    m_folds.pop_front();
    return fold;
}

bool LogDocument::IsBehind(const LineScan& scan)
{
    const LineScan::Totals totals = scan.GetTotals();
    // A file that states more than it holds is read to its end, too.
    const std::uint64_t known = std::max(totals.m_scannedTo, totals.m_statedLength);
    return !totals.m_hasFailed && (!totals.m_isAtEnd || scan.GetFile()->GetLength() > known);
}

// What could not be read is tried again when the file is looked at; so is a file that does not state how much it holds.
bool LogDocument::MayHoldMore(const LineScan& scan)
{
    const LineScan::Totals totals = scan.GetTotals();
    return totals.m_hasFailed || totals.m_scannedTo != totals.m_statedLength;
}

bool LogDocument::IsIdle() const
{
    Content content;
    {
        const tev::LockGuard guard(m_lock);
        if (m_isCheckWanted || m_isBusy || !m_wantedFolds.empty())
            return false;
        content = m_content;
    }
    const std::shared_ptr<LineScan> scans[] = {content.m_lines, content.m_filtered, content.m_found};
    return std::none_of(std::begin(scans), std::end(scans),
                        [](const auto& scan) { return scan != nullptr && IsBehind(*scan); });
}

void LogDocument::Tick()
{
    if (IsIdle())
        return;
    if (m_work == Work::InThread && StartThread())
        return;
    const auto end = std::chrono::steady_clock::now() + kTickWork;
    while (WorkOnce() && std::chrono::steady_clock::now() < end)
    {
    }
}

bool LogDocument::StartThread()
{
    {
        const tev::LockGuard guard(m_lock);
        if (m_isWorking)
            return true;
    }
    EndThread();
    auto* const worker = new Worker(*this);
    SetWorking(true);
    if (CXThread::BeginThread(worker, xThreadPriorityBelowNormal, CXThread::kBeginWithoutAutoDelete, 0) == nullptr)
    {
        SetWorking(false);
        return false;
    }
    m_thread.reset(worker);
    return true;
}

void LogDocument::EndThread()
{
    if (m_thread == nullptr)
        return;
    m_mustEnd = true;
    m_thread->StopThread();
    while (!m_thread->WaitForEnd(kPatience))
    {
    }
    m_thread = nullptr;
    m_mustEnd = false;
}

void LogDocument::Run(CCustomThread& thread)
{
    struct Working
    {
        LogDocument& m_document;
        ~Working()
        {
            m_document.SetBusy(false);
            m_document.SetWorking(false);
        }
    } const working{*this};
    while (!thread.MustTerminate() && !thread.ShouldCancel())
    {
        if (!WorkOnce() && IsIdle())
            return;
    }
}

void LogDocument::SetBusy(bool isBusy)
{
    const tev::LockGuard guard(m_lock);
    m_isBusy = isBusy;
}

void LogDocument::SetWorking(bool isWorking)
{
    const tev::LockGuard guard(m_lock);
    m_isWorking = isWorking;
}

bool LogDocument::WorkOnce()
{
    Content content;
    WantedFold fold;
    bool hasCheck = false;
    bool hasFold = false;
    {
        const tev::LockGuard guard(m_lock);
        content = m_content;
        std::swap(hasCheck, m_isCheckWanted);
        hasFold = !m_wantedFolds.empty() && (!m_wantedFolds.front().m_needsAllRows || !HasMoreRows(content));
        if (hasFold)
        {
            fold = m_wantedFolds.front();
            m_wantedFolds.pop_front();
        }
        m_isBusy = hasCheck || hasFold;
    }
    if (hasCheck)
        CheckFile(content);
    if (hasFold)
        FindFold(content, fold);
    SetBusy(false);
    bool hasMore = hasCheck || hasFold;
    for (const auto& scan : {content.m_lines, content.m_filtered, content.m_found})
    {
        if (scan == nullptr || !(IsBehind(*scan) || (hasCheck && MayHoldMore(*scan))))
            continue;
        const bool isRead = scan == content.m_lines ? ReadOn(*content.m_file, *scan) : scan->Advance();
        hasMore = isRead || hasMore;
    }
    return hasMore;
}

void LogDocument::CheckFile(const Content& content)
{
    CXTString<wchar_t> path;
    xStringEncoding encoding = xEncodingUnknown;
    {
        const tev::LockGuard guard(m_lock);
        path = m_checkedPath;
        encoding = m_encoding;
    }
    CXFileException error;
    TextFile::Change change = TextFile::Change::None;
    std::shared_ptr<TextFile> file;
    FileEvent event = FileEvent::Back;
    if (content.m_file != nullptr)
        change = content.m_file->FindChange(path, error);
    const bool isUnsettled = content.m_file != nullptr && content.m_file->IsUnsettled();
    if (error.GetCause() == fileNone && (content.m_file == nullptr || change != TextFile::Change::None || isUnsettled))
    {
        file = TextFile::Open(path, encoding, error);
        event = content.m_file == nullptr ? FileEvent::Back : EventOfChange(change);
    }
    const tev::LockGuard guard(m_lock);
    if (m_content.m_file != content.m_file || m_checkedPath != path)
        return; // another file is shown meanwhile
    if (error.GetCause() != fileNone)
        return Report(EventOfFailure(error), error.GetCauseMessage());
    if (file != nullptr)
        Install(file, event);
    Report(FileEvent::Back, {});
}

bool LogDocument::HasMoreRows(const Content& content)
{
    if (content.m_file == nullptr)
        return false;
    const LineScan::Totals totals = content.Rows()->GetTotals();
    return !totals.m_isAtEnd && !totals.m_hasFailed;
}

void LogDocument::FindFold(const Content& content, const WantedFold& wanted)
{
    if (content.m_file == nullptr || wanted.m_generation != content.m_generation)
        return;
    std::vector<char> bytes(kIndentationBytes);
    const auto indentationAt = [&](const LinePlace& place) {
        bool failed = false;
        const std::size_t size = content.m_file->Read(place.m_position, bytes.data(), bytes.size(), failed);
        LineBytes line{};
        const TextForm& form = content.m_file->GetForm();
        QString text;
        form.Decode(bytes.data(), FindLine(bytes.data(), size, 0, form, line) ? line.m_size : size, text);
        return IndentationOf(text);
    };
    const bool hadAllRows = !HasMoreRows(content);
    bool hasEnd = false;
    std::optional<int> indentation;
    Fold fold{wanted.m_row, wanted.m_row + 1};
    content.Rows()->ForEachHit(wanted.m_row, [&](const LinePlace& place) {
        const int now = indentationAt(place);
        hasEnd = indentation.has_value() && now <= *indentation;
        if (hasEnd)
            return false;
        fold.m_end = place.m_hit + 1;
        indentation = indentation.value_or(now);
        return !m_mustEnd;
    });
    const tev::LockGuard guard(m_lock);
    if (m_content.m_generation != content.m_generation)
        return;
    if (hasEnd || hadAllRows)
        m_folds.push_back(fold);
    else
        m_wantedFolds.push_back({wanted.m_row, wanted.m_generation, true});
}

LogStatus LogDocument::GetStatus() const
{
    LogStatus status;
    Content content;
    {
        const tev::LockGuard guard(m_lock);
        content = m_content;
        status.m_event = m_event;
        status.m_eventCount = m_eventCount;
        status.m_reason = m_reason;
        status.m_generation = m_generation;
    }
    status.m_isOpen = content.m_file != nullptr;
    if (!status.m_isOpen)
        return status;
    status.m_encoding = content.m_file->GetForm().m_encoding;
    status.m_lines = content.m_lines->GetTotals();
    status.m_fileSize = std::max(content.m_file->GetLength(), status.m_lines.m_scannedTo);
    status.m_isFiltered = content.m_filtered != nullptr;
    status.m_rows = content.Rows()->GetTotals();
    status.m_isSearched = content.m_found != nullptr;
    if (status.m_isSearched)
        status.m_matches = content.m_found->GetTotals();
    return status;
}

LogRow LogDocument::ReadRow(const TextFile& file, const LinePlace& place) const
{
    LogRow row;
    row.m_row = place.m_hit;
    row.m_line = place.m_line;
    const TextForm& form = file.GetForm();
    std::vector<char> bytes(kShownBytes);
    bool failed = false;
    std::size_t size = file.Read(place.m_position, bytes.data(), bytes.size(), failed);
    LineBytes line{};
    if (FindLine(bytes.data(), size, 0, form, line))
        size = line.m_size;
    else if (size == bytes.size())
        row.m_isCut = true;
    else if (size >= form.UnitSize() && size % form.UnitSize() == 0 &&
             form.IsUnit(&bytes[size - form.UnitSize()], '\r'))
        size -= form.UnitSize();
    // Not within a character of UTF-8.
    for (int i = 0; row.m_isCut && i < 3 && (bytes[size - 1] & 0xC0) == 0x80 && form.UnitSize() == 1; ++i)
        --size;
    form.Decode(bytes.data(), size, row.m_text);
    return row;
}

std::vector<LogRow> LogDocument::ReadRows(std::uint64_t first, std::size_t count) const
{
    std::vector<LogRow> rows;
    const Content content = GetContent();
    if (content.m_file == nullptr || count == 0)
        return rows;
    content.Rows()->ForEachHit(first, [&](const LinePlace& place) {
        rows.push_back(ReadRow(*content.m_file, place));
        return rows.size() < count;
    });
    return rows;
}

QString LogDocument::CopyRows(std::uint64_t first, std::uint64_t last, std::uint64_t& limit, bool& isCut) const
{
    QString text;
    isCut = false;
    const Content content = GetContent();
    if (content.m_file == nullptr)
        return text;
    const TextForm& form = content.m_file->GetForm();
    content.Rows()->ForEachHit(first, [&](const LinePlace& place) {
        if (place.m_hit > last)
            return false;
        std::vector<char> bytes;
        LineBytes line{};
        std::size_t size = kShownBytes;
        bool failed = false;
        for (;; size *= 4)
        {
            bytes.resize(size);
            bytes.resize(content.m_file->Read(place.m_position, bytes.data(), size, failed));
            if (FindLine(bytes.data(), bytes.size(), 0, form, line) || bytes.size() < size || size > limit)
                break;
        }
        const std::size_t length = line.m_next != 0 ? line.m_size : bytes.size();
        isCut = length > limit;
        form.Decode(bytes.data(), std::min<std::uint64_t>(length, limit), text);
        text += u'\n';
        limit -= std::min<std::uint64_t>(length, limit);
        return !isCut;
    });
    return text;
}

std::uint64_t LogDocument::RowOfLine(std::uint64_t line) const
{
    const Content content = GetContent();
    return content.m_file == nullptr ? 0 : content.Rows()->CountBeforeLine(line);
}

std::optional<std::uint64_t> LogDocument::NextMatch(std::uint64_t row) const
{
    std::optional<std::uint64_t> match;
    const Content content = GetContent();
    if (content.m_found != nullptr)
        content.m_found->ForEachHit(content.m_found->CountBeforeBase(row), [&](const LinePlace& place) {
            match = place.m_base;
            return false;
        });
    return match;
}

std::optional<std::uint64_t> LogDocument::PreviousMatch(std::uint64_t row) const
{
    std::optional<std::uint64_t> match;
    const Content content = GetContent();
    const std::uint64_t count = content.m_found == nullptr ? 0 : content.m_found->CountBeforeBase(row);
    if (count != 0)
        content.m_found->ForEachHit(count - 1, [&](const LinePlace& place) {
            match = place.m_base;
            return false;
        });
    return match;
}

std::vector<bool> LogDocument::FindMatchingParts(std::size_t parts, const RowFolds& folds) const
{
    const Content content = GetContent();
    return content.m_found == nullptr ? std::vector<bool>(parts) : content.m_found->FindParts(parts, folds);
}
