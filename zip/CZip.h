#pragma once

#include "arrays/CXArray.h"
#include "objects/ThreadUse.h"
#include "text/CXTString.h"
#include "zip/CXExtraction.h"
#include "zip/CZipExtractCallback.h"
#include "zip/CZipFileInfo.h"
#include "zip/ZipTypes.h"

#include <memory>

namespace tev
{
struct ZipOutcome;
}

/// A ZIP archive: listed, searched, extracted from, and changed. For unpacking a whole archive take CMiniZip.
///
/// Changes take effect when the archive is closed: a new one is written to a temporary file in the same folder, without a
/// name or with one of its own, and then replaces the old one in one step. When saving fails or is cancelled, the old one
/// is unchanged; only when the very last step fails, the flush of the folder to the disk, the new one is in place. Files
/// that are added are read when the archive is closed. Until then the list of entries shows the archive as it will be.
///
/// No failure of the engine leaves an operation as an exception unless that is asked for; GetLastFailure() returns the
/// reason, and XLastFailure() has it in words. One thread at a time.
class TEVTOOLS_API CZip
{
public:
    CZip();
    /// As Close(false), but the callback must not end its thread: that would end the process.
    ~CZip();
    CZip(const CZip&) = delete;
    CZip& operator=(const CZip&) = delete;

    /// Opens or creates an archive. One that cannot be written to is refused, unless it is opened read-only; a split
    /// one (name.z01, name.z02, ..., name.zip, of which the last is named) is always read-only. False, or with
    /// `throwOnError` CXFileException of cause fileGeneric without a file name, on failure, also when an archive is
    /// open already. The callback, which may be null, must live as long as the archive is open.
    bool Open(const wchar_t* path, ZipOpenMode mode, bool throwOnError, CZipExtractCallback* callback);
    template <class Path, tev::IfPathArgument<Path> = 0>
    bool Open(const Path& path, ZipOpenMode mode, bool throwOnError, CZipExtractCallback* callback)
    {
        return Open(CXTString<wchar_t>(path).GetConstBuffer(), mode, throwOnError, callback);
    }
    /// Saves what was changed, and closes the archive in any case. With `throwOnError` CXFileException of cause
    /// fileGeneric is thrown when saving failed, or was cancelled.
    void Close(bool throwOnError);
    /// Closes the archive without saving: it stays as it was, and a new one is not created.
    void Discard() noexcept;
    bool IsClosed() const noexcept { return Shared(m_archive) == nullptr; }
    bool IsReadOnly() const noexcept;
    /// As it was given to Open; empty when closed.
    CXTString<wchar_t> GetArchivePath() const { return Shared(m_archivePath); }

    /// For reading encrypted entries, and for encrypting those that are added from now on. Null or empty for none.
    /// Holds until it is set anew or the archive is closed; may be set before Open. Copies are overwritten after use.
    void SetPassword(const wchar_t* password, XZipEncryption encryption = XZipEncryption::kAes256);

    /// What may be extracted between Open and Close; entries that declare more are refused, and none gets larger than
    /// it declares. Holds until it is set anew.
    void SetLimits(const CXExtractionLimits& limits) noexcept
    {
        const tev::ExclusiveUse use(m_use);
        m_limits = limits;
    }

    // The list of entries. Indexes run from 0; deleting an entry shifts those after it.

    /// With `filesOnly` without folders; then it can fail for lack of memory, and is 0.
    int GetCount(bool filesOnly) const;
    bool GetFileInfo(CZipFileInfo& info, unsigned int index) const;
    /// The first entry of that name, in which '/' and '\' both separate; xZipNoEntry when there is none. With
    /// `nameOnly` folders in the entries' names are ignored. The first search builds an index in time proportional to
    /// the list.
    unsigned int FindFile(const wchar_t* name, bool caseSensitive, bool nameOnly);
    /// Replaces `indexes` by those of the entries whose whole name, or with `nameOnly` whose name without folders,
    /// matches: '*' stands for any characters, separators too, '?' for one. Returns how many there are.
    int FindMatchingFiles(CXArray<unsigned int, unsigned int>& indexes, const wchar_t* pattern, bool caseSensitive,
                          bool nameOnly) const;

