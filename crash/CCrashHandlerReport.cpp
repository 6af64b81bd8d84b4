// The report pipeline: from the data of a hook to the archive.

#include "crash/CCrashHandler.h"
#include "crash/CrashFault.h"
#include "crash/CrashPackage.h"
#include "crash/CrashRegistry.h"
#include "objects/ThreadException.h"
#include "platform/CrashDumps.h"
#include "platform/FatalSignals.h"
#include "platform/PathNames.h"
#include "services/ApplicationName.h"
#include "services/OpenLog.h"
#include "services/Paths.h"

#include <cstdio>
#include <string>

namespace
{
using tev::CrashRecord;
using tev::CrashRegistry;
using tev::CrashRegistryHold;

void Remove(const CPathString& path) noexcept
{
    std::string name;
    if (tev::platform::WidePathToSystem(path, name) && !name.empty())
        std::remove(name.c_str());
}

CPathString LogPath()
{
    const char* const path = tev::OpenLogPath();
    return path == nullptr ? CPathString() : CPathString(tev::platform::SystemPathToWide(path).c_str());
}

/// Dumps the running process to the documented path.
CPathString WriteDump(const _EXCEPTION_POINTERS* pointers)
{
    const CPathString path = GetUserApplicationDataPath() / (XGetApplicationName() + L".dmp");
    std::string name;
    tev::platform::Fault fault;
    if (pointers != nullptr)
        fault = {pointers->m_context, pointers->m_signalInfo};
    const bool isWritten =
        tev::platform::WidePathToSystem(path, name) && tev::platform::WriteDumpNow(name.c_str(), fault);
    return isWritten ? path : CPathString();
}
} // namespace

int CCrashHandler::ExceptionOccurs(_CR_EXCEPTION_INFO* info, unsigned int flags)
{
    const CrashRegistryHold hold;
    _CR_EXCEPTION_INFO unknown;
    bool isMade = false;
    if (flags != 0)
        tev::Attempt([&] { SetFlags(flags); });
    tev::Attempt([&] { isMade = MakeReport(info == nullptr ? unknown : *info, false); });
    return isMade ? 1 : 0;
}

bool CCrashHandler::MakeReport(_CR_EXCEPTION_INFO& info, bool isCrash)
{
    const tev::ReportInProgress inProgress;
    const CrashRegistryHold hold;
    const CrashRecord expected = CrashRegistry::Get().m_record;
    const CPathString recordPath = CrashRegistry::Get().m_recordPath;
    _EXCEPTION_POINTERS* const given = info.pexcptrs;
    m_flags &= ~xCrashWithoutPointers;
    if (given == nullptr && GetExceptionPointers(info.code, &info.pexcptrs))
        m_flags |= xCrashWithoutPointers;

    bool isWanted = true;
    if ((m_flags & xCrashNoCallback) == 0 && m_callback != nullptr && !tev::IsCallbackBroken())
    {
        const tev::CallbackRuns running;
        tev::Attempt([&] { isWanted = m_callback(this) != 0; });
    }
    CPathString archive;
    CrashRecord record;
    if (isWanted)
    {
        tev::Attempt([&] {
            record.m_isCrash = GetMode() == xCrashReport;
            record.m_files = m_files;
            record.m_log = LogPath();
            if (isCrash)
            {
                record.m_archiveFolder = expected.m_archiveFolder;
                record.m_writtenDump = expected.m_writtenDump;
                record.m_dump = expected.m_dump;
            }
            else
            {
                // Pointers that were made up are no place of a fault: the dump then takes the current registers itself.
                record.m_dump = record.m_isCrash ? WriteDump(given) : CPathString();
            }
            tev::AddOwnFiles(record);
        });
        if (record.m_archiveFolder.IsEmpty())
            tev::Attempt([&] { record.m_archiveFolder = GetCommonApplicationDataPath(); });
        archive = tev::PackReport(record.m_archiveFolder, record.m_isCrash, record.m_files);
    }
    info.pexcptrs = given;
    if (isCrash && (!isWanted || !archive.IsEmpty()))
    {
        Remove(expected.m_writtenDump);
        Remove(recordPath);
    }
    XDeleteThreadException();
    if (!isWanted)
        return false;

    bool isMailed = false;
    tev::Attempt([&] {
        isMailed = record.m_isCrash ? GenerateErrorReport(archive, record.m_files)
                                    : GenerateFilesErrorReport(archive, &record.m_files);
    });
    if (isMailed)
        Remove(archive);
    return !archive.IsEmpty();
}

bool CCrashHandler::GetExceptionPointers(unsigned long code, _EXCEPTION_POINTERS** pointers)
{
    if (pointers == nullptr)
        return false;
    const CrashRegistryHold hold;
    const std::size_t size = tev::platform::SignalRecordsSize();
    m_pointers = std::make_unique<unsigned char[]>(sizeof(_EXCEPTION_POINTERS) + size);
    auto* const made = new (m_pointers.get()) _EXCEPTION_POINTERS();
    tev::platform::MakeSignalRecords(m_pointers.get() + sizeof *made, static_cast<unsigned>(code), made->m_signalInfo,
                                     made->m_context);
    *pointers = made;
    return true;
}

void CrashGenerateErrorReport(_EXCEPTION_POINTERS* pointers, bool noCallback)
{
    const CrashRegistryHold hold;
    CCrashHandler* const handler = CrashRegistry::Get().Find();
    if (handler == nullptr)
        return;
    _CR_EXCEPTION_INFO info;
    info.pexcptrs = pointers;
    handler->ExceptionOccurs(&info, xCrashReport | (noCallback ? xCrashNoCallback : 0));
}

void CrashGenerateFilesErrorReport(const CXArray<CXTString<wchar_t>>& files, _EXCEPTION_POINTERS* pointers,
                                   bool noCallback)
{
    const CrashRegistryHold hold;
    CCrashHandler* const handler = CrashRegistry::Get().Find();
    if (handler == nullptr)
        return;
    tev::Attempt([&] {
        const std::size_t before = CrashHandlerAccess::FileCount(*handler);
        handler->AddFiles(files);
        const std::size_t added = CrashHandlerAccess::FileCount(*handler) - before;
        _CR_EXCEPTION_INFO info;
        info.pexcptrs = pointers;
        handler->ExceptionOccurs(&info, xFilesReport | (noCallback ? xCrashNoCallback : 0));
        CrashHandlerAccess::RemoveFiles(*handler, before, added);
    });
}
