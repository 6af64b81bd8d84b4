#pragma once

#include "objects/ThreadException.h"
#include "ui/XReportFile.h"

#include <string>
#include <string_view>
#include <vector>

// How a report's files become its archive, and the record by which another process can do that when this one cannot.
namespace tev
{
/// Does the work and swallows what it throws: a report goes on with what can be had. False when something was thrown.
template <class Work>
bool Attempt(const Work& work) noexcept
{
    try
    {
        work();
        return true;
    }
    catch (...)
    {
        XDeleteThreadException();
        return false;
    }
}

/// What is known of a report before anything happens.
struct CrashRecord
{
    bool m_isCrash = true; ///< else a files report
    CPathString m_archiveFolder;
    CPathString m_writtenDump; ///< where the dump is written
    CPathString m_dump;        ///< and where it goes in the end
    CPathString m_log;         ///< may be empty
    std::vector<XReportFile> m_files;
};

/// All but the log, which the process knows only when it happens: it is appended as one more entry. Paths become absolute.
std::string ComposeRecord(const CrashRecord& record);
/// False for bytes that are no record.
[[nodiscard]] bool ParseRecord(std::string_view bytes, CrashRecord& record);

/// Puts the dump in its place and adds it, with the log, to the files; what is not there is left out.
void AddOwnFiles(CrashRecord& record);

/// Packs the files into a new archive in the folder, and answers its path; empty when it could not be made. Files that
/// cannot be read or are too large are left out; names that are the same are told apart. Nothing is thrown.
CPathString PackReport(const CPathString& folder, bool isCrash, const std::vector<XReportFile>& files) noexcept;

/// Makes the report of a record and removes the record. True also when there is no record any more.
bool FinishReport(const CPathString& recordPath) noexcept;
/// Makes the reports that processes of this application have left in the folder.
void FinishLeftReports(const CPathString& folder, const CXTString<wchar_t>& product) noexcept;

/// Between the product's name and this stands the process's identifier.
constexpr const wchar_t* kRecordExtension = L".crash";

// Message texts.
constexpr unsigned kTextSubject = 0xE100;
constexpr unsigned kTextDump = 0xE101;
constexpr unsigned kTextLog = 0xE102;
constexpr unsigned kTextZipFilter = 0xE103;
constexpr unsigned kTextSaveName = 0xE104;
constexpr unsigned kTextByHandTitle = 0xE105;
constexpr unsigned kTextByHand = 0xE106;
constexpr unsigned kTextCrash = 0xE107;
constexpr unsigned kTextFiles = 0xE108;
constexpr unsigned kTextSupportAddress = 0xE109;
} // namespace tev
