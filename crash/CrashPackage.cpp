#include "crash/CrashPackage.h"

#include "crash/Attempt.h"
#include "crash/CCrashHandler.h"
#include "crash/CrashPaths.h"
#include "files/CXFile.h"
#include "objects/CXException.h"
#include "platform/CrashDumps.h"
#include "platform/FileInformation.h"
#include "platform/PathNames.h"
#include "services/Paths.h"
#include "zip/CZip.h"
#include "zip/EntryName.h"

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <random>

namespace
{
using tev::CrashRecord;
using tev::SystemFilePath;
namespace fs = std::filesystem;

constexpr std::uintmax_t kLargestRecord = std::uintmax_t{64} << 20;
constexpr int kMostNumbers = 100000; ///< appended to a name that is taken

bool CanBePacked(const CPathString& path)
{
    tev::platform::FileInformation information;
    if (!tev::platform::GetFileInformation(path, information) || information.kind != tev::platform::FileKind::File)
        return false;
    CXFile file(false);
    return file.Open(path, tev::kReadAnyone) && file.GetLength() < CCrashHandler::GetFileSizeLimit();
}

/// Files on a damaged disk can be opened, but not read.
bool CanBeReadToItsEnd(const CPathString& path)
{
    constexpr unsigned kBlockSize = 1u << 16;
    return tev::Attempt([&] {
        CXFile file(path, tev::kReadAnyone);
        std::vector<char> block(kBlockSize);
        while (file.Read(block.data(), kBlockSize) != 0)
        {
        }
    });
}

/// The name in the archive: by default the file's own, made unique among those before by a number.
CXTString<wchar_t> NameInArchive(const CPathString& wanted, tev::EntryNames& taken)
{
    const auto claim = [&taken](const CXTString<wchar_t>& name) {
        std::string text;
        const auto safe =
            tev::platform::WidePathToSystem(name, text) ? tev::SafeEntryName(text) : std::optional<tev::EntryName>();
        return safe && safe->m_path == text && taken.Claim(safe->m_path, false);
    };
    CPathString name = wanted.GetFileName();
    if (claim(name))
        return name;
    // A name that is not safe in an archive does not become so by a number: then another base is used.
    const CPathString bases[] = {name, CPathString(CXTString<wchar_t>(L"file") + name.GetExtension()), L"file"};
    for (const CPathString& base : bases)
    {
        std::string text;
        if (!tev::platform::WidePathToSystem(base, text) || !tev::SafeEntryName(text))
            continue;
        for (int number = 1; number < kMostNumbers; ++number)
        {
            CPathString numbered;
            numbered.Format(L"%s (%d)%s", base.GetTitle().GetConstBuffer(), number,
                            base.GetExtension().GetConstBuffer());
            if (claim(numbered))
                return numbered;
        }
    }
    return {};
}

/// Gives a packed archive an unused name. Several processes may report at the same time: the name is taken atomically
/// where the file system supports hard links. Throws.
CPathString GiveName(const fs::path& packed, const CPathString& wanted)
{
    const CXTString<wchar_t> extension = wanted.GetExtension();
    const CXTString<wchar_t> start = wanted.Left(wanted.GetLength() - extension.GetLength());
    for (int number = 0; number < kMostNumbers; ++number)
    {
        CPathString path = wanted;
        if (number != 0)
            path.Format(L"%s (%d)%s", start.GetConstBuffer(), number, extension.GetConstBuffer());
        if (fileExists(path))
            continue;
        std::error_code failure;
        fs::create_hard_link(packed, SystemFilePath(path), failure);
        if (failure == std::errc::file_exists)
            continue;
        if (failure)
            fs::rename(packed, SystemFilePath(path));
        return path;
    }
    return {};
}

/// The dump and the details have the application's name in the archive, whatever they are called on the disk.
CPathString WantedName(const CrashRecord& record, const XReportFile& file)
{
    const bool isDump = file.m_path == record.m_dump;
    if (record.m_product.IsEmpty() || (!isDump && file.m_path != tev::DetailsPath(record)))
        return file.m_path;
    return CPathString(record.m_product + (isDump ? L".dmp" : L".txt"));
}

/// Throws when the archive cannot be made.
CPathString Pack(const CrashRecord& record, const CPathString& path, bool isReadFirst)
{
    const tev::PrivateFolder folder(SystemFilePath(path));
    const fs::path packed = folder.Path() / "report.zip";
    // The archive that replaces it gets its permissions: a dump holds memory contents.
    static_cast<void>(tev::platform::WritePrivateFile(packed.c_str(), {}));
    CZip zip;
    zip.Open(tev::WideFilePath(packed), zipCreate, true, nullptr);
    tev::EntryNames taken;
    for (const XReportFile& file : record.m_files)
    {
        if (!CanBePacked(file.m_path) || (isReadFirst && !CanBeReadToItsEnd(file.m_path)))
            continue;
        const CXTString<wchar_t> name = NameInArchive(WantedName(record, file), taken);
        if (!name.IsEmpty())
            zip.AddNewFile(file.m_path, name.GetConstBuffer(), zipLevelDefault);
    }
    zip.Close(true);
    return GiveName(packed, path);
}

const wchar_t* ArchiveName(const CrashRecord& record)
{
    return record.m_isCrash ? L"DebugReport.zip" : L"FileReport.zip";
}

bool EndsWith(const std::string& text, const std::string& end)
{
    return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string ReadRecord(const fs::path& name)
{
    std::ifstream file(name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

enum class FinishedBy
{
    Helper,
    NextStart ///< which asks the user then
};

/// Makes the report of a record, where that is still to be done, and removes the record; the helper leaves one whose user was
/// being asked. True also when the record has been removed already.
bool FinishReport(const CPathString& recordPath, FinishedBy by, tev::LeftReport& report) noexcept
{
    bool isFinished = false;
    const auto finish = [&] {
        const fs::path name = SystemFilePath(recordPath);
        std::error_code failure;
        const std::uintmax_t size = fs::file_size(name, failure);
        if (failure || size > kLargestRecord)
        {
            isFinished = !fs::exists(name);
            return;
        }
        CrashRecord& record = report.m_record;
        if (ParseRecord(ReadRecord(name), record))
        {
            if (fileIsFile(record.m_made))
                report.m_archive = record.m_made;
            if (by == FinishedBy::Helper && (isFinished = !record.m_made.IsEmpty()))
                return;
            AddOwnFiles(record);
            const bool hasAny = std::any_of(record.m_files.begin(), record.m_files.end(),
                                            [](const XReportFile& packed) { return CanBePacked(packed.m_path); });
            if (hasAny && record.m_made.IsEmpty() && (report.m_archive = tev::PackReport(record)).IsEmpty())
                return;
            if (by == FinishedBy::Helper)
                RemoveUnplacedDump(record);
            // What the crashed process began to pack.
            if (!record.m_archiveFolder.IsEmpty())
                tev::RemovePrivateFolder(SystemFilePath(record.m_archiveFolder / ArchiveName(record)),
                                         tev::ProcessOfRecord(recordPath));
        }
        isFinished = fs::remove(name);
    };
    return tev::Attempt(finish) && isFinished;
}
} // namespace

namespace tev
{
CPathString TemporaryFolder()
{
    std::error_code failure;
    const fs::path folder = fs::temp_directory_path(failure);
    return WideFilePath(failure ? fs::path(P_tmpdir) : folder); // the one that the environment names may not exist
}

CXTString<wchar_t> RandomName()
{
    std::random_device random;
    CXTString<wchar_t> name;
    name.Format(L"%08x%08x", random(), random());
    return name;
}

CPathString TemporaryReport(const CrashRecord& record)
{
    CXTString<wchar_t> name;
    name.Format(L"%s.%s.%s", record.m_product.GetConstBuffer(), RandomName().GetConstBuffer(), ArchiveName(record));
    return TemporaryFolder() / name;
}

CPathString PackReport(const CrashRecord& record) noexcept
{
    CPathString path;
    // A file that disappears or cannot be read while the archive is written makes the whole archive fail: further attempts
    // read each file before.
    constexpr int kMostAttempts = 3;
    const auto pack = [&](const CPathString& wanted) {
        for (int attempt = 0; attempt < kMostAttempts && path.IsEmpty(); ++attempt)
            Attempt([&] { path = Pack(record, wanted, attempt != 0); });
        if (!path.IsEmpty() && !fileIsFile(path))
            path.Empty();
    };
    if (!record.m_archiveFolder.IsEmpty())
        Attempt([&] { pack(record.m_archiveFolder / ArchiveName(record)); });
    if (path.IsEmpty())
        Attempt([&] { pack(TemporaryReport(record)); });
    return path;
}

unsigned ProcessOfRecord(const CPathString& recordPath)
{
    const std::wstring name(recordPath.GetTitle().GetConstBuffer());
    return static_cast<unsigned>(std::wcstoul(name.c_str() + name.rfind(L'.') + 1, nullptr, 10));
}

void FinishLeftReports(const CPathString& folder, const CXTString<wchar_t>& product,
                       std::vector<LeftReport>& reports) noexcept
{
    Attempt([&] {
        const std::string start = SystemFilePath(product).string() + ".";
        const std::string end = SystemFilePath(kRecordExtension).string();
        std::error_code failure;
        std::vector<fs::path> found;
        for (const fs::directory_entry& entry : fs::directory_iterator(SystemFilePath(folder), failure))
        {
            const std::string name = entry.path().filename().string();
            if (name.compare(0, start.size(), start) == 0 && EndsWith(name, end))
                found.push_back(entry.path());
        }
        for (const fs::path& path : found)
        {
            const platform::LeftRecord left(path.string());
            LeftReport report;
            if (left.IsHeld() && FinishReport(WideFilePath(path), FinishedBy::NextStart, report))
                reports.push_back(std::move(report));
        }
    });
}
} // namespace tev

// The helper process finds this function by its name.
extern "C" TEVTOOLS_API bool XFinishCrashReport(const char* recordPath, char* reportPath, std::size_t capacity) noexcept
{
    tev::LeftReport report;
    const bool isFinished = FinishReport(tev::WideFilePath(recordPath), FinishedBy::Helper, report);
    if (isFinished && report.m_record.m_made.IsEmpty() && !report.m_archive.IsEmpty())
        tev::ShowByCrashDialog(report.m_record, report.m_archive);
    const std::string path = tev::SystemFilePath(report.m_archive).string();
    reportPath[path.copy(reportPath, capacity - 1)] = '\0';
    return isFinished;
}
