#include "system/CMiniZip.h"

#include "core/CXException.h"
#include "platform/ContainedFolder.h"
#include "platform/FileInformation.h"
#include "platform/FileSystem.h"
#include "platform/PathNames.h"
#include "platform/PlainZipReader.h"
#include "platform/StreamUnpacking.h"
#include "services/Paths.h"
#include "system/ExtractedFiles.h"
#include "system/ThreadRelations.h"
#include "system/ZipExtraction.h"

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
using Text = CXTString<wchar_t>;

constexpr wchar_t kTemporaryPrefix[] = L"MiniZip";

/// Does the work, which failed when it throws.
template <class WORK>
bool Try(WORK&& work)
{
    try
    {
        return work();
    }
    catch (CXException* exception)
    {
        exception->Delete();
    }
    catch (const std::bad_alloc&)
    {
        // as good as a file that cannot be read
    }
    return false;
}

std::string SystemPath(const Text& path)
{
    std::string name;
    return tev::platform::WidePathToSystem(path, name) ? name : std::string();
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
    if (!fileIsFile(path)) // a pipe would wait
        return 0;
    tev::platform::FileSystem& files = tev::platform::CurrentFileSystem();
    const tev::platform::FileHandle file = files.Open(path, {});
    if (file == nullptr)
        return 0;
    std::size_t count = 0;
    const bool isRead = files.Read(file, magic.data(), magic.size(), count);
    static_cast<void>(files.Close(file));
    return isRead ? count : 0;
}

/// Where a path leads, in two parts.
struct Target
{
    std::unique_ptr<ContainedFolder> m_folder;
    std::string m_name;
};

/// No folder when there is none. A link as last component is followed, as by everyone who opens a file to write.
Target FindTarget(const Text& destFile)
{
    std::wstring path;
    if (destFile.IsEmpty() || !tev::platform::CurrentFileSystem().ResolveLinks(destFile, path))
        return {};
    const CPathString target(path.c_str());
    const CPathString folder = target.GetFolder();
    return {ContainedFolder::Open(folder.IsEmpty() ? L"." : folder.GetConstBuffer()), SystemPath(target.GetFileName())};
}
} // namespace

CMiniZip::CMiniZip() : m_files(std::make_unique<tev::ExtractedFiles>()) {}

CMiniZip::~CMiniZip()
{
    Clean();
}

bool CMiniZip::ExtractZip(const CXTString<wchar_t>& zipPath, const CXTString<wchar_t>& destFolder, bool keepFiles)
{
    const bool isDone = Try([&] {
        StartAnew();
        if (!fileExists(zipPath))
            return false;
        m_keepFiles = keepFiles;
        m_destFolder = destFolder;
        if (destFolder.IsEmpty() && !keepFiles)
        {
            m_destFolder = fileCreateTemporaryFolder(kTemporaryPrefix);
            m_temporaryFolderCreated = true;
        }
        return ExtractEntries(zipPath);
    });
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
            return false;
        m_files->Start(*temporary);
    }
    CXTString<char> password;
    if (!XEncodeText(m_password, m_password.GetLength64(), xEncodingUtf8, password))
        return false;
    const std::unique_ptr<PlainZipReader> reader =
        PlainZipReader::Open(zipPath, std::string(password.GetConstBuffer(), password.GetLength64()));
    if (reader == nullptr)
        return false;
    const std::unique_ptr<ContainedFolder> folder =
        ContainedFolder::Open(destination, ContainedFolder::Missing::Create);
    if (folder == nullptr)
        return false;
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
        OnExtractFile(SystemPath(root / WideText(file.m_path)).c_str(), this);
    for (const tev::ZipExtraction::SkippedEntry& entry : extraction.Skipped())
        m_skippedEntries.push_back({WideText(entry.m_name), entry.m_reason});
    return ending == Ending::kDone && !m_extractedFiles.IsEmpty();
}

int CMiniZip::OnExtractFile(char const* utf8Path, void* self)
{
    static_cast<CMiniZip*>(self)->m_extractedFiles.Add(WideText(utf8Path));
    return 0;
}

