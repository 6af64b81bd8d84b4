#pragma once

#include "arrays/CXArray.h"
#include "text/CXTString.h"
#include "zip/CXExtraction.h"

#include <memory>
#include <vector>

namespace tev
{
class ExtractedFiles;
}

/// Unpacks a compressed file so that its contents can be read, and removes them again: a whole ZIP archive, a gzip or a
/// Zstandard file. For a look into an archive, single entries, or changes, take CZip. One thread at a time.
///
/// Each extraction first cleans up after the one before. Failures answer false; nothing is thrown, whatever is in the file.
/// Nothing is ever written outside the destination: entries whose names lead elsewhere, symbolic links, entries that cannot
/// stand beside an earlier one on a system that does not tell case apart, and damaged entries are skipped, and the others
/// extracted (GetSkippedEntries). Memory does not depend on the size of the files, only on the number of entries.
class TEVTOOLS_API CMiniZip
{
public:
    using StringArray = CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&>;

    CMiniZip();
    CMiniZip(const CMiniZip&) = delete;
    CMiniZip& operator=(const CMiniZip&) = delete;
    /// Cleans up.
    virtual ~CMiniZip();

    /// Extracts every entry below the folder, which is created where it is missing, with the times of the entries. Files
    /// that stand there are replaced. Without a folder: into a new temporary one whose name begins with "MiniZip"; with
    /// `keepFiles` into the current one. Works on several threads (OMPSetMaxThreadCount) and reads split archives.
    /// True when at least one file was extracted, and neither the disk failed nor the work was cancelled.
    bool ExtractZip(const CXTString<wchar_t>& zipPath, const CXTString<wchar_t>& destFolder, bool keepFiles);
    /// Unpacks a gzip file of any number of members to a file. What is damaged or cut off answers true as well: the file
    /// then holds what could be unpacked. What stands behind the last member is left out.
    bool ExtractGZip(const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile, bool keepFiles);
    /// Unpacks a file of Zstandard frames to a file. What is damaged or cut off, or asks for a window above 128 MiB,
    /// answers false, and the destination is as it was before.
    bool ExtractZStd(const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile, bool keepFiles);
    /// Unpacks a file of either kind; false for any other.
    bool ExtractZFile(const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile, bool keepFiles);

    // By the first bytes of the file; its name does not count. A file that cannot be read is of no kind.

    static bool IsGZipFile(const CXTString<wchar_t>& path);
    /// Also when the magic number stands in the other byte order.
    static bool IsZStdFile(const CXTString<wchar_t>& path);
    static bool IsZFile(const CXTString<wchar_t>& path);

    /// The full paths of the files that the last extraction wrote, in the order of the archive.
    const StringArray& GetExtractedFiles() const noexcept { return m_extractedFiles; }
    /// The entries that the last extraction of an archive left out, in its order.
    const std::vector<CXSkippedEntry>& GetSkippedEntries() const noexcept { return m_skippedEntries; }
    /// Why the last extraction answered false; kCancelled when OnProgress ended it, or a request to the thread to end
    /// its work (SetCancelThread).
    CXExtractionFailure GetFailure() const noexcept { return m_failure; }

    /// Deletes what the last extraction wrote: the temporary folder with all that is in it, or else the files in the list.
    /// Only the very files that were written go, no folders, and nothing behind a link that was put in the way since.
    /// Does nothing, and keeps the list, when the files are to be kept. Always true.
    bool Clean();
    /// Keeps what the last extraction wrote after all, its temporary folder, too.
    void KeepFiles() noexcept;

    /// For encrypted entries of the archives that follow; empty for none.
    void SetPassword(const CXTString<wchar_t>& password) { m_password = password; }
    /// For the extractions that follow. An entry, or a file, that would exceed them is not written.
    void SetLimits(const CXExtractionLimits& limits) { m_limits = limits; }
    const CXExtractionLimits& GetLimits() const noexcept { return m_limits; }

protected:
    /// Called again and again on the thread that extracts. For an archive the numbers are the bytes of the unpacked files,
    /// else those of the compressed file; a total of 0 stands for one that is not known yet. False ends the extraction,
    /// which then answers false; what was complete by then is in the list. What it throws counts as false.
    virtual bool OnProgress(unsigned __int64 processed, unsigned __int64 total);

private:
    enum class Stream
    {
        kGZip,
        kZStd
    };

    static int OnExtractFile(char const* utf8Path, void* self);
    void StartAnew();
    /// False, always.
    bool Fail(CXExtractionFailure failure) noexcept;
    bool ExtractEntries(const CXTString<wchar_t>& zipPath);
    bool ExtractStream(Stream stream, const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile);
    bool ReportProgress(unsigned __int64 processed, unsigned __int64 total);
    void RemoveTemporaryFolder();

    bool m_keepFiles = false;
    bool m_temporaryFolderCreated = false;
    CXTString<wchar_t> m_destFolder;
    StringArray m_extractedFiles;

    std::unique_ptr<tev::ExtractedFiles> m_files; ///< which files the list's paths meant
    std::vector<CXSkippedEntry> m_skippedEntries;
    CXTString<wchar_t> m_password;
    CXExtractionLimits m_limits;
    CXExtractionFailure m_failure = CXExtractionFailure::kNone;
};
