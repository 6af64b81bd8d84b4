#pragma once

#include "arrays/CXArray.h"
#include "objects/ThreadUse.h"
#include "text/CXTString.h"
#include "zip/CXExtraction.h"

#include <memory>
#include <vector>

namespace tev
{
class ExtractedFiles;
class Password;
namespace platform
{
class ContainedFolder;
struct UnpackEnding;
} // namespace platform
} // namespace tev

/// Unpacks a compressed file so that its contents can be read, and removes them again: a whole ZIP archive, a gzip or a
/// Zstandard file. To list an archive, extract single entries or change it, use CZip. One thread at a time.
///
/// Each extraction first cleans up after the one before. Failures return false, and XLastFailure() says why; nothing is
/// thrown, whatever the input.
/// Nothing is ever written outside the destination: entries whose names lead elsewhere, symbolic links, entries with the
/// name of an earlier one, and damaged entries are skipped, and the others extracted (GetSkippedEntries). A file gets its
/// name when it is complete. Memory does not depend on the size of the files, only on the number of entries.
class TEVTOOLS_API CMiniZip
{
public:
    using StringArray = CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&>;

    CMiniZip();
    CMiniZip(const CMiniZip&) = delete;
    CMiniZip& operator=(const CMiniZip&) = delete;
    /// Cleans up.
    virtual ~CMiniZip();

    /// Extracts every entry below the folder, which is created where it is missing, with the times and the
    /// permissions of the entries. Existing
    /// files are replaced. Without a folder: into a new temporary one whose name begins with "MiniZip"; with
    /// `keepFiles` into the current one. Works on several threads (OMPSetMaxThreadCount) and reads split archives.
    /// True when at least one file was extracted, and neither the disk failed nor the work was cancelled.
    [[nodiscard]] bool ExtractZip(const CXTString<wchar_t>& zipPath, const CXTString<wchar_t>& destFolder,
                                  bool keepFiles);
    /// Unpacks a gzip file of any number of members to a file. A damaged or truncated file returns true as well:
    /// the destination then holds what could be unpacked, GetFailure() is kDamaged, and GetDamage() says what is wrong. Of
    /// one from which nothing can be unpacked the destination is left unchanged, and the list is empty. Trailing bytes
    /// behind the last member are ignored.
    [[nodiscard]] bool ExtractGZip(const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile,
                                   bool keepFiles);
    /// Unpacks a file of Zstandard frames to a file. One that is damaged, truncated or needs a window above 128 MiB
    /// returns false and leaves the destination unchanged.
    [[nodiscard]] bool ExtractZStd(const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile,
                                   bool keepFiles);
    /// Unpacks a file of either kind; false for any other.
    [[nodiscard]] bool ExtractZFile(const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile,
                                    bool keepFiles);
    /// Unpacks a file of any of these kinds into a new temporary folder: what a gzip or Zstandard file holds becomes one file
    /// there, with the name of the source less its extension. A gzip file from which nothing can be unpacked is a failure.
    [[nodiscard]] bool ExtractAny(const CXTString<wchar_t>& source);

    // By the first bytes of the file; its name does not count. A file that cannot be read is of no kind.

    [[nodiscard]] static bool IsGZipFile(const CXTString<wchar_t>& path);
    /// Also when the magic number is in the other byte order.
    [[nodiscard]] static bool IsZStdFile(const CXTString<wchar_t>& path);
    [[nodiscard]] static bool IsZFile(const CXTString<wchar_t>& path);
    /// A gzip or Zstandard file, or a ZIP archive that begins as such: one behind a program is not seen, but extracted.
    [[nodiscard]] static bool IsPackedFile(const CXTString<wchar_t>& path);

