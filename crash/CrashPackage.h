#pragma once

#include "objects/ThreadException.h"
#include "ui/XReportFile.h"

#include <string>
#include <string_view>
#include <vector>

// Packs the files of a report into its archive, and describes a report for another process that finishes it.
namespace tev
{
/// Does the work and swallows what it throws: a report is made of whatever can be gathered. False when something was thrown.
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

/// The parts of a report, known before a crash.
struct CrashRecord
{
    bool m_isCrash = true; ///< else a files report
    CPathString m_archiveFolder;
    CPathString m_writtenDump; ///< the path at which the dump is written
    CPathString m_dump;        ///< its final path
    CPathString m_log;         ///< may be empty
    std::vector<XReportFile> m_files;
};

/// All but the log, which is known only at the crash: it is appended as one more entry. Paths become absolute.
std::string ComposeRecord(const CrashRecord& record);
/// False for bytes that are not a record.
[[nodiscard]] bool ParseRecord(std::string_view bytes, CrashRecord& record);

/// Moves the dump to its final path and adds it, with the log, to the files; what does not exist is left out.
void AddOwnFiles(CrashRecord& record);

/// Packs the files into a new archive in the folder. Returns its path; empty on failure. Files that cannot be read or are
/// too large are left out; equal names get numbers. Nothing is thrown.
CPathString PackReport(const CPathString& folder, bool isCrash, const std::vector<XReportFile>& files) noexcept;

/// Makes the report of a record and removes the record. True also when the record has been removed already.
bool FinishReport(const CPathString& recordPath) noexcept;
/// Finishes the reports that ended processes of this application have left in the folder.
void FinishLeftReports(const CPathString& folder, const CXTString<wchar_t>& product) noexcept;

/// A record is named PRODUCT.PROCESS and this.
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
