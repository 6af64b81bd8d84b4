// The report pipeline: from the data of a hook to the archive.

#include "crash/Attempt.h"
#include "crash/CCrashHandler.h"
#include "crash/CrashFault.h"
#include "crash/CrashPackage.h"
#include "crash/CrashPaths.h"
#include "crash/CrashRegistry.h"
#include "objects/FailureNote.h"
#include "objects/ThreadException.h"
#include "platform/CrashDumps.h"
#include "platform/FatalSignals.h"
#include "platform/FileSizeSignal.h"
#include "platform/PathNames.h"
#include "services/ApplicationName.h"
#include "services/OpenLog.h"

#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

namespace
{
using tev::CrashRecord;
using tev::CrashRegistry;
using tev::CrashRegistryHold;

CPathString LogPath()
{
    const char* const path = tev::OpenLogPath();
    return path == nullptr ? CPathString() : CPathString(tev::platform::SystemPathToWide(path).c_str());
}

bool WriteDump(const CPathString& path, const _EXCEPTION_POINTERS* pointers)
{
    std::string name;
    tev::platform::Fault fault;
    if (pointers != nullptr)
        fault = {pointers->m_context, pointers->m_signalInfo};
    return tev::platform::WidePathToSystem(path, name) && !name.empty() &&
           tev::platform::WriteDumpNow(name.c_str(), fault);
}

/// Writes the dump of a report on demand: to its final path, or else into a folder of this process, which gets the details
/// also where no dump can be written.
void WriteDumpOf(CrashRecord& record, const _EXCEPTION_POINTERS* pointers, std::unique_ptr<tev::PrivateFolder>& folder)
{
    if (WriteDump(record.m_dump, pointers))
        return;
    record.m_dump.Empty();
    const CPathString report = tev::TemporaryReport(record);
    for (const CPathString& place : {report.GetFolder(), record.m_archiveFolder})
    {
        if (place.IsEmpty() || !tev::Attempt([&] {
                folder = std::make_unique<tev::PrivateFolder>(tev::SystemFilePath(place / report.GetFileName()));
            }))
            continue;
        record.m_dump = tev::WideFilePath(folder->Path()) / (record.m_product + L".dmp");
        if (WriteDump(record.m_dump, pointers))
            return;
    }
}

/// What the hooks of a process that goes on know.
void AddDetails(const _CR_EXCEPTION_INFO& info, CrashRecord& record)
{
    const auto add = [&record](const char* key, const std::string& value) {
        if (!value.empty())
            record.m_details.emplace_back(key, value);
    };
    const auto addText = [&add](const char* key, const wchar_t* text) {
        add(key, text == nullptr ? std::string() : tev::Utf8(text));
    };
    namespace detail = tev::crashdetail;
    add(detail::kType, std::to_string(info.exctype));
    add(detail::kTime, std::to_string(std::time(nullptr)));
    add(detail::kUptime, std::to_string(tev::platform::ProcessUptime()));
    addText(detail::kExpression, info.expression);
    addText(detail::kFunction, info.function);
    addText(detail::kSource, info.file);
    add(detail::kLine, info.line == 0 ? std::string() : std::to_string(info.line));
}
} // namespace

int CCrashHandler::ExceptionOccurs(_CR_EXCEPTION_INFO* info, unsigned int flags)
{
    const tev::ReportInProgress inProgress;
    const CrashRegistryHold hold;
    _CR_EXCEPTION_INFO unknown;
    bool isMade = false;
    if (flags != 0)
        tev::Attempt([&] { SetFlags(flags); });
    tev::Attempt([&] { isMade = MakeReport(info == nullptr ? unknown : *info, false); });
    return isMade ? 1 : 0;
}

