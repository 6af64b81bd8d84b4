// The hooks: what each reports, and how the thread or the process continues afterwards.

#include "crash/CCrashHandler.h"
#include "crash/CrashFault.h"
#include "crash/CrashRegistry.h"
#include "objects/CXException.h"
#include "platform/FatalSignals.h"
#include "platform/SealedData.h"
#include "platform/ThreadLocks.h"
#include "text/CXTString.h"
#include "text/InvalidParameter.h"

#include <atomic>
#include <cstdlib>
#include <exception>
#include <new>

namespace
{
namespace platform = tev::platform;
using platform::FatalSignal;
using platform::SignalEvent;
using tev::CrashRegistry;
using tev::CrashRegistryHold;

thread_local unsigned t_hookedBy TEV_NEAR_THREAD_LOCAL = 0;

/// Read by signal handlers.
struct HookState
{
    // The per-thread hooks are process-wide on this system: each thread records whether it has them, and for which handler.
    std::atomic<unsigned> generation{0};
    // The handlers from before the per-thread hooks, for threads without hooks.
    std::atomic<const platform::PreviousSignals*> floatingPoint{nullptr};
    std::atomic<const platform::PreviousSignals*> illegalInstruction{nullptr};
    std::atomic<const platform::PreviousSignals*> segmentViolation{nullptr};
    std::atomic<void (*)()> terminate{nullptr};
    std::atomic<void (*)()> unexpected{nullptr};
};
platform::SealedData<HookState> g_state;

/// 0 stands for none.
void NextGeneration() noexcept
{
    g_state.Change([](HookState& state) {
        const unsigned next = state.generation.load() + 1;
        state.generation.store(next == 0 ? 1 : next);
    });
}

bool HasThreadHooks() noexcept
{
    return t_hookedBy != 0 && t_hookedBy == g_state->generation.load() && tev::ExpectsCrashes();
}

struct SignalRow
{
    FatalSignal kind;
    XCrashType type;
    std::atomic<const platform::PreviousSignals*> HookState::*others; ///< null for a hook of the whole process
};

constexpr SignalRow kSignalRows[] = {
    {FatalSignal::Abort, xCrashAbort, nullptr},
    {FatalSignal::Interrupt, xCrashInterrupt, nullptr},
    {FatalSignal::Terminate, xCrashTermination, nullptr},
    {FatalSignal::FloatingPoint, xCrashFloatingPoint, &HookState::floatingPoint},
    {FatalSignal::IllegalInstruction, xCrashIllegalInstruction, &HookState::illegalInstruction},
    {FatalSignal::SegmentViolation, xCrashSegmentViolation, &HookState::segmentViolation},
};

/// Runs as a signal handler.
void OnSignal(const SignalEvent& event) noexcept
{
    if (!tev::ExpectsCrashes())
        platform::EndBySignal(event.number);
    XCrashType type = xCrashException;
    for (const SignalRow& row : kSignalRows)
    {
        if (row.kind != event.kind)
            continue;
        if (row.others == nullptr || HasThreadHooks())
            type = row.type;
        else if (const platform::PreviousSignals* const previous = (g_state.Get().*row.others).load())
        {
            if (platform::CallPrevious(*previous, event))
                return;
        }
    }
    tev::ReportAndEnd(type, &event);
}

[[noreturn]] void OnTerminate()
{
    if (HasThreadHooks())
        tev::ReportAndEnd(xCrashTerminate, nullptr);
    if (const auto previous = g_state->terminate.load())
        previous();
    std::abort();
}

[[noreturn]] void OnUnexpected()
{
    if (HasThreadHooks())
        tev::ReportAndEnd(xCrashUnexpected, nullptr);
    if (const auto previous = g_state->unexpected.load())
        previous();
    std::terminate();
}

/// For hooks after which the thread continues.
void Report(_CR_EXCEPTION_INFO& info)
{
    if (tev::ReportInProgress::OnThisThread())
        return;
    const CrashRegistryHold hold;
    if (CCrashHandler* const handler = CrashRegistry::Get().Find())
        handler->ExceptionOccurs(&info, 0);
}

void OnPureCall()
{
    _CR_EXCEPTION_INFO info;
    info.exctype = xCrashPureCall;
    Report(info);
    CXMemoryException::Throw();
}

void OnNoMemory()
{
    // The report and the exception allocate, too.
    thread_local bool isHandling = false;
    // Neither a callback nor a dialog may run while the thread holds a lock of the library.
    const bool holdsLibraryLock =
        platform::t_threadLocks.held.load(std::memory_order_relaxed) >= platform::kLibraryLockWeight;
    if (isHandling || holdsLibraryLock || tev::ReportInProgress::OnThisThread())
        throw std::bad_alloc();
    struct Handling
    {
        Handling() { isHandling = true; }
        ~Handling() { isHandling = false; }
    } const handling;
    _CR_EXCEPTION_INFO info;
    info.exctype = xCrashNoMemory;
    Report(info);
    CXMemoryException::Throw();
}

void OnInvalidParameter(const char* function, int error)
{
    if (tev::ReportInProgress::OnThisThread())
        return;
    const CXTString<wchar_t> name(function);
    const tev::SourcePlace place = tev::RefusedPlace();
    const CXTString<wchar_t> file(place.file);
    CXTString<wchar_t> expression;
    expression.Format(L"errno %d", error);
    _CR_EXCEPTION_INFO info;
    info.exctype = xCrashInvalidParameter;
    info.expression = expression;
    info.function = name;
    info.file = file;
    info.line = place.line;
    Report(info);
    CXInvalidArgException::Throw();
}
} // namespace

