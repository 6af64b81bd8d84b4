#include "zip/CMiniZip.h"

#include "objects/CXException.h"
#include "objects/FailureNote.h"
#include "objects/ResultOr.h"
#include "objects/ThreadStatus.h"
#include "platform/Cancellation.h"
#include "platform/ContainedFolder.h"
#include "platform/FileInformation.h"
#include "platform/FileSystem.h"
#include "platform/ForcedUnwind.h"
#include "platform/InputFile.h"
#include "platform/PathNames.h"
#include "platform/SystemErrors.h"
#include "services/Paths.h"
#include "text/MessageTexts.h"
#include "threads/WorkerCount.h"
#include "zip/EntryName.h"
#include "zip/ExtractedFiles.h"
#include "zip/Password.h"
#include "zip/WriteBehind.h"
#include "zip/ZipExtraction.h"
#include "zip/ZipNames.h"
#include "zip/engine/PlainZipReader.h"
#include "zip/engine/StreamUnpacking.h"

#include <array>
#include <new>
#include <optional>
#include <string>

namespace
{
using tev::platform::ContainedFile;
using tev::platform::ContainedFolder;
using tev::platform::FileIdentity;
using tev::platform::FileInformation;
using tev::platform::InputFile;
using tev::platform::PlainZipReader;
using tev::platform::UnpackResult;
using tev::platform::ZipError;
using tev::platform::ZipFailure;
using Failure = CXExtractionFailure;
using Text = CXTString<wchar_t>;

constexpr wchar_t kTemporaryPrefix[] = L"MiniZip";

/// Why something failed, or `otherwise`.
Failure FailureOf(unsigned systemError, Failure otherwise)
{
    switch (systemError)
    {
    case tev::platform::kNotEnoughMemory:
        return Failure::kNoMemory;
    case tev::platform::kTooManyOpenFiles:
        return Failure::kTooManyOpenFiles;
    default:
        return otherwise;
    }
}

/// Whether an error says that there is no such file, and that there can be none.
bool IsMissing(unsigned systemError)
{
    constexpr unsigned kBadName = 123;
    constexpr unsigned kNameTooLong = 206;
    return systemError == tev::platform::kNotFound || systemError == tev::platform::kPathNotFound ||
           systemError == kBadName || systemError == kNameTooLong;
}

/// What `work` returns, or, where it throws, what `fail` returns.
template <class WORK, class FAIL>
bool Try(WORK&& work, FAIL&& fail)
{
    try
    {
        return work();
    }
    catch (CXMemoryException* exception) // where crashes are reported
    {
        exception->Delete();
        return fail(Failure::kNoMemory);
    }
    catch (CXException* exception)
    {
        exception->Delete();
        return fail(Failure::kNotWritable);
    }
    catch (const std::bad_alloc&)
    {
        return fail(Failure::kNoMemory);
    }
}

Text WideText(const std::string& utf8)
{
    return Text(tev::platform::SystemPathToWide(utf8.c_str()).c_str());
}

FileIdentity IdentityOf(const Text& path)
{
    FileInformation information;
    if (!tev::platform::GetFileInformation(path, information))
        return {};
    return {information.device, information.number};
}

XFailureKind KindOf(Failure failure, unsigned systemError)
{
    switch (failure)
    {
    case Failure::kNoArchive:
        return systemError == 0 ? XFailureKind::kData : XFailureKind::kSystem;
    case Failure::kNotFound:
    case Failure::kNotWritable:
    case Failure::kTooManyOpenFiles:
        return XFailureKind::kSystem;
    case Failure::kNoMemory:
        return XFailureKind::kMemory;
    case Failure::kCancelled:
        return XFailureKind::kCancelled;
    default:
        return XFailureKind::kData;
    }
}

/// The code of a failure that stands for one.
unsigned SystemErrorOf(Failure failure)
{
    return failure == Failure::kNotFound           ? tev::platform::kNotFound
           : failure == Failure::kNoMemory         ? tev::platform::kNotEnoughMemory
           : failure == Failure::kTooManyOpenFiles ? tev::platform::kTooManyOpenFiles
                                                   : 0;
}

/// The file that a path leads to: its folder and its name there.
struct Target
{
    std::unique_ptr<ContainedFolder> m_folder;
    std::string m_name;
};

/// Without a folder when there is none. A link as last component is followed, as when a file is opened for writing.
Target FindTarget(const Text& destFile)
{
    std::wstring path;
    if (destFile.IsEmpty() || !tev::platform::CurrentFileSystem().ResolveLinks(destFile, path))
        return {};
    const CPathString target(path.c_str());
    const CPathString folder = target.GetFolder();
    return {ContainedFolder::Open(folder.IsEmpty() ? L"." : folder.GetConstBuffer()),
            tev::platform::SystemPathOf(target.GetFileName())};
}

/// How what a gzip or Zstandard file holds is called.
Text NameOfContents(const CPathString& source)
{
    const std::optional<tev::EntryName> name = tev::SafeEntryName(tev::platform::SystemPathOf(source.GetTitle()));
    return name && !name->m_isFolder && !name->m_path.empty() ? WideText(name->m_path) : Text(L"file");
}
} // namespace

