#include "services/LogFile.h"

#include "base/NeverDestroyed.h"
#include "files/CStdioFileEx.h"
#include "maps/CHashMap.h"
#include "objects/CXCriticalSection.h"
#include "objects/CXFileException.h"
#include "objects/FailureNote.h"
#include "objects/ThreadException.h"
#include "platform/Cancellation.h"
#include "platform/ForkHandlers.h"
#include "platform/PathNames.h"
#include "platform/SealedData.h"
#include "platform/SystemErrors.h"
#include "platform/ThreadLocks.h"
#include "platform/Threads.h"
#include "services/ApplicationName.h"
#include "services/OpenLog.h"
#include "services/Paths.h"
#include "text/CodePageText.h"
#include "text/TextFormat.h"
#include "threads/MainThread.h"
#include "values/CXTime.h"

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

namespace
{
using Text = CXTString<wchar_t>;
using Tabs = CHashMap<unsigned, unsigned, Text>;

constexpr unsigned kThreshold = 0xFF;
constexpr unsigned __int64 kLongMessage = 64 * 1024; // whose memory is not kept
constexpr unsigned kErrorSeekOnDevice = 132;
constexpr unsigned __int64 kNoPosition = ~0ull;
constexpr unsigned kCreate = CXFile::modeWrite | CXFile::shareDenyWrite | CXFile::modeCreate | CXFile::typeText |
                             CStdioFileEx::kWriteUtf16 | CStdioFileEx::kUtf16Written;

constexpr const wchar_t* kHeader = L"\n\n*************************\nLogging information for %s (%s)\nRelease Mode\n"
                                   L"*************************\n";

// Outside the lock, so that a call with nothing to do returns without waiting.
std::atomic<unsigned> g_level{kThreshold};
std::atomic<bool> g_isOpen{false};
std::atomic<unsigned> g_prefix{xLogNoPrefix};

/// For the crash handler, which cannot wait for the lock. A replaced path is deleted at the next replacement only.
tev::platform::SealedData<std::atomic<const std::string*>> g_path;
const std::string* g_formerPath = nullptr;

/// Under the log's lock. Null for none.
void PublishPath(const CPathString* path)
{
    std::unique_ptr<const std::string> published;
    std::string name;
    if (path != nullptr && tev::platform::WidePathToSystem(*path, name))
    {
        std::error_code failure; // leaves the path empty
        published = std::make_unique<const std::string>(std::filesystem::absolute(name, failure).string());
    }
    delete g_formerPath;
    g_formerPath = g_path->load();
    g_path.Change([&published](auto& current) { current.store(published.release()); });
}

unsigned Level() noexcept
{
    return g_level.load(std::memory_order_relaxed);
}

bool IsBelowThreshold(unsigned level) noexcept
{
    const unsigned word = Level();
    return (word & xLogOff) == 0 && level <= (word & kThreshold);
}

unsigned ThisThread() noexcept
{
    return static_cast<unsigned>(tev::platform::CurrentThreadId());
}

template <class T>
bool IsLineEnd(T character) noexcept
{
    return character == T('\n') || character == T('\r');
}

/// Of a message without a level.
constexpr unsigned kNoLevel = ~0u;

/// What stands before a line, of the parts that SetLogPrefix chose; empty when it chose none.
Text Prefix(unsigned level)
{
    using namespace std::chrono;
    const unsigned parts = g_prefix.load(std::memory_order_relaxed);
    Text prefix;
    const auto append = [&prefix](const Text& part) { prefix += (prefix.IsEmpty() ? L"[" : L" ") + part; };
    if ((parts & xLogPrefixTime) != 0)
    {
        const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
        Text fraction;
        fraction.Format(L".%03dZ", static_cast<int>(now % 1000));
        append(CXTime(now / 1000).FormatGmt(L"%Y-%m-%dT%H:%M:%S") + fraction);
    }
    Text number;
    if ((parts & xLogPrefixThread) != 0)
    {
        number.Format(L"%u", ThisThread());
        append(number);
    }
    if ((parts & xLogPrefixLevel) != 0)
    {
        number.Format(level == kNoLevel ? L"L-" : L"L%u", level);
        append(number);
    }
    return prefix.IsEmpty() ? prefix : prefix + L"] ";
}

/// The open file and the tabs of the threads.
class Log
{
public:
    static Log& Get()
    {
        static tev::NeverDestroyed<Log> log;
        return log.Get();
    }

