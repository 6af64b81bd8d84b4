// The part of CCrashHandler that the user sees: questions, mail, saving.

#include "crash/Attempt.h"
#include "crash/CCrashHandler.h"
#include "crash/CrashFault.h"
#include "crash/CrashPackage.h"
#include "crash/CrashPaths.h"
#include "crash/CrashRegistry.h"
#include "files/CXFile.h"
#include "files/FileReplacement.h"
#include "objects/CXException.h"
#include "objects/FailureNote.h"
#include "platform/CrashDialog.h"
#include "platform/MailProgram.h"
#include "platform/PathNames.h"
#include "platform/SystemErrors.h"
#include "services/ApplicationName.h"
#include "services/DataFolders.h"
#include "services/Paths.h"
#include "ui/CUserInterface.h"

#include <atomic>
#include <optional>
#include <string>
#include <typeinfo>
#include <vector>

namespace
{
using Text = CXTString<wchar_t>;

constexpr const wchar_t* kPrefaceWithoutPointers =
    L"No exceptions pointers. Report might be generated at startup.\r\n\r\n";

bool HasHost(CUserInterface& userInterface)
{
    return typeid(userInterface) != typeid(CUserInterface);
}

/// Whether the user is being asked about a report of an earlier process.
std::atomic<bool> g_isAskingAtStart{false};

void CopyFile(const Text& from, const Text& to)
{
    constexpr unsigned kBlockSize = 1u << 16;
    CXFile source(from, tev::kReadAnyone);
    tev::FileReplacement replacement(to, tev::TemporaryName::Own, tev::FolderLock::None);
    CXFile& file = replacement.Begin();
    std::vector<char> block(kBlockSize);
    while (const unsigned count = source.Read(block.data(), kBlockSize))
        file.Write(block.data(), count);
    replacement.Commit();
}

/// Says nothing where the user chose so: no place, or the one where the report is.
void NotifyNotSaved(const wchar_t* archivePath)
{
    const XFailure failure = XLastFailure();
    if (failure.GetKind() == XFailureKind::kCancelled || failure.GetKind() == XFailureKind::kArgument)
        return;
    Text title;
    title.LoadString(tev::kTextNotSavedTitle);
    Text text;
    text.Format(tev::kTextNotSaved, failure.GetText().GetConstBuffer(), archivePath);
    XGetUserInterface().Notify(title, text, Text(L"explore:") + archivePath);
}

/// What the program needs to do as the handler of the crashed process would.
std::vector<std::string> DialogArguments(const tev::CrashRecord& record, const CPathString& archive)
{
    std::size_t room = std::size_t{1} << 16; // the system bounds the arguments of a program
    std::vector<std::string> arguments = {tev::SystemFilePath(archive).string()};
    const auto add = [&](const char* option, const std::string& value) {
        if (value.size() >= room)
            return;
        room -= value.size();
        arguments.insert(arguments.end(), {option, value});
    };
    add("--application", tev::Utf8(record.m_name));
    add("--version", tev::Utf8(record.m_version));
    add("--support", tev::Utf8(record.m_support));
    add("--language", tev::Utf8(record.m_dialogLanguage));
    add("--product", tev::Utf8(record.m_product));
    add("--flags", std::to_string((record.m_isCrash ? xCrashReport : xFilesReport) | tev::PointerFlagOf(record)));
    add("--log", tev::SystemFilePath(record.m_log.GetFileName()).string());
    for (const XReportFile& file : record.m_files)
    {
        if (file.m_description.IsEmpty())
            add("--file", tev::SystemFilePath(file.m_path).string());
    }
    return arguments;
}
} // namespace

void tev::ShowByCrashDialog(const CrashRecord& record, const CPathString& archive) noexcept
{
    if (!record.m_dialogLanguage.IsEmpty())
        Attempt([&] { static_cast<void>(platform::StartCrashDialog(DialogArguments(record, archive))); });
}

bool CCrashHandler::GenerateErrorReport(const wchar_t* archivePath, const std::vector<XReportFile>& files)
{
    Text introduction;
    introduction.Format(tev::kTextCrash, ApplicationText().GetConstBuffer(), m_text2.GetConstBuffer());
    return Offer(archivePath, introduction, files);
}

bool CCrashHandler::GenerateFilesErrorReport(const wchar_t* archivePath, const std::vector<XReportFile>* files)
{
    if (files == nullptr)
        CXInvalidArgException::Throw();
    Text introduction;
    introduction.Format(tev::kTextFiles, ApplicationText().GetConstBuffer(), m_text2.GetConstBuffer());
    introduction += L"\r\n\r\nFile(s):";
    for (const XReportFile& file : *files)
    {
        if (file.m_description.IsEmpty()) // else it is one of the library's own
            introduction.AppendFormat(L"\r\n%s", file.m_path.GetConstBuffer());
    }
    return Offer(archivePath, introduction, *files);
}

void CrashHandlerAccess::OfferReport(CCrashHandler& handler, const tev::CrashRecord& record, const CPathString& archive)
{
    bool isMailed = false;
    tev::SetReportPath(archive);
    if (tev::IsCrashing())
        tev::ShowByCrashDialog(record, archive);
    tev::Attempt([&] {
        isMailed = record.m_isCrash ? handler.GenerateErrorReport(archive, record.m_files)
                                    : handler.GenerateFilesErrorReport(archive, &record.m_files);
    });
    if (!isMailed)
        return;
    tev::RemoveReportFile(archive);
    tev::SetReportPath({});
}

