#include "zip/CZip.h"

#include "objects/CXFileException.h"
#include "objects/FailureNote.h"
#include "platform/Cancellation.h"
#include "platform/SystemErrors.h"
#include "services/CPathString.h"
#include "services/FileTypes.h"
#include "services/Paths.h"
#include "text/MessageTexts.h"
#include "zip/Password.h"
#include "zip/ZipArchive.h"

#include <new>
#include <utility>

namespace
{
using tev::Password;
using tev::ZipArchive;
using tev::ZipOutcome;

constexpr ZipOutcome Refused(XZipFailure failure)
{
    return {failure, 0};
}

/// Lack of memory is a failure like others. What a callback throws is passed on.
template <class Work>
ZipOutcome OrNoMemory(Work&& work)
{
    try
    {
        return work();
    }
    catch (CXMemoryException* exception) // where crashes are reported
    {
        exception->Delete();
    }
    catch (const std::bad_alloc&)
    {
    }
    return {XZipFailure::kSystem, tev::platform::kNotEnoughMemory};
}

bool HasZipExtension(const CXTString<wchar_t>& name)
{
    return tev::FileTypes::Get().FindForName(
        name, [](const CFileExt& type) { return type.GetClass() == XFourCharacterCode("ZIP "); },
        [](const CFileExt&) {});
}

/// The exception that stands for every failure: it has neither a file's name nor a message.
[[noreturn]] void ThrowFailure()
{
    CXFileException::Throw(fileGeneric, {});
}

constexpr XZipEncryption kLost = XZipEncryption::kUnknown;

/// For the engine. Where memory ran out when it was set, it is not taken for none.
Password SecretOf(const CXTString<wchar_t>& password, XZipEncryption encryption)
{
    if (encryption == kLost && password.IsEmpty())
        throw std::bad_alloc();
    return Password(password);
}

XFailureKind KindOf(XZipFailure failure)
{
    switch (failure)
    {
    case XZipFailure::kReplaced:
        return XFailureKind::kSystem;
    case XZipFailure::kCancelled:
        return XFailureKind::kCancelled;
    case XZipFailure::kPasswordNeeded:
    case XZipFailure::kWrongPassword:
    case XZipFailure::kExists:
    case XZipFailure::kNotFound:
    case XZipFailure::kReadOnly:
    case XZipFailure::kInvalidArgument:
        return XFailureKind::kArgument;
    default:
        return XFailureKind::kData;
    }
}

bool IsSkip(XZipFailure failure)
{
    return failure == XZipFailure::kSkipped || failure == XZipFailure::kCancelled ||
           failure == XZipFailure::kUnsafeName || failure == XZipFailure::kSpecialFile;
}

ZipExtractResult ResultOf(XZipFailure failure)
{
    if (failure == XZipFailure::kNone)
        return zipExtracted;
    return IsSkip(failure) ? zipSkipped : zipFailed;
}
} // namespace

CZip::CZip() = default;

CZip::~CZip()
{
    try
    {
        Close(false);
    }
    catch (...) // from the callback; a destructor cannot report it
    {
    }
    tev::OverwriteText(m_password); // set, and no archive opened
}

bool CZip::Note(const ZipOutcome& outcome) const noexcept
{
    m_failure = outcome.m_failure;
    m_systemError = outcome.m_systemError;
    return m_failure == XZipFailure::kNone;
}

/// As Note, and leaves the reason for XLastFailure.
bool CZip::Told(const char* operation, const ZipOutcome& outcome, const wchar_t* path) const noexcept
{
    if (Note(outcome))
        return true;
    if (m_failure == XZipFailure::kSystem)
        return tev::NoteSystemError(operation, m_systemError, path);
    if (m_failure == XZipFailure::kSkipped)
        return false;
    return tev::NoteFailure(
        {operation, KindOf(m_failure), 0, fileNone, tev::kTextZipFailure + static_cast<unsigned>(m_failure)}, path);
}

template <class Work>
bool CZip::Attempt(const char* operation, Work&& work) const
{
    const tev::ExclusiveUse use(m_use);
    if (m_archive == nullptr)
        return Told(operation, Refused(XZipFailure::kInvalidArgument), nullptr);
    return Told(operation, OrNoMemory([&] { return work(*m_archive); }), m_archivePath);
}

bool CZip::Open(const wchar_t* path, ZipOpenMode mode, bool throwOnError, CZipExtractCallback* callback)
{
    const tev::ExclusiveUse use(m_use);
    tev::platform::PassCancellationPoint();
    const auto open = [&] {
        if (!IsClosed() || path == nullptr || *path == L'\0')
            return Refused(XZipFailure::kInvalidArgument);
        CXTString<wchar_t> given(path);
        const ZipOutcome opened = ZipArchive::Open(path, mode, callback, m_archive);
        if (opened)
            m_archivePath = std::move(given);
        return opened;
    };
    if (!Told("CZip::Open", OrNoMemory(open), path) && throwOnError)
        ThrowFailure();
    return m_failure == XZipFailure::kNone;
}

void CZip::Close(bool throwOnError)
{
    const tev::ExclusiveUse use(m_use);
    if (IsClosed())
        return;
    // Closed whatever happens, also when the callback throws.
    const std::unique_ptr<ZipArchive> archive = std::move(m_archive);
    const CXTString<wchar_t> path = std::move(m_archivePath);
    Discard();
    if (!Told("CZip::Close", OrNoMemory([&] { return archive->Save(); }), path) && throwOnError)
        ThrowFailure();
}