    bool Open(const Text& path, LogFileMode mode, unsigned level);
    bool Close();
    bool IsEnabled() const;
    template <class T>
    void Write(const T* message, unsigned level);
    unsigned AddTab(bool add);

    static void BeforeFork();
    static void InParent();
    static void InChild();

    mutable tev::LibraryLock m_lock;

private:
    void OpenFile(const Text& path, LogFileMode mode) X_REQUIRES(m_lock);
    void WriteText(const Text* tabs, const wchar_t* message, unsigned level) X_REQUIRES(m_lock);
    void WriteText(const Text* tabs, const char* message, unsigned level) X_REQUIRES(m_lock);
    template <class T>
    void WriteText(const Text* tabs, const T* message, std::size_t length, unsigned level) X_REQUIRES(m_lock);
    void GoToEnd() X_REQUIRES(m_lock);
    void MoveRest() X_REQUIRES(m_lock);
    const Text* TabsOf(unsigned thread) const X_REQUIRES(m_lock)
    {
        return m_tabs->GetCount() == 0 ? nullptr : m_tabs->Find(thread);
    }
    static bool IsTooDeep(const Text* tabs) noexcept
    {
        return tabs != nullptr && static_cast<unsigned>(tabs->GetLength()) > (Level() & kThreshold);
    }

