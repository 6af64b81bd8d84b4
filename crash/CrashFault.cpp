#include "crash/CrashFault.h"

#include "base/NeverDestroyed.h"
#include "crash/CrashPaths.h"
#include "objects/CXArchiveException.h"
#include "objects/CXFileException.h"
#include "objects/ThreadException.h"
#include "platform/AddressWait.h"
#include "platform/CrashDumps.h"
#include "platform/Demangling.h"
#include "platform/ForcedUnwind.h"
#include "platform/SealedData.h"
#include "platform/ThreadLocks.h"
#include "platform/Threads.h"
#include "services/OpenLog.h"

#include <atomic>
#include <chrono>
#include <csetjmp>
#include <ctime>
#include <exception>
#include <new>
#include <utility>

namespace
{
using Clock = std::chrono::steady_clock;
using tev::platform::SignalEvent;

// Counted from the fault. The time between the two is the helper's.
constexpr auto kReporterDeadline = std::chrono::milliseconds(7000);
constexpr auto kDeadline = std::chrono::milliseconds(10000);

enum Stage : std::uint32_t
{
    kWaiting,
    kReporting,
    kAsking, ///< the user
    kDone,
    kFailed,
    kStopped ///< the thread has to end
};

std::atomic<std::uint32_t> g_stage{kWaiting};
struct Expected
{
    std::atomic<unsigned> processId{0};
    std::atomic<bool> withDump{false};
    std::atomic<tev::CrashReporter> reporter{nullptr};
    tev::platform::StartedThread* thread = nullptr;
    unsigned threadProcess = 0; ///< a forked child has none
};
tev::platform::SealedData<Expected> g_expected;
tev::platform::SealedData<std::atomic<const void*>>
    g_crashed; ///< the mark of the thread that crashed first, null for none
std::atomic<const void*> g_reporterMark{nullptr};

/// Passed from the crashed thread to the waiting one. Not on the crashed thread's stack, which belongs into the dump.
_CR_EXCEPTION_INFO g_info;
_EXCEPTION_POINTERS g_pointers;
tev::platform::CrashNotes g_notes;
std::atomic<int> g_place{-1};
int g_signal = 0; ///< by which the process ends; 0 for exit code 1

/// The exception that has ended the process, never destroyed; null when there is none.
alignas(std::exception_ptr) unsigned char g_exceptionMemory[sizeof(std::exception_ptr)];
std::exception_ptr* g_exception = nullptr;

constexpr std::size_t kLongestPath = 4096;
char g_reportPath[kLongestPath];

/// Where the waiting thread continues when the program's callback crashes.
std::jmp_buf g_withoutCallback;
thread_local bool t_isCallbackRunning TEV_NEAR_THREAD_LOCAL = false; ///< on the reporting thread
std::atomic<bool> g_isCallbackBroken{false};

thread_local char t_mark TEV_NEAR_THREAD_LOCAL = 0;

void EndReport(Stage stage) noexcept
{
    g_stage.store(stage);
    tev::platform::WakeAll(g_stage);
}

Stage LetReport()
{
    try
    {
        return g_expected->reporter.load()(g_info) ? kDone : kFailed;
    }
    catch (const tev::platform::ForcedUnwind&) // a function of the host ends this thread: the helper makes the report
    {
        EndReport(kFailed);
        throw;
    }
    catch (...)
    {
        return kFailed;
    }
}

// No object with a destructor may live in this function: a callback that crashes returns here by longjmp.
unsigned WaitForCrash(void*)
{
    tev::platform::BecomeCrashReporter();
    g_reporterMark.store(tev::ThreadMark());
    while (g_stage.load() == kWaiting)
        tev::platform::WaitWhile(g_stage, kWaiting);
    if (g_stage.load() != kReporting)
        return 0;
    if (setjmp(g_withoutCallback) != 0)
        g_isCallbackBroken.store(true);
    EndReport(LetReport());
    return 0;
}

void SetReporterThread(tev::platform::StartedThread* thread) noexcept
{
    g_expected.Change([thread](Expected& expected) {
        expected.thread = thread;
        expected.threadProcess = tev::platform::ProcessId();
    });
}

[[noreturn]] void EndProcess() noexcept
{
    if (g_signal != 0)
        tev::platform::EndBySignal(g_signal);
    tev::platform::EndAtOnce(1);
}

/// Until the thread that crashed first ends the process. In good time in any case: what says that there is one may be damaged.
[[noreturn]] void StandStill() noexcept
{
    constexpr auto kStep = std::chrono::seconds(1);
    static const std::atomic<std::uint32_t> never{0};
    Clock::time_point end = Clock::now() + 2 * kDeadline;
    while (Clock::now() < end)
    {
        tev::platform::WaitWhile(never, 0, kStep);
        if (g_stage.load() == kAsking)
            end = Clock::now() + 2 * kDeadline;
    }
    EndProcess();
}

/// Only the first crashed thread returns.
void PassGate() noexcept
{
    const void* const self = tev::ThreadMark();
    const void* first = nullptr;
    if (g_crashed.Open().compare_exchange_strong(first, self))
        return;
    if (first == self)
        EndProcess(); // the report itself crashed
    if (tev::IsReporter())
    {
        if (std::exchange(t_isCallbackRunning, false))
            std::longjmp(g_withoutCallback, 1);
        EndReport(kFailed);
    }
    StandStill();
}

bool LetReporterWork(Clock::time_point end) noexcept
{
    if (g_expected->thread == nullptr || g_expected->threadProcess != tev::platform::ProcessId() || tev::IsReporter())
        return false;
    g_stage.store(kReporting);
    tev::platform::WakeAll(g_stage);
    for (;;)
    {
        const std::uint32_t stage = g_stage.load();
        if (stage == kDone || stage == kFailed)
            return stage == kDone;
        const Clock::duration left = end - Clock::now();
        if (stage == kAsking)
            tev::platform::WaitWhile(g_stage, stage);
        else if (left <= Clock::duration::zero())
            return false;
        else
            tev::platform::WaitWhile(g_stage, stage, left);
    }
}

/// What is known without asking anything that may be locked or broken.
void TakeNotes(unsigned type, const SignalEvent* event) noexcept
{
    namespace detail = tev::crashdetail;
    g_notes.Clear();
    g_notes.Add(tev::kLogKey, tev::OpenLogPath());
    g_notes.Add(detail::kType, std::uint64_t{type});
    if (event != nullptr)
    {
        g_notes.Add(detail::kSignal, static_cast<std::uint64_t>(event->number));
        g_notes.Add(detail::kCode, static_cast<std::uint64_t>(static_cast<unsigned>(event->code)));
    }
    g_notes.Add(detail::kTime, static_cast<std::uint64_t>(std::time(nullptr)));
    g_notes.Add(detail::kUptime, tev::platform::ProcessUptime());
    if (type != xCrashTerminate && type != xCrashUnexpected && type != xCrashAbort)
        return;
    g_notes.Add(detail::kException, tev::platform::CurrentExceptionType());
    if (const std::exception_ptr exception = std::current_exception())
        g_exception = new (g_exceptionMemory) std::exception_ptr(exception);
}

/// What the exception says of itself.
CXTString<wchar_t> ExceptionMessage()
{
    try
    {
        std::rethrow_exception(*g_exception);
    }
    catch (const std::exception& exception)
    {
        return tev::FromUtf8(exception.what());
    }
    catch (CXFileException* exception)
    {
        return exception->GetCauseMessage();
    }
    catch (CXArchiveException* exception)
    {
        return exception->GetErrorMessage();
    }
    catch (const std::string& text)
    {
        return tev::FromUtf8(text);
    }
    catch (const char* text)
    {
        return tev::FromUtf8(text);
    }
    catch (...)
    {
        return {};
    }
}

/// Asked for once: it calls code of the program, which may crash, too.
struct CrashMessage
{
    const std::string m_text = g_exception == nullptr ? std::string() : tev::Utf8(ExceptionMessage());

