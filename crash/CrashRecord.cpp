#include "crash/CrashRecord.h"

#include "crash/Attempt.h"
#include "crash/CCrashHandler.h"
#include "crash/CrashPaths.h"
#include "platform/CrashDumps.h"
#include "services/Paths.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace tev
{
namespace
{
namespace fs = std::filesystem;

constexpr std::string_view kMagic = "TevTools crash record";
constexpr std::string_view kVersion = "1";
constexpr std::string_view kMode = "mode";
constexpr std::string_view kFile = "file";
constexpr const char* kArchive = "archive";

struct PathEntry
{
    std::string_view key;
    CPathString CrashRecord::*path;
};
constexpr PathEntry kPaths[] = {{"folder", &CrashRecord::m_archiveFolder},
                                {"written", &CrashRecord::m_writtenDump},
                                {"dump", &CrashRecord::m_dump},
                                {kLogKey, &CrashRecord::m_log},
                                {kArchive, &CrashRecord::m_made}};

struct TextEntry
{
    std::string_view key;
    CXTString<wchar_t> CrashRecord::*text;
};
constexpr TextEntry kTexts[] = {{"product", &CrashRecord::m_product},
                                {"name", &CrashRecord::m_name},
                                {"version", &CrashRecord::m_version},
                                {"dialog", &CrashRecord::m_dialogLanguage},
                                {"support", &CrashRecord::m_support}};

std::string Absolute(const CXTString<wchar_t>& path)
{
    std::error_code failure;
    const fs::path name = SystemFilePath(path);
    return name.empty() ? std::string() : fs::absolute(name, failure).string();
}

std::string TakeText(std::string_view& bytes)
{
    const std::size_t length = std::min(bytes.find('\0'), bytes.size());
    std::string text(bytes.substr(0, length));
    bytes.remove_prefix(std::min(length + 1, bytes.size()));
    return text;
}

template <class ENTRY, std::size_t COUNT>
const ENTRY* FindEntry(const ENTRY (&entries)[COUNT], std::string_view key)
{
    const auto* const found =
        std::find_if(entries, entries + COUNT, [key](const ENTRY& entry) { return entry.key == key; });
    return found == entries + COUNT ? nullptr : found;
}

void Move(const CPathString& from, const CPathString& to)
{
    std::error_code failure;
    fs::rename(SystemFilePath(from), SystemFilePath(to), failure);
    if (!failure)
        return;
    // Over the border of a file system.
    fs::copy_file(SystemFilePath(from), SystemFilePath(to), fs::copy_options::overwrite_existing);
    fs::remove(SystemFilePath(from));
}
} // namespace

std::string ComposeRecord(const CrashRecord& record)
{
    std::string bytes;
    const auto add = [&bytes](std::string_view key, const std::string& value) {
        bytes.append(key).append(1, '\0').append(value).append(1, '\0');
    };
    add(kMagic, std::string(kVersion));
    add(kMode, std::to_string(record.m_isCrash ? xCrashReport : xFilesReport));
    for (const PathEntry& entry : kPaths)
    {
        if (!(record.*entry.path).IsEmpty())
            add(entry.key, Absolute(record.*entry.path));
    }
    for (const TextEntry& entry : kTexts)
        add(entry.key, Utf8(record.*entry.text));
    for (const XReportFile& file : record.m_files)
        add(kFile, Absolute(file.m_path));
    return bytes;
}

bool ParseRecord(std::string_view bytes, CrashRecord& record)
{
    record = {};
    if (TakeText(bytes) != kMagic || TakeText(bytes) != kVersion)
        return false;
    AddNotes(bytes, record);
    return true;
}

void AddNotes(std::string_view notes, CrashRecord& record)
{
    while (!notes.empty())
    {
        const std::string key = TakeText(notes);
        std::string value = TakeText(notes);
        if (key == kMode)
            record.m_isCrash = value == std::to_string(xCrashReport);
        else if (key == kFile)
            record.m_files.push_back({WideFilePath(value), {}});
        else if (const PathEntry* const path = FindEntry(kPaths, key))
            record.*path->path = WideFilePath(value);
        else if (const TextEntry* const text = FindEntry(kTexts, key))
            record.*text->text = FromUtf8(value);
        else
            record.m_details.emplace_back(key, std::move(value));
    }
}

bool AddDetailTo(const CPathString& recordPath, const char* key, const std::string& value) noexcept
{
    bool isAdded = false;
    Attempt([&] {
        // Creates no file: a record that has been removed belongs to a finished report.
        std::fstream record(SystemFilePath(recordPath),
                            std::ios::binary | std::ios::in | std::ios::out | std::ios::ate);
        record << key << '\0' << value << '\0' << std::flush;
        isAdded = record.good();
    });
    return isAdded;
}

bool AddArchiveTo(const CPathString& recordPath, const CPathString& archive) noexcept
{
    bool isAdded = false;
    Attempt([&] { isAdded = AddDetailTo(recordPath, kArchive, Absolute(archive)); });
    return isAdded;
}

// They are those of a signal, which is noted with them.
unsigned PointerFlagOf(const CrashRecord& record) noexcept
{
    const bool hasPointers = std::any_of(record.m_details.begin(), record.m_details.end(),
                                         [](const auto& detail) { return detail.first == crashdetail::kSignal; });
    return hasPointers ? 0 : xCrashWithoutPointers;
}

CPathString DetailsPath(const CrashRecord& record)
{
    const CXTString<wchar_t> extension = record.m_dump.GetExtension();
    return CPathString(record.m_dump.Left(record.m_dump.GetLength() - extension.GetLength()) + L".txt");
}

void AddOwnFiles(CrashRecord& record)
{
    const auto add = [&record](const CPathString& path, unsigned description) {
        XReportFile file = {path, {}};
        file.m_description.LoadString(description);
        record.m_files.push_back(file);
    };
    const bool isMade = !record.m_made.IsEmpty();
    if (!isMade && !record.m_writtenDump.IsEmpty() && fileIsFile(record.m_writtenDump) &&
        record.m_dump != record.m_writtenDump && !Attempt([&] { Move(record.m_writtenDump, record.m_dump); }))
        record.m_dump = record.m_writtenDump;
    if (record.m_isCrash && !record.m_dump.IsEmpty())
    {
        if (fileIsFile(record.m_dump))
            add(record.m_dump, kTextDump);
        const CPathString details = DetailsPath(record);
        Attempt([&] {
            if (isMade ? fileIsFile(details)
                       : platform::WritePrivateFile(SystemFilePath(details).c_str(), ComposeDetails(record)))
                add(details, kTextDetails);
        });
    }
    if (!record.m_log.IsEmpty())
        add(record.m_log, kTextLog);
}

void RemoveUnplacedDump(const CrashRecord& record) noexcept
{
    if (record.m_dump.IsEmpty() || record.m_dump != record.m_writtenDump)
        return;
    Attempt([&record] { RemoveReportFile(DetailsPath(record)); });
    RemoveReportFile(record.m_dump);
}
} // namespace tev