    std::unique_ptr<CStdioFileEx> m_file X_GUARDED_BY(m_lock);
    std::unique_ptr<Tabs> m_tabs X_GUARDED_BY(m_lock); // exists while the file is open
    Text m_decoded X_GUARDED_BY(m_lock);               // the last narrow message that is not ASCII
    bool m_hasEnd X_GUARDED_BY(m_lock) = false;        // a pipe or a terminal has none
    bool m_isLineOpen X_GUARDED_BY(m_lock) = false;    // the last message has no line end
    bool m_hasRest X_GUARDED_BY(m_lock) = false;       // the last message could not be written as a whole
    unsigned m_forking X_GUARDED_BY(m_lock) = 0;       // the thread that forks
};

/// The path of a log of that name; throws when its folder cannot be created.
CPathString LogPath(const Text& name, LogFileMode mode)
{
    CPathString path = name;
    if (path.GetFolder().IsEmpty())
        path = GetUserApplicationDataPath() / path;
    return mode == xLogNumber && fileExists(path) ? fileNextNumberedName(path) : path;
}

/// The new position; kNoPosition where the file has none. Throws where it cannot be moved: what is written then would
/// replace earlier messages.
unsigned __int64 MoveInLog(CStdioFileEx& file, __int64 offset, CXFile::SeekPosition origin)
{
    const tev::FailuresUnnoted unnoted; // of a pipe, which is no failure
    const unsigned __int64 position = file.Seek(offset, origin);
    if (position == kNoPosition && tev::platform::LastSystemError() != kErrorSeekOnDevice)
        CXFileException::ThrowOsError(fileBadSeek, file.GetFilePath(), nullptr);
    return position;
}

void Log::OpenFile(const Text& name, LogFileMode mode)
{
    const CPathString path = LogPath(name, mode);
    auto file = std::make_unique<CStdioFileEx>(true);
    CXFileException failure;
    if (!file->Open(path, mode == xLogAppend ? kCreate | CXFile::modeNoTruncate : kCreate, &failure))
        XThrow<CXFileException>(failure);
    m_hasEnd = MoveInLog(*file, 0, CXFile::end) != kNoPosition;
    m_isLineOpen = false;
    m_hasRest = false;
    m_tabs = std::make_unique<Tabs>();
    PublishPath(&path);
    m_file = std::move(file);
    g_isOpen = true;
    if (IsEnabled())
        WriteToLogFile(kHeader, XGetApplicationName().GetConstBuffer(),
                       CXTime::GetTickCount().Format(L"%c").GetConstBuffer());
}

bool Log::Open(const Text& path, LogFileMode mode, unsigned level)
{
    const tev::LockGuard guard(m_lock);
    if (m_file != nullptr)
        return tev::NoteBadArgument("SetLogFile", path);
    SetLogLevel(level);
    if (mode != xLogCreate && mode != xLogAppend && mode != xLogNumber)
        return tev::NoteBadArgument("SetLogFile", path);
    try
    {
        OpenFile(path, mode);
        return true;
    }
    catch (CXFileException* failure)
    {
        tev::NoteException("SetLogFile", *failure, path);
        failure->Delete();
        Close();
        return false;
    }
}

bool Log::Close()
{
    const tev::LockGuard guard(m_lock);
    const bool wasOpen = g_isOpen.exchange(false);
    PublishPath(nullptr);
    m_tabs.reset();
    m_file.reset();
    return wasOpen;
}

bool Log::IsEnabled() const
{
    const tev::LockGuard guard(m_lock);
    const unsigned word = Level();
    if ((word & xLogOff) != 0 || ((word & xLogMute) == 0 && m_file == nullptr))
        return false;
    return m_tabs == nullptr || (word & kThreshold) == kThreshold || !IsTooDeep(TabsOf(ThisThread()));
}

template <class T>
void Log::Write(const T* message, unsigned level)
{
    const tev::LockGuard guard(m_lock);
    if (m_file == nullptr)
        return;
    const Text* tabs = TabsOf(ThisThread());
    if (IsTooDeep(tabs))
        return;
    // The main thread says what the application is doing: messages of its workers are indented below that.
    if (const Text* mainTabs = TabsOf(static_cast<unsigned>(tev::MainThreadId())))
        tabs = mainTabs;
    if (IsTooDeep(tabs))
        return;
    WriteText(tabs, message, level);
}

void Log::WriteText(const Text* tabs, const char* message, unsigned level)
{
    const std::size_t length = std::strlen(message);
    if (tev::IsAnsiAscii(message, length))
        return WriteText(tabs, message, length, level);
    m_decoded = message;
    WriteText(tabs, m_decoded.GetConstBuffer(), level);
    if (m_decoded.GetLength64() > kLongMessage)
        m_decoded = Text();
}

void Log::WriteText(const Text* tabs, const wchar_t* message, unsigned level)
{
    WriteText(tabs, message, std::wcslen(message), level);
}

template <class T>
void Log::WriteText(const Text* tabs, const T* message, std::size_t length, unsigned level)
{
    GoToEnd();
    m_hasRest = true; // unless all is written
    const bool startsLine = !m_isLineOpen && length != 0 && !IsLineEnd(message[0]);
    if (startsLine && g_prefix.load(std::memory_order_relaxed) != xLogNoPrefix)
        m_file->WriteString(Prefix(level));
    if (tabs != nullptr)
        m_file->WriteString(*tabs);
    m_file->WriteString(message);
    if (length != 0)
        m_isLineOpen = !IsLineEnd(message[length - 1]);
    m_file->Flush();
    m_hasRest = false;
}

/// Another program may have cut the file, as log rotation does, or appended to it.
void Log::GoToEnd()
{
    if (!m_hasEnd)
        return;
    if (m_hasRest)
        MoveRest();
    const unsigned __int64 end = MoveInLog(*m_file, 0, CXFile::end);
    if (end != kNoPosition && end % 2 != 0)
        MoveInLog(*m_file, static_cast<__int64>(end - 1), CXFile::begin); // a character was cut in two
}

/// What could not be written is still in the file's buffer. Where the file was cut meanwhile, as it is on a full disk, it goes
/// to the new end.
void Log::MoveRest()
{
    constexpr char kMark[] = {'\xFF', '\xFE'};
    const unsigned __int64 position = m_file->CXFile::GetPosition();
    const unsigned __int64 end = m_file->CXFile::GetLength();
    if (position <= end)
        return;
    m_file->CXFile::Seek(0, CXFile::end);
    if (end == 0)
        m_file->CXFile::Write(kMark, sizeof kMark);
    if ((position - end) % 2 != 0)
        m_file->CXFile::Write(" ", 1); // in place of the half of a character that was written
}

unsigned Log::AddTab(bool add)
{
    const tev::LockGuard guard(m_lock);
    if (m_file == nullptr)
        return 0;
    const unsigned thread = ThisThread();
    Text* tabs = m_tabs->Find(thread);
    if (add)
    {
        if (tabs == nullptr && m_tabs->Insert(thread, Text()) == 0)
            CXMemoryException::Throw();
        tabs = m_tabs->Find(thread);
        *tabs += L'\t';
    }
    else if (tabs == nullptr || tabs->GetLength() < 2)
    {
        m_tabs->Remove(thread);
        return 0;
    }
    else
    {
        tabs->Delete(tabs->GetLength() - 1);
    }
    return static_cast<unsigned>(tabs->GetLength());
}

void Log::BeforeFork() X_NO_THREAD_SAFETY_ANALYSIS
{
    Log& log = Get();
    log.m_lock.Lock();
    log.m_forking = ThisThread();
}

void Log::InParent() X_NO_THREAD_SAFETY_ANALYSIS
{
    Get().m_lock.Unlock();
}

// The child's only thread has another identifier than the one that forked, and keeps its tabs.
void Log::InChild() X_NO_THREAD_SAFETY_ANALYSIS
{
    Log& log = Get();
    if (log.m_tabs != nullptr)
    {
        Text own;
        if (Text* const tabs = log.m_tabs->Find(log.m_forking))
            own = std::move(*tabs);
        log.m_tabs->Free();
        if (!own.IsEmpty())
            log.m_tabs->Insert2(ThisThread(), std::move(own));
    }
    log.m_lock.Unlock();
}

const tev::platform::ForkHandler g_forkHandler(tev::platform::ForkRank::LogFile, &Log::BeforeFork, &Log::InParent,
                                               &Log::InChild);

bool IsWanted(const void* format) noexcept
{
    return format != nullptr && g_isOpen.load(std::memory_order_acquire) && (Level() & (xLogOff | xLogMute)) == 0;
}

/// Not while the thread holds the log by LogLock: no destructor would release it.
void EndIfCancelled()
{
    if (tev::platform::t_threadLocks.held.load(std::memory_order_relaxed) < tev::platform::kLibraryLockWeight)
        tev::platform::PassCancellationPoint();
}

// Messages are formatted before the lock is taken.
template <class T>
void WriteMessage(unsigned level, const T* format, va_list arguments)
{
    if (!IsWanted(format))
        return;
    tev::FormatOutput<T> message;
    const bool isFormatted = tev::FormatText(message, format, arguments) && tev::AppendFill(message, T(), 1);
    if (!isFormatted)
        tev::NoteBadArgument("WriteToLogFile");
    const T empty = T();
    Log::Get().Write(isFormatted ? message.Data() : &empty, level);
    EndIfCancelled();
}
} // namespace