int CCrashHandler::SetProcessCPPExceptionHandlers()
{
    const CrashRegistryHold hold;
    if (m_hasProcessHooks)
        return 0;
    m_hasProcessHooks = true;
    NextGeneration();
    m_previousFilter = platform::HookSignals(FatalSignal::Other, OnSignal);
    m_previousPureCall = platform::SetPureCallHook(OnPureCall);
    m_previousNew = std::set_new_handler(OnNoMemory);
    m_previousInvalidParameter = XSetInvalidParameterHandler(OnInvalidParameter);
    m_previousAbort = platform::HookSignals(FatalSignal::Abort, OnSignal);
    m_previousInterrupt = platform::HookSignals(FatalSignal::Interrupt, OnSignal);
    m_previousTermination = platform::HookSignals(FatalSignal::Terminate, OnSignal);
    // On threads without per-thread hooks these three count as unhandled exceptions of the system.
    m_previousFloatingPoint = platform::HookSignals(FatalSignal::FloatingPoint, OnSignal);
    m_previousIllegalInstruction = platform::HookSignals(FatalSignal::IllegalInstruction, OnSignal);
    m_previousSegmentViolation = platform::HookSignals(FatalSignal::SegmentViolation, OnSignal);
    g_state.Change([this](HookState& state) {
        state.floatingPoint.store(m_previousFloatingPoint.get());
        state.illegalInstruction.store(m_previousIllegalInstruction.get());
        state.segmentViolation.store(m_previousSegmentViolation.get());
    });
    return 1;
}