bool CMiniZip::ExtractGZip(const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile, bool keepFiles)
{
    return Try([&] {
        StartAnew();
        if (!IsGZipFile(source))
            return false;
        m_keepFiles = keepFiles;
        return ExtractStream(Stream::kGZip, source, destFile);
    });
}

bool CMiniZip::ExtractZStd(const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile, bool keepFiles)
{
    return Try([&] {
        StartAnew();
        if (!IsZStdFile(source) || !ExtractStream(Stream::kZStd, source, destFile))
            return false;
        m_keepFiles = keepFiles;
        return true;
    });
}

bool CMiniZip::ExtractZFile(const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile, bool keepFiles)
{
    if (IsGZipFile(source))
        return ExtractGZip(source, destFile, keepFiles);
    return IsZStdFile(source) && ExtractZStd(source, destFile, keepFiles);
}

bool CMiniZip::ExtractStream(Stream stream, const CXTString<wchar_t>& source, const CXTString<wchar_t>& destFile)
{
    FileInformation information;
    if (fileIsSameFile(source, destFile) || !tev::platform::GetFileInformation(source, information))
        return false;
    const Target target = FindTarget(destFile);
    const std::unique_ptr<ContainedFile> file =
        target.m_folder != nullptr ? target.m_folder->CreateFile(target.m_name) : nullptr;
    if (file == nullptr)
        return false;

    unsigned __int64 written = 0;
    bool isWanted = ReportProgress(0, information.size);
    const auto write = [&](const void* bytes, std::size_t count, unsigned __int64 consumed) {
        written += count;
        isWanted = m_limits.Allows(written, information.size) && file->Write(bytes, count) &&
                   ReportProgress(consumed, information.size);
        return isWanted;
    };
    if (!isWanted)
        return false;
    const bool isGZip = stream == Stream::kGZip;
    const UnpackResult result =
        isGZip ? tev::platform::UnpackGzip(source, write) : tev::platform::UnpackZstd(source, write);
    // A gzip stream counts as it is: what comes before its damage may be all that is left of a file.
    const bool isUnread = result == UnpackResult::SourceFailed && written == 0;
    if (!isWanted || isUnread || (result != UnpackResult::Done && !isGZip))
        return false;

    m_files->Start(*target.m_folder);
    m_files->Files().push_back({target.m_name, {}});
    m_extractedFiles.Add(destFile);
    if (file->Keep(std::nullopt, m_files->Files().back().m_identity))
        return true;
    m_files->Forget();
    m_extractedFiles.RemoveAll();
    return false;
}

bool CMiniZip::IsGZipFile(const CXTString<wchar_t>& path)
{
    Magic magic = {};
    return Try([&] { return ReadMagic(path, magic) >= 2 && magic[0] == 0x1F && magic[1] == 0x8B; });
}

bool CMiniZip::IsZStdFile(const CXTString<wchar_t>& path)
{
    constexpr Magic kLittleEndian = {0x28, 0xB5, 0x2F, 0xFD};
    constexpr Magic kBigEndian = {0xFD, 0x2F, 0xB5, 0x28}; // accepted deliberately
    Magic magic = {};
    return Try(
        [&] { return ReadMagic(path, magic) == magic.size() && (magic == kLittleEndian || magic == kBigEndian); });
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
        m_cancelled = ShouldCancelThread(0) || !OnProgress(processed, total);
    }
    catch (CXException* exception)
    {
        exception->Delete();
        m_cancelled = true;
    }
    catch (...) // nothing may leave the threads that work here
    {
        m_cancelled = true;
    }
    return !m_cancelled;
}

/// Files that were kept are on their own from now on.
void CMiniZip::StartAnew()
{
    if (!m_extractedFiles.IsEmpty() || !m_files->Files().empty())
        Clean();
    m_files->Forget();
    m_extractedFiles.RemoveAll();
    m_skippedEntries.clear();
    m_temporaryFolderCreated = false;
    m_cancelled = false;
}