    /// The full paths of the files that the last extraction wrote, in the order of the archive.
    const StringArray& GetExtractedFiles() const noexcept { return Shared(m_extractedFiles); }
    /// The entries that the last extraction of an archive left out, in its order.
    const std::vector<CXSkippedEntry>& GetSkippedEntries() const noexcept { return Shared(m_skippedEntries); }
    /// Why the last extraction returned false; kCancelled when OnProgress ended it, or a request to the thread to end
    /// its work (SetCancelThread).
    CXExtractionFailure GetFailure() const noexcept { return Shared(m_failure); }
    /// What is wrong with the gzip or Zstandard file whose extraction was kDamaged; kNone after any other one.
    CXStreamDamage GetDamage() const noexcept { return Shared(m_damage); }

    /// Deletes what the last extraction wrote: the temporary folder with all that is in it, or else the files in the list.
    /// Only the files that were written are deleted: no folders, no file that replaced one since, nothing behind a link.
    /// Does nothing, and keeps the list, when the files are to be kept. Always true.
    bool Clean();
    /// Keeps the files of the last extraction after all, also those in a temporary folder.
    void KeepFiles() noexcept;

    /// For encrypted entries of the archives that follow; empty for none.
    void SetPassword(const CXTString<wchar_t>& password);
    /// For the extractions that follow. An entry, or a file, that would exceed them is not written. See docs/archives.md for
    /// numbers that suit untrusted input.
    void SetLimits(const CXExtractionLimits& limits)
    {
        const tev::ExclusiveUse use(m_use);
        m_limits = limits;
    }
    const CXExtractionLimits& GetLimits() const noexcept { return Shared(m_limits); }

protected:
    /// Called repeatedly on the thread that extracts. For an archive the numbers count bytes of the unpacked files, else
    /// bytes of the compressed file; a total of 0 means not known yet. False ends the extraction,
    /// which then returns false; files complete by then are in the list. An exception counts as false.
    virtual bool OnProgress(unsigned __int64 processed, unsigned __int64 total);

private:
    enum class Stream
    {
        kNone,
        kGZip,
        kZStd,
        kZip
    };

    /// What the first bytes say; where it is kNone, `failure` says why.
    static Stream StreamOf(const CXTString<wchar_t>& path, unsigned int& systemError);
    static Stream StreamOf(const CXTString<wchar_t>& path);
    void UseTemporaryFolder();
    static int OnExtractFile(char const* utf8Path, void* self);
    template <class MEMBER>
    const MEMBER& Shared(const MEMBER& member) const noexcept
    {
        const tev::SharedUse use(m_use);
        return member;
    }
    void StartOver();
    /// False, always.
    bool Fail(CXExtractionFailure failure) noexcept;
    bool Fail(CXExtractionFailure failure, unsigned int systemError) noexcept;
    bool FailToRead(unsigned int systemError) noexcept;
    bool FailToWrite(unsigned int systemError) noexcept;
    template <class EXTRACT>
    bool Told(const char* operation, const CXTString<wchar_t>& source, const CXTString<wchar_t>& destination,
              EXTRACT&& extract);
    bool ExtractEntries(const CXTString<wchar_t>& zipPath);
    bool StartIn(std::unique_ptr<tev::platform::ContainedFolder> folder);
    bool ExtractFile(Stream wanted, const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile,
                     bool keepFiles);
    bool ExtractStream(Stream stream, const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile);
    bool EndStream(tev::platform::UnpackEnding ending, bool isGZip, unsigned __int64 written);
    bool ReportProgress(unsigned __int64 processed, unsigned __int64 total);

    bool m_keepFiles = false;
    bool m_temporaryFolderCreated = false;
    CXTString<wchar_t> m_destFolder;
    StringArray m_extractedFiles;

    std::unique_ptr<tev::ExtractedFiles> m_files; ///< the identities of the files in the list
    std::vector<CXSkippedEntry> m_skippedEntries;
    std::unique_ptr<tev::Password> m_password;
    CXExtractionLimits m_limits;
    CXExtractionFailure m_failure = CXExtractionFailure::kNone;
    CXStreamDamage m_damage = CXStreamDamage::kNone;
    unsigned int m_systemError = 0;
    tev::ThreadUse m_use;
};