int CCrashHandler::UnSetProcessCPPExceptionHandlers()
{
    const CrashRegistryHold hold;
    if (!m_hasProcessHooks)
        return 0;
    m_hasProcessHooks = false;
    if (m_hookedThreads != 0)
    {
        m_hookedThreads = 1;
        t_hookedBy = g_state->generation.load();
        UnSetThreadCPPExceptionHandlers();
    }
    NextGeneration();
    for (const SignalSlot* slot :
         {&m_previousFilter, &m_previousAbort, &m_previousInterrupt, &m_previousTermination, &m_previousFloatingPoint,
          &m_previousIllegalInstruction, &m_previousSegmentViolation})
        platform::UnhookSignals(*slot);
    g_state.Change([](HookState& state) {
        for (auto* previous : {&state.floatingPoint, &state.illegalInstruction, &state.segmentViolation})
            previous->store(nullptr);
    });
    platform::SetPureCallHook(m_previousPureCall);
    if (std::get_new_handler() == OnNoMemory)
        std::set_new_handler(m_previousNew);
    const XInvalidParameterHandler standing = XSetInvalidParameterHandler(m_previousInvalidParameter);
    if (standing != OnInvalidParameter)
        XSetInvalidParameterHandler(standing);
    InitPrevCPPExceptionHandlerPointers();
    return 1;
}

int CCrashHandler::SetThreadCPPExceptionHandlers()
{
    const CrashRegistryHold hold;
    if (!m_hasProcessHooks || t_hookedBy == g_state->generation.load())
        return 0;
    platform::TakeAlternateStack();
    t_hookedBy = g_state->generation.load();
    if (m_hookedThreads++ == 0)
    {
        m_previousTerminate = std::set_terminate(OnTerminate);
        m_previousUnexpected = platform::SetUnexpectedHook(OnUnexpected);
        // A forked child of a process with hooks finds our own there.
        g_state.Change([this](HookState& state) {
            state.terminate.store(m_previousTerminate == OnTerminate ? nullptr : m_previousTerminate);
            state.unexpected.store(m_previousUnexpected == OnUnexpected ? nullptr : m_previousUnexpected);
        });
    }
    return 1;
}

int CCrashHandler::UnSetThreadCPPExceptionHandlers()
{
    const CrashRegistryHold hold;
    if (!m_hasProcessHooks || t_hookedBy != g_state->generation.load())
        return 0;
    t_hookedBy = 0;
    platform::GiveAlternateStackBack();
    if (--m_hookedThreads == 0)
    {
        if (std::get_terminate() == OnTerminate)
            std::set_terminate(m_previousTerminate);
        const RunTimeHook standing = platform::SetUnexpectedHook(m_previousUnexpected);
        if (standing != OnUnexpected)
            platform::SetUnexpectedHook(standing);
        m_previousTerminate = nullptr;
        m_previousUnexpected = nullptr;
    }
    return 1;
}

void CCrashHandler::InitPrevCPPExceptionHandlerPointers()
{
    m_previousPureCall = nullptr;
    m_previousNew = nullptr;
    m_previousInvalidParameter = nullptr;
    for (SignalSlot* slot : {&m_previousFilter, &m_previousAbort, &m_previousInterrupt, &m_previousTermination,
                             &m_previousFloatingPoint, &m_previousIllegalInstruction, &m_previousSegmentViolation})
        slot->reset();
    m_previousTerminate = nullptr;
    m_previousUnexpected = nullptr;
}

void CCrashHandler::TakeOver(CCrashHandler& earlier)
{
    m_previousFilter = earlier.m_previousFilter;
    m_previousPureCall = earlier.m_previousPureCall;
    m_previousNew = earlier.m_previousNew;
    m_previousInvalidParameter = earlier.m_previousInvalidParameter;
    m_previousAbort = earlier.m_previousAbort;
    m_previousInterrupt = earlier.m_previousInterrupt;
    m_previousTermination = earlier.m_previousTermination;
    m_previousTerminate = earlier.m_previousTerminate;
    m_previousUnexpected = earlier.m_previousUnexpected;
    m_previousFloatingPoint = earlier.m_previousFloatingPoint;
    m_previousIllegalInstruction = earlier.m_previousIllegalInstruction;
    m_previousSegmentViolation = earlier.m_previousSegmentViolation;
    m_hookedThreads = earlier.m_hookedThreads;
    m_hasProcessHooks = true;
    earlier.m_hasProcessHooks = false;
    earlier.m_hookedThreads = 0;
    earlier.InitPrevCPPExceptionHandlerPointers();
}
