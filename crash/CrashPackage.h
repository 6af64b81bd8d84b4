#pragma once

#include "crash/CrashRecord.h"
#include "files/CXFile.h"

// How a report's files become its archive.
namespace tev
{
/// Whether another program shows the reports of crashes (XSetCrashDialog). Safe from several threads at once.
bool IsCrashDialogWanted() noexcept;
/// Starts that program where the record says so and there is a display; it deletes the archive when it was mailed.
void ShowByCrashDialog(const CrashRecord& record, const CPathString& archive) noexcept;

/// Packs the files of a report into a new archive in its folder, or in the folder for temporary files where that one cannot
/// be written to. Returns its path; empty on failure. Files that cannot be read or are too large are left out; equal names
/// get numbers. Takes no lock that another process can hold. Nothing is thrown.
CPathString PackReport(const CrashRecord& record) noexcept;

/// Finishes the reports that ended processes of this application have left in the folder, and appends them. Their dumps are
/// left to the caller (RemoveUnplacedDump).
struct LeftReport
{
    CrashRecord m_record;
    CPathString m_archive; ///< empty where there is none
};
void FinishLeftReports(const CPathString& folder, const CXTString<wchar_t>& product,
                       std::vector<LeftReport>& reports) noexcept;

/// How files of a report are opened: another process may be writing them.
constexpr unsigned kReadAnyone = CXFile::modeRead | CXFile::shareDenyNone | CXFile::modeNoInherit;

/// The folder for temporary files.
CPathString TemporaryFolder();
/// A path for the archive of a report there, which other processes cannot predict.
CPathString TemporaryReport(const CrashRecord& record);
/// A text that other processes cannot predict, for names of files.
CXTString<wchar_t> RandomName();

/// A record is named PRODUCT.PROCESS and this.
constexpr const wchar_t* kRecordExtension = L".crash";
/// The number of PROCESS; 0 when the path has no such name.
unsigned ProcessOfRecord(const CPathString& recordPath);
} // namespace tev