CMiniZip::CMiniZip() : m_files(std::make_unique<tev::ExtractedFiles>()), m_password(std::make_unique<tev::Password>())
{
}

CMiniZip::~CMiniZip()
{
    Clean();
}

/// Extracts with copies of the paths, because they may come from the list that is about to be emptied.
template <class EXTRACT>
bool CMiniZip::Told(const char* operation, const Text& source, const Text& destination, EXTRACT&& extract)
{
    std::optional<Text> from;
    std::optional<Text> to;
    const auto work = [&] {
        from.emplace(source);
        to.emplace(destination);
        return extract(*from, *to);
    };
    if (Try(work, [this](Failure failure) { return Fail(failure); }))
        return true;
    const bool isOfDestination = m_failure == Failure::kNotWritable && to && !to->IsEmpty();
    const std::optional<Text>& path = isOfDestination ? to : from;
    const unsigned text = tev::kTextExtractionFailure + static_cast<unsigned>(m_failure);
    return tev::NoteFailure({operation, KindOf(m_failure, m_systemError), m_systemError, fileNone, text},
                            path ? path->GetConstBuffer() : nullptr);
}

bool CMiniZip::ExtractZip(const CXTString<wchar_t>& zipPath, const CXTString<wchar_t>& destFolder, bool keepFiles)
{
    const tev::ExclusiveUse use(m_use);
    const auto extract = [&](const Text& source, const Text& destination) {
        StartOver();
        FileInformation information;
        if (!tev::platform::GetFileInformation(source, information))
            return FailToRead(tev::platform::LastSystemError());
        m_keepFiles = keepFiles;
        m_destFolder = destination;
        if (destination.IsEmpty() && !keepFiles)
            UseTemporaryFolder();
        return ExtractEntries(source);
    };
    const bool isDone = Told("CMiniZip::ExtractZip", zipPath, destFolder, extract);
    if (!isDone && m_temporaryFolderCreated)
        Clean();
    if (m_keepFiles)
        m_files->Keep();
    return isDone;
}

void CMiniZip::UseTemporaryFolder()
{
    CPathString created = fileCreateTemporaryFolder(kTemporaryPrefix);
    m_destFolder = std::move(created);
    m_temporaryFolderCreated = true;
}

bool CMiniZip::ExtractAny(const CXTString<wchar_t>& source)
{
    const tev::ExclusiveUse use(m_use);
    const auto extract = [&](const Text& from, const Text&) {
        StartOver();
        unsigned error = 0;
        const Stream stream = StreamOf(from, error);
        if (error != 0)
            return FailToRead(error);
        m_keepFiles = false;
        UseTemporaryFolder();
        if (stream != Stream::kGZip && stream != Stream::kZStd)
            return ExtractEntries(from);
        const CPathString target = CPathString(m_destFolder) / NameOfContents(from);
        return ExtractStream(stream, from, target) && !m_extractedFiles.IsEmpty();
    };
    const bool isDone = Told("CMiniZip::ExtractAny", source, Text(), extract);
    if (!isDone)
        Clean();
    return isDone;
}