void CrashHandlerAccess::FinishLeft(CCrashHandler& handler)
{
    const tev::ReportInProgress inProgress; // the user is asked as about a report of this process
    tev::Attempt([&handler] {
        CPathString folder;
        tev::RemoveLeftFolders(tev::TemporaryFolder(), XGetApplicationName() + L".");
        if (tev::FindCommonDataFolder(folder))
            tev::RemoveLeftFolders(folder, L"");
        CUserInterface& userInterface = XGetUserInterface();
        if (HasHost(userInterface) && !userInterface.CanAsk())
            return; // the records stay
        std::vector<tev::LeftReport> reports;
        tev::FinishLeftReports(tev::TemporaryFolder(), XGetApplicationName(), reports);
        if (tev::FindUserDataFolder(folder))
            tev::FinishLeftReports(folder, XGetApplicationName(), reports);
        for (const tev::LeftReport& report : reports)
        {
            if (!report.m_archive.IsEmpty() && HasHost(userInterface))
            {
                const unsigned flags = handler.m_flags;
                handler.m_flags = (flags & ~xCrashWithoutPointers) | tev::PointerFlagOf(report.m_record);
                g_isAskingAtStart.store(true);
                OfferReport(handler, report.m_record, report.m_archive);
                g_isAskingAtStart.store(false);
                handler.m_flags = flags;
            }
            tev::RemoveUnplacedDump(report.m_record);
        }
    });
}

bool CCrashHandler::Offer(const wchar_t* archivePath, const Text& introduction, const std::vector<XReportFile>& files)
{
    CUserInterface& userInterface = XGetUserInterface();
    const bool hasHost = HasHost(userInterface);
    // The default user interface writes to the log, which the crashed thread may have locked. A host's one that crashes at
    // every question would do so at every start.
    if (tev::IsCrashing() && (!hasHost || g_isAskingAtStart.load() || tev::IsCrashDialogWanted()))
        return false;
    std::optional<tev::WithoutDeadline> withoutDeadline;
    if (hasHost)
        withoutDeadline.emplace();
    const XReportAnswer answer = userInterface.AskAboutReport(introduction, files);
    if (answer.m_send)
    {
        Text description = answer.m_description;
        if ((m_flags & xCrashWithoutPointers) != 0)
            description = kPrefaceWithoutPointers + description;
        if (MailReport(archivePath, answer.m_mailAddress, description))
            return true;
        NotifyToMailByHand(archivePath);
    }
    else if (answer.m_save && !SaveReport(archivePath))
        NotifyNotSaved(archivePath);
    return false;
}

void CCrashHandler::NotifyToMailByHand(const wchar_t* archivePath) const
{
    Text title;
    title.LoadString(tev::kTextByHandTitle);
    Text text;
    text.Format(tev::kTextByHand, archivePath, XGetSupportAddress().GetConstBuffer());
    XGetUserInterface().Notify(title, text, Text(L"explore:") + archivePath);
}

bool CCrashHandler::SaveReport(const wchar_t* archivePath)
{
    Text filter;
    filter.LoadString(tev::kTextZipFilter);
    Text name;
    name.Format(tev::kTextSaveName, XGetApplicationName().GetConstBuffer(), XGetSupportAddress().GetConstBuffer());
    CPathString target(name);
    constexpr const char* kOperation = "CCrashHandler::SaveReport";
    if (!XGetUserInterface().AskForSavePath(filter, target) || target.IsEmpty())
        return tev::NoteFailure({kOperation, XFailureKind::kCancelled}, archivePath);
    if (fileIsSameFile(archivePath, target))
        return tev::NoteBadArgument(kOperation, target);
    return tev::ResultOrNote(kOperation, target, false, [&] {
        CopyFile(archivePath, target);
        tev::RemoveReportFile(archivePath);
        tev::SetReportPath(target);
        return true;
    });
}

bool CCrashHandler::MailReport(const wchar_t* archivePath, const wchar_t* userAddress, const wchar_t* description)
{
    constexpr const char* kOperation = "CCrashHandler::MailReport";
    if (!fileIsFile(archivePath))
        return tev::NoteSystemError(kOperation, tev::platform::kNotFound, archivePath);
    return tev::ResultOrNote(kOperation, archivePath, false, [&] {
        Text subject;
        subject.Format(tev::kTextSubject, ApplicationText().GetConstBuffer(), m_text2.GetConstBuffer());
        // The mail program may read the attachment later, but the archive is deleted once the mail is handed over.
        const CPathString folder = fileCreateTemporaryFolder(L"Report");
        const CPathString copy = folder / CPathString(archivePath).GetFileName();
        CopyFile(archivePath, copy);
        const bool isHandedOver = tev::platform::HandToMailProgram(
            {tev::Utf8(XGetSupportAddress()), tev::Utf8(userAddress), tev::Utf8(subject), tev::Utf8(description),
             tev::platform::SystemPathOf(copy)});
        if (isHandedOver)
            return true;
        tev::RemoveReportFile(copy);
        tev::RemoveReportFile(folder);
        return tev::NoteFailure({kOperation, XFailureKind::kSystem}, archivePath);
    });
}