const char* tev::OpenLogPath() noexcept
{
    const std::string* const path = g_path->load();
    return path == nullptr ? nullptr : path->c_str();
}

bool SetLogFile(const Text& path, LogFileMode mode, unsigned int level)
{
    return Log::Get().Open(path, mode, level);
}

bool CloseLogFile()
{
    return Log::Get().Close();
}

unsigned int SetLogLevel(unsigned int level) noexcept
{
    return g_level.exchange(level, std::memory_order_relaxed);
}

unsigned int SetLogPrefix(unsigned int parts) noexcept
{
    return g_prefix.exchange(parts, std::memory_order_relaxed);
}

bool IsLogFileEnabled()
{
    return Log::Get().IsEnabled();
}

void WriteToLogFile(const wchar_t* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    WriteMessage(kNoLevel, format, arguments);
    va_end(arguments);
}

void WriteToLogFile(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    WriteMessage(kNoLevel, format, arguments);
    va_end(arguments);
}

void WriteToLogFile(unsigned int level, const wchar_t* format, ...)
{
    if (!IsBelowThreshold(level))
        return;
    va_list arguments;
    va_start(arguments, format);
    WriteMessage(level, format, arguments);
    va_end(arguments);
}

void WriteToLogFile(unsigned int level, const char* format, ...)
{
    if (!IsBelowThreshold(level))
        return;
    va_list arguments;
    va_start(arguments, format);
    WriteMessage(level, format, arguments);
    va_end(arguments);
}

unsigned int LogFileAddTab(bool add)
{
    return g_isOpen.load(std::memory_order_acquire) ? Log::Get().AddTab(add) : 0;
}

void LogLock(bool lock) X_NO_THREAD_SAFETY_ANALYSIS // taken by one call, released by another
{
    if (lock)
        Log::Get().m_lock.Lock();
    else
        Log::Get().m_lock.Unlock();
}