/// Makes a folder the one to extract to.
bool CMiniZip::StartIn(std::unique_ptr<ContainedFolder> folder)
{
    const unsigned error = tev::platform::LastSystemError();
    if (folder == nullptr)
        return FailToWrite(error);
    folder->ClearLeftovers();
    return m_files->Start(std::move(folder)) || FailToWrite(tev::platform::LastSystemError());
}

bool CMiniZip::ExtractEntries(const CXTString<wchar_t>& zipPath)
{
    const wchar_t* const destination = m_destFolder.IsEmpty() ? L"." : m_destFolder.GetConstBuffer();
    // The temporary folder is opened before anything else can fail, so that it can be removed.
    if (m_temporaryFolderCreated && !StartIn(ContainedFolder::OpenItself(destination)))
        return false;
    if (m_password == nullptr)
        return Fail(Failure::kNoMemory);
    ZipError error;
    const std::unique_ptr<PlainZipReader> reader = PlainZipReader::Open(zipPath, *m_password, error);
    if (reader == nullptr)
        return FailToRead(error.systemError);
    if (!m_temporaryFolderCreated && !StartIn(ContainedFolder::Open(destination, ContainedFolder::Missing::Create)))
        return false;
    m_files->Folder().Protect(IdentityOf(zipPath));

    const tev::ExtractionProgress progress = [this](unsigned __int64 processed, unsigned __int64 total) {
        return ReportProgress(processed, total);
    };
    tev::ZipExtraction extraction(*reader, m_files->Folder(), m_limits, progress);
    const Failure failure = extraction.Run();
    m_files->Files() = std::move(extraction.Written());

    const CPathString root(m_destFolder);
    for (const tev::ExtractedFiles::File& file : m_files->Files())
        OnExtractFile(tev::platform::SystemPathOf(root / WideText(file.m_path)).c_str(), this);
    for (const tev::ZipExtraction::SkippedEntry& entry : extraction.Skipped())
        m_skippedEntries.push_back({tev::WideEntryName(entry.m_name).c_str(), entry.m_reason});
    if (failure != Failure::kNone)
        return Fail(failure, extraction.SystemError());
    return !m_extractedFiles.IsEmpty() || Fail(Failure::kNothingInIt);
}

int CMiniZip::OnExtractFile(char const* utf8Path, void* self)
{
    static_cast<CMiniZip*>(self)->m_extractedFiles.Add(WideText(utf8Path));
    return 0;
}

bool CMiniZip::ExtractGZip(const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile, bool keepFiles)
{
    return ExtractFile(Stream::kGZip, source, destFile, keepFiles);
}

bool CMiniZip::ExtractZStd(const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile, bool keepFiles)
{
    return ExtractFile(Stream::kZStd, source, destFile, keepFiles);
}

bool CMiniZip::ExtractZFile(const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile, bool keepFiles)
{
    return ExtractFile(Stream::kNone, source, destFile, keepFiles);
}

/// kNone wants either of them.
bool CMiniZip::ExtractFile(Stream wanted, const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile,
                           bool keepFiles)
{
    const tev::ExclusiveUse use(m_use);
    const auto extract = [&](const Text& from, const Text& to) {
        StartOver();
        unsigned error = 0;
        const Stream stream = StreamOf(from, error);
        if ((stream != Stream::kGZip && stream != Stream::kZStd) || (wanted != Stream::kNone && stream != wanted))
            return FailToRead(error);
        if (stream == Stream::kGZip)
            m_keepFiles = keepFiles;
        if (!ExtractStream(stream, from, to))
            return false;
        m_keepFiles = keepFiles;
        return true;
    };
    const char* const operation = wanted == Stream::kGZip   ? "CMiniZip::ExtractGZip"
                                  : wanted == Stream::kZStd ? "CMiniZip::ExtractZStd"
                                                            : "CMiniZip::ExtractZFile";
    const bool isDone = Told(operation, source, destFile, extract);
    if (!isDone) // there is nothing to clean up
        m_files->Forget();
    else if (m_keepFiles)
        m_files->Keep();
    return isDone;
}