CrashRecord CCrashHandler::RecordOfReport(const _CR_EXCEPTION_INFO& info, const CrashRecord* written, bool hasPointers,
                                          std::unique_ptr<tev::PrivateFolder>& folder)
{
    CrashRecord record = RecordOfNow();
    record.m_log = LogPath();
    if (tev::IsCrashing())
        tev::AddCrashNotes(record);
    else
        AddDetails(info, record);
    if (written != nullptr)
    {
        record.m_writtenDump = written->m_writtenDump;
        if (record.m_dump.IsEmpty() || written->m_dump == written->m_writtenDump)
            record.m_dump = written->m_dump; // where the folder of the application cannot be written to
    }
    else if (!tev::IsCrashing() && record.m_isCrash)
    {
        // Pointers that were made up are no place of a fault: the dump then takes the current registers itself.
        const _EXCEPTION_POINTERS* const pointers = hasPointers ? info.pexcptrs : nullptr;
        WriteDumpOf(record, pointers, folder);
    }
    tev::AddOwnFiles(record);
    return record;
}

bool CCrashHandler::IsWanted()
{
    bool isWanted = true;
    if ((m_flags & xCrashNoCallback) == 0 && m_callback != nullptr && !tev::IsCallbackBroken())
    {
        const tev::CallbackRuns running;
        tev::Attempt([&] { isWanted = m_callback(this) != 0; });
    }
    return isWanted;
}

bool CCrashHandler::MakeReport(_CR_EXCEPTION_INFO& info, bool isCrash)
{
    const CrashRegistryHold hold;
    const tev::platform::WithoutFileSizeSignal withoutSignal;
    tev::SetReportPath({}); // of an earlier report
    const int place = isCrash ? tev::CrashPlaceUsed() : -1;
    CrashRegistry::Published written; // copied, because the callback may change what is published
    if (place >= 0)
        written = CrashRegistry::Get().m_published[static_cast<std::size_t>(place)];
    if (place >= 0)
        tev::Attempt([&written] { tev::AddMessageTo(written.m_path); });
    _EXCEPTION_POINTERS* const given = info.pexcptrs;
    m_flags &= ~xCrashWithoutPointers;
    if (given == nullptr && GetExceptionPointers(info.code, &info.pexcptrs))
        m_flags |= xCrashWithoutPointers;
    const bool isWanted = IsWanted();
    CPathString archive;
    CrashRecord record;
    std::unique_ptr<tev::PrivateFolder> folder; // until the user has answered
    if (isWanted)
    {
        tev::FailuresOfParts parts;
        tev::Attempt(
            [&] { record = RecordOfReport(info, place < 0 ? nullptr : &written.m_record, given != nullptr, folder); });
        archive = tev::PackReport(record);
        if (archive.IsEmpty())
            parts.Fail("CCrashHandler::ExceptionOccurs", XFailureKind::kSystem, record.m_archiveFolder);
    }
    info.pexcptrs = given;
    const bool isSettled = place >= 0 && (!isWanted || !archive.IsEmpty());
    if (isSettled && (!isWanted || record.m_dump != written.m_record.m_writtenDump))
        tev::RemoveReportFile(written.m_record.m_writtenDump);
    // A process that is ended while the user is asked leaves the record, so that the next start asks again.
    if (isSettled && (!isWanted || !tev::AddArchiveTo(written.m_path, archive)))
        tev::RemoveReportFile(written.m_path);
    if (!isWanted)
        return false;
    XDeleteThreadException();

    CrashHandlerAccess::OfferReport(*this, record, archive);
    if (isSettled)
        tev::RemoveReportFile(written.m_path);
    if (!isCrash || !archive.IsEmpty())
        tev::RemoveUnplacedDump(record);
    if (!isCrash)
        tev::WriteReportPath();
    return !archive.IsEmpty();
}

bool CCrashHandler::GetExceptionPointers(unsigned long code, _EXCEPTION_POINTERS** pointers)
{
    if (pointers == nullptr)
        return tev::NoteBadArgument("CCrashHandler::GetExceptionPointers");
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
    const tev::ReportInProgress inProgress;
    const CrashRegistryHold hold;
    CCrashHandler* const handler = CrashRegistry::Get().Find();
    if (handler == nullptr)
        return;
    tev::Attempt([&] {
        handler->AddFiles(files);
        _CR_EXCEPTION_INFO info;
        info.pexcptrs = pointers;
        handler->ExceptionOccurs(&info, xFilesReport | (noCallback ? xCrashNoCallback : 0));
    });
}
