#include "crash/CCrashHandler.h"

#include "base/NeverDestroyed.h"
#include "crash/Attempt.h"
#include "crash/CrashFault.h"
#include "crash/CrashPackage.h"
#include "crash/CrashRegistry.h"
#include "objects/HeldOverFork.h"
#include "platform/CrashDumps.h"
#include "platform/FatalSignals.h"
#include "platform/PathNames.h"
#include "services/ApplicationName.h"
#include "services/ApplicationNameObserver.h"
#include "services/DataFolders.h"
#include "text/Language.h"

#include <atomic>

namespace
{
using tev::CrashRecord;
using tev::CrashRegistry;
using tev::CrashRegistryHold;

constexpr unsigned kModeMask = 0xFF;

int ThisProcess() noexcept
{
    return static_cast<int>(tev::platform::ProcessId());
}

CXTString<wchar_t> TextOrEmpty(const wchar_t* text)
{
    return text == nullptr ? CXTString<wchar_t>() : CXTString<wchar_t>(text);
}

struct SupportAddress
{
    tev::LibraryLock m_lock;
    CXTString<wchar_t> m_chosen X_GUARDED_BY(m_lock);
};

void OnApplicationName()
{
    const CrashRegistryHold hold;
    if (CCrashHandler* const handler = CrashRegistry::Get().Find())
    {
        CrashHandlerAccess::PublishTraces(*handler);
        CrashHandlerAccess::FinishLeft(*handler);
    }
}

std::atomic<bool> g_isDialogWanted{false};

SupportAddress& TheSupportAddress()
{
    static tev::NeverDestroyed<SupportAddress> address;
    return address.Get();
}

CXCriticalSection& SupportAddressLock() noexcept
{
    return TheSupportAddress().m_lock;
}

const tev::HeldOverFork<&SupportAddressLock> g_supportAddressHeldOverFork(tev::platform::ForkRank::SupportAddress);
} // namespace

CCrashHandler::CCrashHandler(int (*callback)(CCrashHandler*), const wchar_t* text1, const wchar_t* text2,
                             unsigned int flags)
    : m_callback(callback),
      m_processId(ThisProcess()),
      m_text1(TextOrEmpty(text1)),
      m_text2(TextOrEmpty(text2)),
      m_flags(flags)
{
    const CrashRegistryHold hold;
    tev::platform::PrepareDumps(tev::platform::FindDumpHelper());
    CCrashHandler* const earlier = CrashRegistry::Get().Find();
    CrashRegistry::Get().m_handlers[m_processId] = this;
    PublishTraces();
    tev::StartReporter(&CrashHandlerAccess::Report);
    tev::SetApplicationNameObserver(&OnApplicationName);
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
    m_text1 = TextOrEmpty(text1);
    m_text2 = TextOrEmpty(text2);
    PublishTraces();
}

void CCrashHandler::AddFiles(const CXArray<CXTString<wchar_t>>& files)
{
    const CrashRegistryHold hold;
    for (const CXTString<wchar_t>& file : files)
        m_files.push_back({CPathString(file), {}});
    PublishTraces();
}

CrashRecord CCrashHandler::RecordOfNow() const
{
    CrashRecord record;
    record.m_isCrash = (m_flags & kModeMask) == xCrashReport;
    record.m_product = XGetApplicationName();
    record.m_name = ApplicationText();
    record.m_version = m_text2;
    record.m_files = m_files;
    if (tev::IsCrashDialogWanted())
    {
        record.m_dialogLanguage = XGetLanguage() == XLanguage::French ? L"fr" : L"en";
        record.m_support = XGetSupportAddress();
    }
    // Where there is no folder to write to, the report goes to the temporary files.
    tev::Attempt([&] {
        CPathString folder;
        if (tev::FindCommonDataFolder(folder))
            record.m_archiveFolder = folder;
    });
    tev::Attempt([&] {
        CPathString folder;
        if (tev::FindUserDataFolder(folder))
            record.m_dump = folder / (record.m_product + L".dmp");
    });
    return record;
}

/// Prepares what a crash needs, because nothing can be composed then.
void CCrashHandler::PublishTraces() const
{
    const CrashRegistryHold hold;
    if (CrashRegistry::Get().Find() != this)
        return;
    CXTString<wchar_t> random = CrashRegistry::Get().m_random;
    CrashRegistry::AllPublished published;
    tev::Attempt([&] {
        if (random.IsEmpty())
            random = tev::RandomName();
        const CrashRecord record = RecordOfNow();
        CPathString stems[tev::platform::CrashTraces::kPlaces];
        if (!record.m_dump.IsEmpty())
            stems[0].Format(L"%s.%d", (record.m_dump.GetFolder() / record.m_product).GetConstBuffer(), m_processId);
        stems[1].Format(L"%s.%s.%d", (tev::TemporaryFolder() / record.m_product).GetConstBuffer(),
                        random.GetConstBuffer(), m_processId);
        tev::platform::CrashTraces traces;
        traces.libraryPath = tev::platform::LibraryPath();
        for (std::size_t i = 0; i < published.size(); ++i)
        {
            published[i] = {record, {}};
            if (stems[i].IsEmpty())
                continue;
            published[i].m_record.m_writtenDump = stems[i] + L".dmp";
            if (i != 0)
                published[i].m_record.m_dump = published[i].m_record.m_writtenDump;
            published[i].m_path = stems[i] + tev::kRecordExtension;
            traces.places[i] = {tev::platform::SystemPathOf(published[i].m_record.m_writtenDump),
                                tev::platform::SystemPathOf(published[i].m_path),
                                tev::ComposeRecord(published[i].m_record)};
        }
        tev::platform::SetCrashTraces(traces);
    });
    CrashRegistry::Get().m_random = random;
    CrashRegistry::Get().m_published = published;
    tev::ExpectCrashes(tev::platform::ProcessId(), (m_flags & kModeMask) == xCrashReport);
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
        // Owned by the registry; CrashUninstall deletes it.
        CrashHandlerAccess::FinishLeft(*new CCrashHandler(callback, text1, text2, flags));
    });
}

void XOfferLeftReports()
{
    const CrashRegistryHold hold;
    if (CCrashHandler* const handler = CrashRegistry::Get().Find())
        CrashHandlerAccess::FinishLeft(*handler);
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

void XSetCrashErrorOutput(bool isOn)
{
    const CrashRegistryHold hold;
    tev::platform::LetWriteErrors(isOn);
}

CXTString<wchar_t> XGetSupportAddress()
{
    CXTString<wchar_t> text;
    {
        SupportAddress& address = TheSupportAddress();
        const tev::LockGuard guard(address.m_lock);
        text = address.m_chosen;
    }
    if (text.IsEmpty())
        text.LoadString(tev::kTextSupportAddress);
    return text;
}

void XSetCrashDialog(bool isOn)
{
    const CrashRegistryHold hold;
    g_isDialogWanted.store(isOn);
    if (CCrashHandler* const handler = CrashRegistry::Get().Find())
        CrashHandlerAccess::PublishTraces(*handler);
}

bool tev::IsCrashDialogWanted() noexcept
{
    return g_isDialogWanted.load();
}

void XSetSupportAddress(const CXTString<wchar_t>& address)
{
    const CrashRegistryHold hold;
    {
        SupportAddress& standing = TheSupportAddress();
        const tev::LockGuard guard(standing.m_lock);
        standing.m_chosen = address;
    }
    if (CCrashHandler* const handler = CrashRegistry::Get().Find())
        CrashHandlerAccess::PublishTraces(*handler);
}
