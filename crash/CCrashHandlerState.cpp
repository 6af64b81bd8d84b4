#include "crash/CCrashHandler.h"

#include "base/NeverDestroyed.h"
#include "crash/CrashFault.h"
#include "crash/CrashRegistry.h"
#include "platform/CrashDumps.h"
#include "platform/FatalSignals.h"
#include "platform/PathNames.h"
#include "services/ApplicationName.h"
#include "services/Paths.h"

namespace
{
using tev::CrashRegistry;
using tev::CrashRegistryHold;

constexpr unsigned kModeMask = 0xFF;

int ThisProcess() noexcept
{
    return static_cast<int>(tev::platform::ProcessId());
}

CXTString<wchar_t> Text(const wchar_t* text)
{
    return text == nullptr ? CXTString<wchar_t>() : CXTString<wchar_t>(text);
}

struct SupportAddress
{
    tev::LibraryLock m_lock;
    CXTString<wchar_t> m_chosen X_GUARDED_BY(m_lock);
};

SupportAddress& TheSupportAddress()
{
    static tev::NeverDestroyed<SupportAddress> address;
    return address.Get();
}
} // namespace

CCrashHandler::CCrashHandler(int (*callback)(CCrashHandler*), const wchar_t* text1, const wchar_t* text2,
                             unsigned int flags)
    : m_callback(callback), m_processId(ThisProcess()), m_text1(Text(text1)), m_text2(Text(text2)), m_flags(flags)
{
    const CrashRegistryHold hold;
    tev::platform::PrepareDumps(tev::platform::FindDumpHelper());
    CCrashHandler* const earlier = CrashRegistry::Get().Find();
    CrashRegistry::Get().m_handlers[m_processId] = this;
    PublishTraces();
    tev::StartReporter(&CrashHandlerAccess::Report);
    if (earlier != nullptr)
        TakeOver(*earlier);
    else
        SetProcessCPPExceptionHandlers();
    SetThreadCPPExceptionHandlers();
}

CCrashHandler::~CCrashHandler()
{
    const CrashRegistryHold hold;
    UnSetThreadCPPExceptionHandlers();
    UnSetProcessCPPExceptionHandlers();
    auto& handlers = CrashRegistry::Get().m_handlers;
    const auto mine = handlers.find(m_processId);
    if (mine == handlers.end() || mine->second != this)
        return;
    handlers.erase(mine);
    if (m_processId != ThisProcess())
        return;
    tev::StopReporter();
    tev::platform::EndDumps();
}

void CCrashHandler::SetCallback(int (*callback)(CCrashHandler*))
{
    const CrashRegistryHold hold;
    m_callback = callback;
}

void CCrashHandler::SetFlags(unsigned int flags)
{
    const CrashRegistryHold hold;
    const bool isNewMode = ((m_flags ^ flags) & kModeMask) != 0;
    m_flags = flags;
    if (isNewMode)
        PublishTraces();
}

unsigned int CCrashHandler::GetFlags() const
{
    const CrashRegistryHold hold;
    return m_flags;
}

_HandlerCrashMode CCrashHandler::GetMode() const
{
    return static_cast<_HandlerCrashMode>(GetFlags() & kModeMask);
}

void CCrashHandler::SetText(const wchar_t* text1, const wchar_t* text2)
{
    const CrashRegistryHold hold;
    m_text1 = Text(text1);
    m_text2 = Text(text2);
}

void CCrashHandler::AddFiles(const CXArray<CXTString<wchar_t>>& files)
{
    const CrashRegistryHold hold;
    for (const CXTString<wchar_t>& file : files)
        m_files.push_back({CPathString(file), {}});
    PublishTraces();
}

/// Prepares what a crash needs, because nothing can be composed then.
void CCrashHandler::PublishTraces() const
{
    const CrashRegistryHold hold;
    if (CrashRegistry::Get().Find() != this)
        return;
    const bool isCrash = (m_flags & kModeMask) == xCrashReport;
    tev::CrashRecord record;
    CPathString recordPath;
    tev::Attempt([&] {
        const CPathString folder = GetUserApplicationDataPath();
        CPathString stem;
        stem.Format(L"%s.%d", (folder / XGetApplicationName()).GetConstBuffer(), m_processId);
        record.m_isCrash = isCrash;
        record.m_archiveFolder = GetCommonApplicationDataPath();
        record.m_writtenDump = stem + L".dmp";
        record.m_dump = folder / (XGetApplicationName() + L".dmp");
        record.m_files = m_files;
        recordPath = stem + tev::kRecordExtension;
        tev::platform::SetCrashTraces({tev::platform::SystemPathOf(record.m_writtenDump),
                                       tev::platform::SystemPathOf(recordPath), tev::ComposeRecord(record),
                                       tev::platform::LibraryPath()});
    });
    CrashRegistry::Get().m_record = record;
    CrashRegistry::Get().m_recordPath = recordPath;
    tev::ExpectCrashes(tev::platform::ProcessId(), isCrash);
}

CXTString<wchar_t> CCrashHandler::ApplicationText() const
{
    return m_text1.IsEmpty() ? XGetApplicationName() : m_text1;
}

void CrashInstall(int (*callback)(CCrashHandler*), const wchar_t* text1, const wchar_t* text2, unsigned int flags)
{
    tev::Attempt([&] {
        const CrashRegistryHold hold;
        if (CCrashHandler* const handler = CrashRegistry::Get().Find())
        {
            handler->SetCallback(callback);
            handler->SetText(text1, text2);
            handler->SetFlags(flags);
            return;
        }
        new CCrashHandler(callback, text1, text2, flags); // owned by the registry; CrashUninstall deletes it
        tev::FinishLeftReports(GetUserApplicationDataPath(), XGetApplicationName());
    });
}

CCrashHandler* CrashGetHandler()
{
    const CrashRegistryHold hold;
    return CrashRegistry::Get().Find();
}

void CrashUninstall()
{
    const CrashRegistryHold hold;
    delete CrashRegistry::Get().Find();
}

void CrashThreadInstall()
{
    const CrashRegistryHold hold;
    if (CCrashHandler* const handler = CrashRegistry::Get().Find())
        handler->SetThreadCPPExceptionHandlers();
}

void CrashThreadUninstall()
{
    const CrashRegistryHold hold;
    if (CCrashHandler* const handler = CrashRegistry::Get().Find())
        handler->UnSetThreadCPPExceptionHandlers();
}

CXTString<wchar_t> XGetSupportAddress()
{
    SupportAddress& address = TheSupportAddress();
    const tev::LockGuard guard(address.m_lock);
    CXTString<wchar_t> text = address.m_chosen;
    if (text.IsEmpty())
        text.LoadString(tev::kTextSupportAddress);
    return text;
}

void XSetSupportAddress(const CXTString<wchar_t>& address)
{
    SupportAddress& standing = TheSupportAddress();
    const tev::LockGuard guard(standing.m_lock);
    standing.m_chosen = address;
}