bool CMiniZip::ExtractStream(Stream stream, const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile)
{
    FileInformation information;
    if (!tev::platform::GetFileInformation(source, information))
        return FailToRead(tev::platform::LastSystemError());
    Target target = fileIsSameFile(source, destFile) ? Target() : FindTarget(destFile);
    if (!StartIn(std::move(target.m_folder)))
        return false;
    const std::unique_ptr<ContainedFile> file = m_files->Folder().CreateFile(target.m_name);
    const unsigned createError = tev::platform::LastSystemError();
    if (file == nullptr)
        return FailToWrite(createError);
    if (!ReportProgress(0, information.size))
        return Fail(Failure::kCancelled);

    const tev::LongOperation operation("unpacking a file");
    using Threads = tev::WriteBehind::Threads;
    tev::WriteBehind behind(*file, OMPGetMaxThreadCount() > 1 ? Threads::kItsOwn : Threads::kCallersOnly);
    unsigned __int64 written = 0;
    const auto write = [&](const void* bytes, std::size_t count, unsigned __int64 consumed) {
        written += count;
        if (!m_limits.Allows(written, information.size))
            return Fail(Failure::kTooLarge);
        if (!behind.Write(bytes, count))
            return FailToWrite(behind.SystemError());
        return ReportProgress(consumed, information.size) || Fail(Failure::kCancelled);
    };
    const bool isGZip = stream == Stream::kGZip;
    const tev::platform::UnpackEnding ending =
        isGZip ? tev::platform::UnpackGzip(source, write) : tev::platform::UnpackZstd(source, write);
    if (!EndStream(ending, isGZip, written))
        return false;
    // What a gzip stream holds before its damage may be all that is left of a file.
    if (written == 0 && m_failure == Failure::kDamaged)
    {
        m_files->Forget();
        return true;
    }
    if (!behind.Finish())
        return FailToWrite(behind.SystemError());
    m_files->Files().push_back({target.m_name, {}});
    m_extractedFiles.Add(destFile);
    if (file->Keep(std::nullopt, m_files->Files().back().m_identity))
        return true;
    const unsigned error = tev::platform::LastSystemError();
    m_extractedFiles.RemoveAll();
    return FailToWrite(error);
}

/// Whether what was unpacked is to be kept, with the failure.
bool CMiniZip::EndStream(tev::platform::UnpackEnding ending, bool isGZip, unsigned __int64 written)
{
    switch (ending.result)
    {
    case UnpackResult::Done:
        return true;
    case UnpackResult::Stopped: // the failure is known already
        return false;
    case UnpackResult::NoMemory:
        return Fail(Failure::kNoMemory);
    case UnpackResult::SourceFailed:
        return (isGZip && written != 0) || FailToRead(tev::platform::LastSystemError());
    default:
        m_damage = ending.damage;
        return !Fail(Failure::kDamaged) && isGZip;
    }
}

CMiniZip::Stream CMiniZip::StreamOf(const CXTString<wchar_t>& path, unsigned int& systemError)
{
    using Magic = std::array<unsigned char, 4>;
    constexpr Magic kLittleEndian = {0x28, 0xB5, 0x2F, 0xFD};
    constexpr Magic kBigEndian = {0xFD, 0x2F, 0xB5, 0x28}; // accepted deliberately
    const std::shared_ptr<const InputFile> file = InputFile::Open(path);
    systemError = file == nullptr ? tev::platform::LastSystemError() : 0;
    Magic magic = {};
    int error = 0;
    const std::size_t size = file != nullptr ? file->ReadAt(0, magic.data(), magic.size(), error) : 0;
    if (size >= 2 && magic[0] == 0x1F && magic[1] == 0x8B)
        return Stream::kGZip;
    if (size == magic.size() && (magic == kLittleEndian || magic == kBigEndian))
        return Stream::kZStd;
    // An entry, the end of an archive without one, or the mark of one in parts.
    if (size == magic.size() && magic[0] == 'P' && magic[1] == 'K' && magic[3] == magic[2] + 1 && magic[2] <= 7 &&
        magic[2] % 2 == 1)
        return Stream::kZip;
    if (error != 0)
        systemError = tev::platform::SystemErrorFromErrno(error);
    return Stream::kNone;
}

