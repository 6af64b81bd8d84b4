#include "crash/CrashPackage.h"

#include "crash/CCrashHandler.h"
#include "files/CXFile.h"
#include "objects/CXException.h"
#include "platform/CrashDumps.h"
#include "platform/FatalSignals.h"
#include "platform/FileInformation.h"
#include "platform/PathNames.h"
#include "services/Paths.h"
#include "zip/CZip.h"
#include "zip/EntryName.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace
{
using tev::CrashRecord;
namespace fs = std::filesystem;

constexpr std::string_view kMagic = "TevTools crash record";
constexpr std::string_view kVersion = "1";
constexpr std::string_view kMode = "mode";
constexpr std::string_view kFolder = "folder";
constexpr std::string_view kWrittenDump = "written";
constexpr std::string_view kDump = "dump";
constexpr std::string_view kLog = "log";
constexpr std::string_view kFile = "file";
constexpr std::uintmax_t kLargestRecord = std::uintmax_t{64} << 20;
constexpr int kMostNumbers = 100000; ///< appended to a name that is taken
constexpr unsigned kReadAnyone = CXFile::modeRead | CXFile::shareDenyNone | CXFile::modeNoInherit;

fs::path SystemPath(const CXTString<wchar_t>& path)
{
    std::string name;
    return tev::platform::WidePathToSystem(path, name) ? fs::path(name) : fs::path();
}

CPathString WidePath(const fs::path& path)
{
    return CPathString(tev::platform::SystemPathToWide(path.c_str()).c_str());
}

std::string Absolute(const CXTString<wchar_t>& path)
{
    std::error_code failure;
    const fs::path name = SystemPath(path);
    return name.empty() ? std::string() : fs::absolute(name, failure).string();
}

bool CanBePacked(const CPathString& path)
{
    tev::platform::FileInformation information;
    if (!tev::platform::GetFileInformation(path, information) || information.kind != tev::platform::FileKind::File)
        return false;
    CXFile file(false);
    return file.Open(path, kReadAnyone) && file.GetLength() < CCrashHandler::GetFileSizeLimit();
}

/// Files on a damaged disk can be opened, but not read.
bool CanBeReadToItsEnd(const CPathString& path)
{
    constexpr unsigned kBlockSize = 1u << 16;
    return tev::Attempt([&] {
        CXFile file(path, kReadAnyone);
        std::vector<char> block(kBlockSize);
        while (file.Read(block.data(), kBlockSize) != 0)
        {
        }
    });
}

/// The file's own name, made unique among those before by a number.
CXTString<wchar_t> NameInArchive(const CPathString& path, tev::EntryNames& taken)
{
    const auto claim = [&taken](const CXTString<wchar_t>& name) {
        std::string text;
        const auto safe =
            tev::platform::WidePathToSystem(name, text) ? tev::SafeEntryName(text) : std::optional<tev::EntryName>();
        return safe && safe->m_path == text && taken.Claim(safe->m_path, false);
    };
    CPathString name = path.GetFileName();
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

/// An archive while it is packed. Only this user may read it, because a dump holds memory contents.
class UnnamedArchive
{
public:
    explicit UnnamedArchive(const CPathString& path) : m_name(SystemPath(path))
    {
        fs::remove(m_name);
        std::ofstream(m_name).close(); // the archive that replaces it gets its permissions
        std::error_code failure;       // on file systems without permissions
        fs::permissions(m_name, fs::perms::owner_read | fs::perms::owner_write, failure);
    }
    ~UnnamedArchive()
    {
        std::error_code failure; // also after the archive got its final name
        fs::remove(m_name, failure);
    }
    UnnamedArchive(const UnnamedArchive&) = delete;
    UnnamedArchive& operator=(const UnnamedArchive&) = delete;

    const fs::path& Name() const noexcept { return m_name; }

private:
    const fs::path m_name;
};

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
        fs::create_hard_link(packed, SystemPath(path), failure);
        if (failure == std::errc::file_exists)
            continue;
        if (failure)
            fs::rename(packed, SystemPath(path));
        return path;
    }
    return {};
}

/// Throws when the archive cannot be made.
CPathString Pack(const CPathString& folder, bool isCrash, const std::vector<XReportFile>& files, bool isReadFirst)
{
    if (folder.IsEmpty())
        CXInvalidArgException::Throw();
    const CPathString path = folder / (isCrash ? L"DebugReport.zip" : L"FileReport.zip");
    CPathString packed;
    packed.Format(L"%s.%u", path.GetConstBuffer(), tev::platform::ProcessId());
    const UnnamedArchive unnamed(packed);
    CZip zip;
    zip.Open(packed, zipCreate, true, nullptr);
    tev::EntryNames taken;
    for (const XReportFile& file : files)
    {
        if (!CanBePacked(file.m_path) || (isReadFirst && !CanBeReadToItsEnd(file.m_path)))
            continue;
        const CXTString<wchar_t> name = NameInArchive(file.m_path, taken);
        if (!name.IsEmpty())
            zip.AddNewFile(file.m_path, name.GetConstBuffer(), zipLevelDefault);
    }
    zip.Close(true);
    return GiveName(unnamed.Name(), path);
}
} // namespace