    static const std::string& Get()
    {
        static tev::NeverDestroyed<CrashMessage> message;
        return message.Get().m_text;
    }
};

unsigned MillisecondsUntil(Clock::time_point end) noexcept
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    return left > 0 ? static_cast<unsigned>(left) : 0;
}
} // namespace

namespace tev
{
void StartReporter(CrashReporter reporter) noexcept
{
    g_expected.Change([reporter](Expected& expected) { expected.reporter.store(reporter); });
    if (g_expected->thread != nullptr && g_expected->threadProcess == platform::ProcessId())
        return;
    g_stage.store(kWaiting);
    g_crashed.Seal();
    platform::StartedThread* const thread =
        platform::StartThread({WaitForCrash, [](void*) noexcept {}}, nullptr, 0, platform::ThreadOwner::Library);
    SetReporterThread(thread);
    if (thread != nullptr)
        platform::ResumeThread(thread);
}

void StopReporter() noexcept
{
    platform::StartedThread* const thread = g_expected->thread;
    if (thread == nullptr || IsCrashing())
        return;
    if (g_expected->threadProcess == platform::ProcessId())
    {
        constexpr unsigned kLongMs = 10000;
        g_stage.store(kStopped);
        platform::WakeAll(g_stage);
        platform::WaitForThread(thread, kLongMs);
        platform::ReleaseThread(thread);
    }
    g_reporterMark.store(nullptr);
    SetReporterThread(nullptr);
}

void ExpectCrashes(unsigned processId, bool withDump) noexcept
{
    g_expected.Change([=](Expected& expected) {
        expected.withDump.store(withDump);
        expected.processId.store(processId);
    });
}

bool ExpectsCrashes() noexcept
{
    return g_expected->processId.load() == platform::ProcessId();
}

void ReportAndEnd(unsigned type, const platform::SignalEvent* event) noexcept
{
    if (event != nullptr)
        platform::NoteThreadFault(event->context);
    PassGate();
    const Clock::time_point start = Clock::now();
    g_signal = type == xCrashException && event != nullptr ? event->number : 0;
    g_info.exctype = type;
    platform::Fault fault;
    if (event != nullptr)
    {
        g_info.code = static_cast<unsigned>(type == xCrashFloatingPoint ? event->code : event->number);
        g_pointers = {event->info, event->context};
        g_info.pexcptrs = &g_pointers;
        fault = {event->context, event->info};
    }
    TakeNotes(type, event);
    g_place.store(platform::WriteCrashTraces(fault, g_expected->withDump.load(), g_notes));
    if (LetReporterWork(start + kReporterDeadline))
        WriteReportPath();
    else if (g_place.load() >= 0)
    {
        const char* const path = platform::LetHelperFinish(g_place.load(), MillisecondsUntil(start + kDeadline));
        if (path != nullptr && *path != '\0')
            platform::WriteErrorLine("crash report: ", path);
    }
    EndProcess();
}

int CrashPlaceUsed() noexcept
{
    return g_place.load();
}

void AddCrashNotes(CrashRecord& record)
{
    AddNotes(g_notes.Bytes(), record);
    const std::string& message = CrashMessage::Get();
    if (!message.empty())
        record.m_details.emplace_back(crashdetail::kMessage, message);
}

void AddMessageTo(const CPathString& recordPath)
{
    const std::string& message = CrashMessage::Get();
    if (!message.empty())
        AddDetailTo(recordPath, crashdetail::kMessage, message);
}

void SetReportPath(const CPathString& path) noexcept
{
    g_reportPath[0] = '\0';
    try
    {
        const std::string name = SystemFilePath(path).string();
        if (name.size() < sizeof g_reportPath)
            g_reportPath[name.copy(g_reportPath, name.size())] = '\0';
    }
    catch (const std::bad_alloc&)
    {
    }
}

void WriteReportPath() noexcept
{
    if (g_reportPath[0] != '\0')
        platform::WriteErrorLine("crash report: ", g_reportPath);
}

bool IsCrashing() noexcept
{
    return g_crashed->load() != nullptr;
}

bool IsCrashedThread(const void* threadMark) noexcept
{
    return threadMark != nullptr && threadMark == g_crashed->load();
}

bool IsReporter() noexcept
{
    return g_reporterMark.load() == ThreadMark();
}

const void* ThreadMark() noexcept
{
    return &t_mark;
}

bool IsCallbackBroken() noexcept
{
    return g_isCallbackBroken.load();
}

CallbackRuns::CallbackRuns() noexcept
{
    t_isCallbackRunning = IsReporter() && IsCrashing();
}

CallbackRuns::~CallbackRuns()
{
    t_isCallbackRunning = false;
}

WithoutDeadline::WithoutDeadline() noexcept
{
    std::uint32_t reporting = kReporting;
    if (g_stage.compare_exchange_strong(reporting, kAsking))
        platform::WakeAll(g_stage);
}

WithoutDeadline::~WithoutDeadline()
{
    std::uint32_t asking = kAsking;
    if (g_stage.compare_exchange_strong(asking, kReporting))
        platform::WakeAll(g_stage);
}
} // namespace tev
