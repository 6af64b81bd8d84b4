#include "zip/CMiniZip.h"

#include "objects/CXException.h"
#include "objects/ThreadStatus.h"
#include "platform/ContainedFolder.h"
#include "platform/FileInformation.h"
#include "platform/FileSystem.h"
#include "platform/PathNames.h"
#include "services/Paths.h"
#include "threads/ThreadRelations.h"
#include "threads/WorkerCount.h"
#include "zip/ExtractedFiles.h"
#include "zip/WriteBehind.h"
#include "zip/ZipExtraction.h"
#include "zip/engine/PlainZipReader.h"
#include "zip/engine/StreamUnpacking.h"

#include <array>
#include <new>
#include <string>

namespace
{
using tev::platform::ContainedFile;
using tev::platform::ContainedFolder;
using tev::platform::FileIdentity;
using tev::platform::FileInformation;
using tev::platform::PlainZipReader;
using tev::platform::UnpackResult;
using Ending = tev::ZipExtraction::Ending;
using Failure = CXExtractionFailure;
using Text = CXTString<wchar_t>;

constexpr wchar_t kTemporaryPrefix[] = L"MiniZip";

/// Returns what `work` returns, or, when it throws, what `thrown` returns.
template <class WORK, class THROWN>
bool Try(WORK&& work, THROWN&& thrown)
{
    try
    {
        return work();
    }
    catch (CXMemoryException* exception) // where crashes are reported
    {
        exception->Delete();
        return thrown(Failure::kNoMemory);
    }
    catch (CXException* exception)
    {
        exception->Delete();
        return thrown(Failure::kNotWritable);
    }
    catch (const std::bad_alloc&)
    {
        return thrown(Failure::kNoMemory);
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

using Magic = std::array<unsigned char, 4>;

/// The first bytes of a file, and how many there are.
std::size_t ReadMagic(const Text& path, Magic& magic)
{
    std::size_t count = 0;
    const auto read = [&] {
        if (!fileIsFile(path)) // opening a pipe would wait
            return false;
        tev::platform::FileSystem& files = tev::platform::CurrentFileSystem();
        const tev::platform::FileHandle file = files.Open(path, {});
        if (file == nullptr)
            return false;
        const bool isRead = files.Read(file, magic.data(), magic.size(), count);
        return files.Close(file) && isRead;
    };
    return Try(read, [](Failure) { return false; }) ? count : 0;
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
} // namespace

CMiniZip::CMiniZip() : m_files(std::make_unique<tev::ExtractedFiles>()) {}

CMiniZip::~CMiniZip()
{
    Clean();
}

bool CMiniZip::ExtractZip(const CXTString<wchar_t>& zipPath, const CXTString<wchar_t>& destFolder, bool keepFiles)
{
    // The paths may come from the list that is about to be emptied.
    const auto extract = [this, zipPath, destFolder, keepFiles] {
        StartOver();
        if (!fileExists(zipPath))
            return Fail(Failure::kNotFound);
        m_keepFiles = keepFiles;
        m_destFolder = destFolder;
        if (destFolder.IsEmpty() && !keepFiles)
        {
            m_destFolder = fileCreateTemporaryFolder(kTemporaryPrefix);
            m_temporaryFolderCreated = true;
        }
        return ExtractEntries(zipPath);
    };
    const bool isDone = Try(extract, [this](Failure failure) { return Fail(failure); });
    if (!isDone && m_temporaryFolderCreated)
        Clean();
    return isDone;
}

bool CMiniZip::ExtractEntries(const CXTString<wchar_t>& zipPath)
{
    const wchar_t* const destination = m_destFolder.IsEmpty() ? L"." : m_destFolder.GetConstBuffer();
    if (m_temporaryFolderCreated)
    {
        // Before anything can fail, so that it can be removed.
        const std::unique_ptr<ContainedFolder> temporary = ContainedFolder::OpenItself(destination);
        if (temporary == nullptr)
            return Fail(Failure::kNotWritable);
        m_files->Start(*temporary);
    }
    CXTString<char> password;
    static_cast<void>(XEncodeText(m_password, m_password.GetLength64(), xEncodingUtf8, password)); // which cannot fail
    const std::unique_ptr<PlainZipReader> reader =
        PlainZipReader::Open(zipPath, std::string(password.GetConstBuffer(), password.GetLength64()));
    if (reader == nullptr)
        return Fail(Failure::kNoArchive);
    const std::unique_ptr<ContainedFolder> folder =
        ContainedFolder::Open(destination, ContainedFolder::Missing::Create);
    if (folder == nullptr)
        return Fail(Failure::kNotWritable);
    folder->Protect(IdentityOf(zipPath));
    m_files->Start(*folder);

    const tev::ExtractionProgress progress = [this](unsigned __int64 processed, unsigned __int64 total) {
        return ReportProgress(processed, total);
    };
    tev::ZipExtraction extraction(*reader, *folder, m_limits, progress);
    const Ending ending = extraction.Run();
    m_files->Files() = std::move(extraction.Written());

    const CPathString root(m_destFolder);
    for (const tev::ExtractedFiles::File& file : m_files->Files())
        OnExtractFile(tev::platform::SystemPathOf(root / WideText(file.m_path)).c_str(), this);
    for (const tev::ZipExtraction::SkippedEntry& entry : extraction.Skipped())
        m_skippedEntries.push_back({WideText(entry.m_name), entry.m_reason});
    if (ending != Ending::kDone)
        return Fail(ending == Ending::kCancelled ? Failure::kCancelled : Failure::kNotWritable);
    return !m_extractedFiles.IsEmpty() || Fail(Failure::kNothingInIt);
}

int CMiniZip::OnExtractFile(char const* utf8Path, void* self)
{
    static_cast<CMiniZip*>(self)->m_extractedFiles.Add(WideText(utf8Path));
    return 0;
}

bool CMiniZip::ExtractGZip(const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile, bool keepFiles)
{
    const auto extract = [this, source, destFile, keepFiles] {
        StartOver();
        if (!IsGZipFile(source))
            return Fail(fileExists(source) ? Failure::kNoArchive : Failure::kNotFound);
        m_keepFiles = keepFiles;
        return ExtractStream(Stream::kGZip, source, destFile);
    };
    return Try(extract, [this](Failure failure) { return Fail(failure); });
}

bool CMiniZip::ExtractZStd(const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile, bool keepFiles)
{
    const auto extract = [this, source, destFile, keepFiles] {
        StartOver();
        if (!IsZStdFile(source))
            return Fail(fileExists(source) ? Failure::kNoArchive : Failure::kNotFound);
        if (!ExtractStream(Stream::kZStd, source, destFile))
            return false;
        m_keepFiles = keepFiles;
        return true;
    };
    return Try(extract, [this](Failure failure) { return Fail(failure); });
}

bool CMiniZip::ExtractZFile(const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile, bool keepFiles)
{
    if (IsGZipFile(source))
        return ExtractGZip(source, destFile, keepFiles);
    return ExtractZStd(source, destFile, keepFiles); // which refuses what is neither
}

bool CMiniZip::ExtractStream(Stream stream, const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile)
{
    FileInformation information;
    if (!tev::platform::GetFileInformation(source, information))
        return Fail(Failure::kNotFound);
    const Target target = fileIsSameFile(source, destFile) ? Target() : FindTarget(destFile);
    const std::unique_ptr<ContainedFile> file =
        target.m_folder != nullptr ? target.m_folder->CreateFile(target.m_name) : nullptr;
    if (file == nullptr)
        return Fail(Failure::kNotWritable);
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
            return Fail(Failure::kNotWritable);
        return (!tev::IsThreadAskedToEnd() && ReportProgress(consumed, information.size)) || Fail(Failure::kCancelled);
    };
    const bool isGZip = stream == Stream::kGZip;
    const UnpackResult result =
        isGZip ? tev::platform::UnpackGzip(source, write) : tev::platform::UnpackZstd(source, write);
    if (result == UnpackResult::Stopped)
        return false;
    // What a gzip stream holds before its damage may be all that is left of a file.
    const bool isUnread = result == UnpackResult::SourceFailed && (written == 0 || !isGZip);
    if (isUnread || (result == UnpackResult::Damaged && !isGZip))
        return Fail(isUnread ? Failure::kNoArchive : Failure::kDamaged);

    if (!behind.Finish())
        return Fail(Failure::kNotWritable);
    m_files->Start(*target.m_folder);
    m_files->Files().push_back({target.m_name, {}});
    m_extractedFiles.Add(destFile);
    if (file->Keep(std::nullopt, m_files->Files().back().m_identity))
        return true;
    m_files->Forget();
    m_extractedFiles.RemoveAll();
    return Fail(Failure::kNotWritable);
}

bool CMiniZip::IsGZipFile(const CXTString<wchar_t>& path)
{
    Magic magic = {};
    return ReadMagic(path, magic) >= 2 && magic[0] == 0x1F && magic[1] == 0x8B;
}

bool CMiniZip::IsZStdFile(const CXTString<wchar_t>& path)
{
    constexpr Magic kLittleEndian = {0x28, 0xB5, 0x2F, 0xFD};
    constexpr Magic kBigEndian = {0xFD, 0x2F, 0xB5, 0x28}; // accepted deliberately
    Magic magic = {};
    return ReadMagic(path, magic) == magic.size() && (magic == kLittleEndian || magic == kBigEndian);
}

bool CMiniZip::IsZFile(const CXTString<wchar_t>& path)
{
    return IsGZipFile(path) || IsZStdFile(path);
}

bool CMiniZip::Clean()
{
    if (m_temporaryFolderCreated)
    {
        m_temporaryFolderCreated = false;
        m_files->RemoveFolder();
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
    m_keepFiles = true;
    m_temporaryFolderCreated = false;
}

bool CMiniZip::OnProgress(unsigned __int64, unsigned __int64)
{
    return true;
}

bool CMiniZip::ReportProgress(unsigned __int64 processed, unsigned __int64 total)
{
    try
    {
        return !ShouldCancelThread(0) && OnProgress(processed, total);
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
    m_failure = failure;
    return false;
}

/// Forgets files that were kept.
void CMiniZip::StartOver()
{
    if (!m_extractedFiles.IsEmpty() || !m_files->Files().empty())
        Clean();
    m_files->Forget();
    m_extractedFiles.RemoveAll();
    m_skippedEntries.clear();
    m_temporaryFolderCreated = false;
    m_failure = Failure::kNone;
}