void CZip::Discard() noexcept
{
    const tev::ExclusiveUse use(m_use);
    m_archive.reset();
    const CXTString<wchar_t> released(std::move(m_archivePath)); // emptying it could allocate
    tev::OverwriteText(m_password);
    m_encryption = XZipEncryption::kAes256;
}

bool CZip::IsReadOnly() const noexcept
{
    return !IsClosed() && m_archive->IsReadOnly();
}

void CZip::SetPassword(const wchar_t* password, XZipEncryption encryption)
{
    const tev::ExclusiveUse use(m_use);
    tev::OverwriteText(m_password);
    const auto set = [&] {
        m_password = password;
        m_encryption = encryption;
        return ZipOutcome();
    };
    m_encryption = kLost;
    if (!OrNoMemory(set))
        tev::OverwriteText(m_password);
}

int CZip::GetCount(bool filesOnly) const
{
    if (IsClosed())
        return 0;
    unsigned count = m_archive->Count();
    if (filesOnly && !Attempt("CZip::GetCount", [&](const ZipArchive& archive) { return archive.CountFiles(count); }))
        return 0;
    return static_cast<int>(count);
}

bool CZip::GetFileInfo(CZipFileInfo& info, unsigned int index) const
{
    return Attempt("CZip::GetFileInfo", [&](const ZipArchive& archive) { return archive.Describe(index, info); });
}

unsigned int CZip::FindFile(const wchar_t* name, bool caseSensitive, bool nameOnly)
{
    unsigned int found = xZipNoEntry;
    const bool isDone = Attempt("CZip::FindFile", [&](ZipArchive& archive) {
        if (name != nullptr)
            found = archive.Find(name, {caseSensitive, nameOnly});
        return ZipOutcome();
    });
    if (isDone && found == xZipNoEntry)
        m_failure = XZipFailure::kNotFound;
    return found;
}

int CZip::FindMatchingFiles(CXArray<unsigned int, unsigned int>& indexes, const wchar_t* pattern, bool caseSensitive,
                            bool nameOnly) const
{
    indexes.RemoveAll();
    Attempt("CZip::FindMatchingFiles", [&](const ZipArchive& archive) {
        if (pattern == nullptr)
            return Refused(XZipFailure::kInvalidArgument);
        const std::vector<unsigned> found = archive.FindMatching(pattern, {caseSensitive, nameOnly});
        indexes.Copy(found.data(), static_cast<unsigned>(found.size()));
        return ZipOutcome();
    });
    return indexes.GetSize();
}

ZipExtractResult CZip::ExtractFile(unsigned int index, const wchar_t* destPath, bool withFolders,
                                   const wchar_t* newName, bool throwOnError)
{
    const bool isExtracted = Attempt("CZip::ExtractFile", [&](ZipArchive& archive) {
        return archive.Extract(index, {destPath, withFolders, newName}, SecretOf(m_password, m_encryption).Utf8(),
                               m_limits);
    });
    const ZipExtractResult result = ResultOf(m_failure);
    if (!isExtracted && result == zipFailed && throwOnError)
        ThrowFailure();
    return result;
}

ZipExtractResult CZip::TestFile(unsigned int index)
{
    Attempt("CZip::TestFile",
            [&](ZipArchive& archive) { return archive.Test(index, SecretOf(m_password, m_encryption).Utf8()); });
    return ResultOf(m_failure);
}

bool CZip::AddNewFile(const wchar_t* path, bool fullPath, ZipCompressionLevel level)
{
    return Attempt("CZip::AddNewFile", [&](ZipArchive& archive) {
        CPathString name(path);
        name.TrimRight(L"/\\"); // behind a folder's name
        if (!fullPath)
            name = name.GetFileName();
        return archive.Add(path, name, level, {SecretOf(m_password, m_encryption), m_encryption});
    });
}

bool CZip::AddNewFile(const wchar_t* path, const wchar_t* nameInArchive, ZipCompressionLevel level)
{
    return Attempt("CZip::AddNewFile", [&](ZipArchive& archive) {
        return archive.Add(path, nameInArchive, level, {SecretOf(m_password, m_encryption), m_encryption});
    });
}

bool CZip::DeleteFiles(const CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&>& names)
{
    return Attempt("CZip::DeleteFiles", [&](ZipArchive& archive) { return archive.Delete(names); });
}

bool CZip::RenameFiles(CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&>& oldNames,
                       const CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&>& newNames)
{
    return Attempt("CZip::RenameFiles", [&](ZipArchive& archive) { return archive.Rename(oldNames, newNames); });
}

bool CZip::ExtractDirInfo(CXTString<wchar_t>& path, CXTString<wchar_t>& innerPath, int n)
{
    constexpr const wchar_t* kSeparators = L"/\\";
    bool isInside = false;
    for (int end = path.FindOneOf(kSeparators, 1);; end = path.FindOneOf(kSeparators, end + 1))
    {
        const CXTString<wchar_t> head = end < 0 ? path : path.Left(end);
        // Separators may come several at a time: what ends with one names nothing of its own.
        if (HasZipExtension(head) && (isInside || fileIsFile(head)))
        {
            isInside = true;
            if (n-- == 0)
            {
                CXTString<wchar_t> inner = path.Mid(head.GetLength());
                inner.Replace(L'/', L'\\');
                inner.Trim(L'\\');
                innerPath = inner.IsEmpty() ? inner : inner + L'\\';
                path = head;
                return true;
            }
        }
        if (end < 0)
            return false;
    }
}