namespace tev
{
std::string ComposeRecord(const CrashRecord& record)
{
    std::string bytes;
    const auto add = [&bytes](std::string_view key, const std::string& value) {
        bytes.append(key).append(1, '\0').append(value).append(1, '\0');
    };
    add(kMagic, std::string(kVersion));
    add(kMode, std::to_string(record.m_isCrash ? xCrashReport : xFilesReport));
    add(kFolder, Absolute(record.m_archiveFolder));
    add(kWrittenDump, Absolute(record.m_writtenDump));
    add(kDump, Absolute(record.m_dump));
    for (const XReportFile& file : record.m_files)
        add(kFile, Absolute(file.m_path));
    return bytes;
}

bool ParseRecord(std::string_view bytes, CrashRecord& record)
{
    record = {};
    const auto take = [&bytes] {
        const std::size_t length = std::min(bytes.find('\0'), bytes.size());
        std::string text(bytes.substr(0, length));
        bytes.remove_prefix(std::min(length + 1, bytes.size()));
        return text;
    };
    if (take() != kMagic || take() != kVersion)
        return false;
    struct Place
    {
        std::string_view key;
        CPathString CrashRecord::*path;
    };
    constexpr Place kPlaces[] = {{kFolder, &CrashRecord::m_archiveFolder},
                                 {kWrittenDump, &CrashRecord::m_writtenDump},
                                 {kDump, &CrashRecord::m_dump},
                                 {kLog, &CrashRecord::m_log}};
    while (!bytes.empty())
    {
        const std::string key = take();
        const std::string value = take();
        if (key == kMode)
            record.m_isCrash = value == std::to_string(xCrashReport);
        else if (key == kFile)
            record.m_files.push_back({WidePath(value), {}});
        for (const Place& place : kPlaces)
        {
            if (key == place.key)
                record.*place.path = WidePath(value);
        }
    }
    return !record.m_archiveFolder.IsEmpty();
}

void AddOwnFiles(CrashRecord& record)
{
    if (!record.m_writtenDump.IsEmpty() && fileIsFile(record.m_writtenDump))
    {
        std::error_code failure;
        fs::rename(SystemPath(record.m_writtenDump), SystemPath(record.m_dump), failure);
        if (failure)
            record.m_dump = record.m_writtenDump;
    }
    const auto add = [&record](const CPathString& path, unsigned description) {
        XReportFile file = {path, {}};
        file.m_description.LoadString(description);
        record.m_files.push_back(file);
    };
    if (record.m_isCrash && !record.m_dump.IsEmpty())
        add(record.m_dump, kTextDump);
    if (!record.m_log.IsEmpty())
        add(record.m_log, kTextLog);
}

CPathString PackReport(const CPathString& folder, bool isCrash, const std::vector<XReportFile>& files) noexcept
{
    CPathString path;
    // A file that disappears or cannot be read while the archive is written makes the whole archive fail: further attempts
    // read each file before.
    constexpr int kMostAttempts = 3;
    for (int attempt = 0; attempt < kMostAttempts && path.IsEmpty(); ++attempt)
        Attempt([&] { path = Pack(folder, isCrash, files, attempt != 0); });
    return !path.IsEmpty() && fileIsFile(path) ? path : CPathString();
}

bool FinishReport(const CPathString& recordPath) noexcept
{
    bool isFinished = false;
    const auto finish = [&] {
        const fs::path name = SystemPath(recordPath);
        std::error_code failure;
        const std::uintmax_t size = fs::file_size(name, failure);
        if (failure || size > kLargestRecord)
        {
            isFinished = !fs::exists(name);
            return;
        }
        std::ifstream file(name, std::ios::binary);
        const std::string bytes(std::istreambuf_iterator<char>(file), {});
        CrashRecord record;
        if (ParseRecord(bytes, record))
        {
            AddOwnFiles(record);
            const bool hasAny = std::any_of(record.m_files.begin(), record.m_files.end(),
                                            [](const XReportFile& packed) { return CanBePacked(packed.m_path); });
            if (hasAny && PackReport(record.m_archiveFolder, record.m_isCrash, record.m_files).IsEmpty())
                return;
        }
        isFinished = fs::remove(name);
    };
    return Attempt(finish) && isFinished;
}

void FinishLeftReports(const CPathString& folder, const CXTString<wchar_t>& product) noexcept
{
    Attempt([&] {
        const std::string start = SystemPath(product).string() + ".";
        const std::string end = SystemPath(kRecordExtension).string();
        std::error_code failure;
        std::vector<fs::path> found;
        for (const fs::directory_entry& entry : fs::directory_iterator(SystemPath(folder), failure))
        {
            const std::string name = entry.path().filename().string();
            if (name.size() > start.size() + end.size() && name.compare(0, start.size(), start) == 0 &&
                name.compare(name.size() - end.size(), end.size(), end) == 0)
                found.push_back(entry.path());
        }
        for (const fs::path& path : found)
        {
            const platform::LeftRecord left(path.string());
            if (left.IsHeld())
                FinishReport(WidePath(path));
        }
    });
}
} // namespace tev

// The helper process finds this function by its name.
extern "C" TEVTOOLS_API bool XFinishCrashReport(const char* recordPath) noexcept
{
    return tev::FinishReport(CPathString(tev::platform::SystemPathToWide(recordPath).c_str()));
}