CMiniZip::Stream CMiniZip::StreamOf(const CXTString<wchar_t>& path)
{
    const auto look = [&] {
        unsigned ignored = 0;
        return StreamOf(path, ignored);
    };
    return tev::ResultOr(Stream::kNone, look);
}

bool CMiniZip::IsGZipFile(const CXTString<wchar_t>& path)
{
    return StreamOf(path) == Stream::kGZip;
}

bool CMiniZip::IsZStdFile(const CXTString<wchar_t>& path)
{
    return StreamOf(path) == Stream::kZStd;
}

bool CMiniZip::IsZFile(const CXTString<wchar_t>& path)
{
    return IsGZipFile(path) || IsZStdFile(path);
}

bool CMiniZip::IsPackedFile(const CXTString<wchar_t>& path)
{
    return StreamOf(path) != Stream::kNone;
}

bool CMiniZip::Clean()
{
    const tev::ExclusiveUse use(m_use);
    if (m_temporaryFolderCreated)
    {
        m_temporaryFolderCreated = false;
        if (m_files->HasFolder())
            m_files->RemoveFolder();
        else // it could not be opened
            static_cast<void>(tev::platform::RemoveEmptyFolder(m_destFolder));
        m_extractedFiles.RemoveAll();
    }
    else if (!m_keepFiles)
    {
        m_files->RemoveFiles();
        m_extractedFiles.RemoveAll();
    }
    return true;
}

void CMiniZip::KeepFiles() noexcept
{
    const tev::ExclusiveUse use(m_use);
    m_files->Keep();
    m_keepFiles = true;
    m_temporaryFolderCreated = false;
}

void CMiniZip::SetPassword(const CXTString<wchar_t>& password)
{
    const tev::ExclusiveUse use(m_use);
    m_password.reset(); // where memory runs out, the next archive fails for that
    const auto set = [&] {
        m_password = std::make_unique<tev::Password>(password);
        return true;
    };
    static_cast<void>(tev::ResultOr(false, set));
}

bool CMiniZip::OnProgress(unsigned __int64, unsigned __int64)
{
    return true;
}

bool CMiniZip::ReportProgress(unsigned __int64 processed, unsigned __int64 total)
{
    try
    {
        return !tev::IsThreadAskedToEnd() && OnProgress(processed, total);
    }
    catch (const tev::platform::ForcedUnwind&)
    {
        throw;
    }
    catch (CXException* exception)
    {
        exception->Delete();
    }
    catch (...) // NOLINT(bugprone-empty-catch): no exception may leave a worker thread
    {
    }
    return false;
}

bool CMiniZip::Fail(CXExtractionFailure failure) noexcept
{
    return Fail(failure, SystemErrorOf(failure));
}

bool CMiniZip::Fail(CXExtractionFailure failure, unsigned systemError) noexcept
{
    m_failure = failure;
    m_systemError = systemError;
    return false;
}

bool CMiniZip::FailToRead(unsigned systemError) noexcept
{
    return Fail(IsMissing(systemError) ? Failure::kNotFound : FailureOf(systemError, Failure::kNoArchive), systemError);
}

bool CMiniZip::FailToWrite(unsigned systemError) noexcept
{
    return Fail(FailureOf(systemError, Failure::kNotWritable), systemError);
}

/// Forgets files that were kept.
void CMiniZip::StartOver()
{
    tev::platform::PassCancellationPoint();
    if (!m_extractedFiles.IsEmpty() || !m_files->Files().empty())
        Clean();
    m_files->Forget();
    m_extractedFiles.RemoveAll();
    m_skippedEntries.clear();
    m_temporaryFolderCreated = false;
    m_failure = Failure::kNone;
    m_damage = CXStreamDamage::kNone;
}