    /// Extracts an entry into a folder, which is created where it is missing: nothing outside is ever written. With
    /// `withFolders` the folders of the entry's name are created there. `newName` replaces the entry's own name, null
    /// or empty does not. A regular file of that name is replaced when the new one is complete; nothing is left of an
    /// entry that fails. With `throwOnError` CXFileException of cause fileGeneric is thrown instead of returning
    /// zipFailed.
    ZipExtractResult ExtractFile(unsigned int index, const wchar_t* destPath, bool withFolders, const wchar_t* newName,
                                 bool throwOnError);
    template <class Path, tev::IfPathArgument<Path> = 0>
    ZipExtractResult ExtractFile(unsigned int index, const Path& destPath, bool withFolders, const wchar_t* newName,
                                 bool throwOnError)
    {
        return ExtractFile(index, CXTString<wchar_t>(destPath).GetConstBuffer(), withFolders, newName, throwOnError);
    }
    /// Reads an entry and checks it, without writing anything. OnExtractEntry is not called.
    ZipExtractResult TestFile(unsigned int index);

    // Changes. Each is made completely or not at all; false when it is not. When memory runs out in the middle of one that
    // cannot be undone, the archive can only be discarded: closing it fails and leaves it as it was. Names of entries are
    // case-sensitive, '/' and '\' both separate.

    /// Adds a file, or a folder without its contents, under its own name or, with `fullPath`, its path without drive
    /// and root. A name that exists is refused. The entry gets the file's permissions and time of last change.
    bool AddNewFile(const wchar_t* path, bool fullPath, ZipCompressionLevel level);
    bool AddNewFile(const wchar_t* path, const wchar_t* nameInArchive, ZipCompressionLevel level);
    template <class Path, tev::IfPathArgument<Path> = 0>
    bool AddNewFile(const Path& path, bool fullPath, ZipCompressionLevel level)
    {
        return AddNewFile(CXTString<wchar_t>(path).GetConstBuffer(), fullPath, level);
    }
    template <class Path, tev::IfPathArgument<Path> = 0>
    bool AddNewFile(const Path& path, const wchar_t* nameInArchive, ZipCompressionLevel level)
    {
        return AddNewFile(CXTString<wchar_t>(path).GetConstBuffer(), nameInArchive, level);
    }
    /// Deletes all entries of these names; a folder's entry without those beneath it.
    bool DeleteFiles(const CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&>& names);
    /// Gives each entry the new name at the same index of the other array; names may be exchanged.
    bool RenameFiles(CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&>& oldNames,
                     const CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&>& newNames);

    /// Why the last operation that can fail did so; kNone when it did not.
    XZipFailure GetLastFailure() const noexcept { return Shared(m_failure); }
    /// The system's error code (2 not found, 5 access denied, 112 disk full, ...) of a failure of kind kSystem, else 0.
    unsigned int GetLastSystemError() const noexcept { return Shared(m_systemError); }

    /// Splits a path that runs through an archive: `path` becomes that of the archive, and `innerPath` the folder
    /// inside it with '\' between its components and at its end, empty for the archive's own root. An archive is a file
    /// that exists and has an extension of ZIP files in the registry of file types; after it the extension is enough,
    /// so that an archive inside the archive is found: `n` selects the nth, 0 the outermost. False, with nothing
    /// changed, when there is none.
    static bool ExtractDirInfo(CXTString<wchar_t>& path, CXTString<wchar_t>& innerPath, int n);

private:
    template <class MEMBER>
    const MEMBER& Shared(const MEMBER& member) const noexcept
    {
        const tev::SharedUse use(m_use);
        return member;
    }
    bool Note(const tev::ZipOutcome& outcome) const noexcept;
    bool Told(const char* operation, const tev::ZipOutcome& outcome, const wchar_t* path) const noexcept;
    /// Calls `work` with the open archive, and records the outcome that it returns.
    template <class Work>
    bool Attempt(const char* operation, Work&& work) const;

    std::unique_ptr<tev::ZipArchive> m_archive;
    CXTString<wchar_t> m_archivePath;
    CXTString<wchar_t> m_password; ///< overwritten before it is replaced or released
    XZipEncryption m_encryption = XZipEncryption::kAes256;
    CXExtractionLimits m_limits;
    mutable XZipFailure m_failure = XZipFailure::kNone;
    mutable unsigned int m_systemError = 0;
    tev::ThreadUse m_use;
};
