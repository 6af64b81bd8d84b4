#include "tools/tev/UnpackCommand.h"

#include "services/Paths.h"
#include "tools/tev/CommandLine.h"
#include "tools/tev/Progress.h"
#include "tools/tev/System.h"
#include "tools/tev/Table.h"
#include "tools/tev/Tool.h"
#include "values/CXTime.h"
#include "zip/CMiniZip.h"
#include "zip/CZip.h"
#include "zip/ZipTexts.h"

#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tev::tool
{
namespace
{
struct UnpackOptions
{
    std::string m_file;
    std::string m_destination;
    std::string m_password;
    bool m_list = false;
    bool m_keep = false;
};

/// An extraction that shows its progress, and ends when the user interrupts it.
class ShownExtraction : public CMiniZip
{
public:
    explicit ShownExtraction(const std::string& name) : m_progress(name, 0, Progress::Beside::kNothing) {}

protected:
    bool OnProgress(unsigned __int64 processed, unsigned __int64 total) override
    {
        m_progress.SetTotal(total);
        m_progress.Show(processed);
        return !EndingSignalsHeld::HasCome();
    }

private:
    Progress m_progress;
};

template <class Reason>
std::string TextOf(Reason reason)
{
    return Narrow(XGetText(reason));
}

/// The name of what is in a compressed file, by the name of that one.
std::string NameWithin(const std::string& file)
{
    constexpr std::array<std::pair<const char*, const char*>, 6> kEndings = {
        {{".gz", ""}, {".zst", ""}, {".zstd", ""}, {".tgz", ".tar"}, {".tzst", ".tar"}, {".svgz", ".svg"}}};
    const std::filesystem::path name = SystemPath(file).filename();
    for (const auto& [ending, replacement] : kEndings)
    {
        if (name.extension() == ending)
            return name.stem().string() + replacement;
    }
    return name.string() + ".unpacked";
}

/// The destination of a compressed file: the given file, or a file in the given folder.
std::string DestinationFile(const UnpackOptions& options)
{
    const std::filesystem::path given = SystemPath(options.m_destination);
    const bool isFolder = given.empty() || given.filename().empty() || std::filesystem::is_directory(given);
    return isFolder ? (given / NameWithin(options.m_file)).string() : given.string();
}

void PrintList(Session& session, const std::vector<Row>& rows)
{
    if (!IsTerminal(kStandardOutput))
    {
        for (const Row& row : rows)
            PrintFields(session.m_output, row);
        return;
    }
    PrintTable(session.m_output, {{"SIZE", true}, {"PACKED", true}, {"CHANGED"}, {"NAME"}}, rows);
}

/// The size of the contents is not known of a compressed file that is no archive.
void ListStream(Session& session, const UnpackOptions& options)
{
    const auto size = std::filesystem::file_size(SystemPath(options.m_file));
    PrintList(session, {{"-", std::to_string(size), "-", NameWithin(options.m_file)}});
}

void ListArchive(Session& session, const UnpackOptions& options)
{
    CZip zip;
    if (!zip.Open(Widen(options.m_file).c_str(), zipOpenReadOnly, false, nullptr))
        throw Failure(options.m_file, TextOf(CXExtractionFailure::kNoArchive));
    std::vector<Row> rows;
    const auto count = static_cast<unsigned>(zip.GetCount(false));
    for (unsigned i = 0; i < count; ++i)
    {
        CZipFileInfo info;
        if (!zip.GetFileInfo(info, i))
        {
            Report(session, options.m_file, "entry " + std::to_string(i + 1) + " is damaged");
            session.m_exitCode = kExitFailed;
            continue;
        }
        const CXTString<wchar_t> changed = CXTime(info.GetModifiedTime()).Format(L"%Y-%m-%d %H:%M:%S");
        rows.push_back({std::to_string(info.GetUncompressedSize()), std::to_string(info.GetCompressedSize()),
                        Narrow(changed), Printable(info.GetFileName())});
    }
    PrintList(session, rows);
}

void PrintWritten(Session& session, const CMiniZip& zip)
{
    for (const CXTString<wchar_t>& file : zip.GetExtractedFiles())
    {
        std::string name = IsTerminal(kStandardOutput) ? Printable(file) : Narrow(file);
        if (name.compare(0, 2, "./") == 0)
            name.erase(0, 2);
        session.m_output.Write(name + "\n");
    }
}

void Unpack(Session& session, const UnpackOptions& options, bool isStream)
{
    const EndingSignalsHeld held; // partial files must be removed first
    ShownExtraction zip(options.m_file);
    zip.SetPassword(Widen(options.m_password).c_str());
    const std::wstring source = Widen(options.m_file);
    const std::string folder = options.m_destination.empty() ? "." : options.m_destination;
    const std::string destination = isStream ? DestinationFile(options) : folder;
    const bool isDone = isStream ? zip.ExtractZFile(source.c_str(), Widen(destination).c_str(), options.m_keep)
                                 : zip.ExtractZip(source.c_str(), Widen(destination).c_str(), options.m_keep);
    if (isDone)
        zip.KeepFiles();
    if (isDone || options.m_keep)
        PrintWritten(session, zip);
    for (const CXSkippedEntry& entry : zip.GetSkippedEntries())
    {
        Report(session, options.m_file, "skipped " + Printable(entry.m_name) + ": " + TextOf(entry.m_reason));
        session.m_exitCode = kExitFailed;
    }
    const CXExtractionFailure failure = zip.GetFailure();
    if (zip.GetDamage() != CXStreamDamage::kNone)
        throw Failure(options.m_file, TextOf(zip.GetDamage()));
    if (!isDone && failure == CXExtractionFailure::kNotWritable)
        throw Failure(destination, TextOf(failure));
    if (!isDone)
        throw Failure(options.m_file, TextOf(failure));
}

void Run(Session& session, const UnpackOptions& options)
{
    Attempt(session, options.m_file, [&] {
        const std::wstring file = Widen(options.m_file);
        if (!fileExists(file.c_str()))
            throw Failure(options.m_file, TextOf(CXExtractionFailure::kNotFound));
        const bool isStream = CMiniZip::IsZFile(file.c_str());
        if (!options.m_list)
            Unpack(session, options, isStream);
        else if (isStream)
            ListStream(session, options);
        else
            ListArchive(session, options);
    });
}
} // namespace

void AddUnpackCommand(const ToolCommand& tool, Session& session)
{
    const auto options = std::make_shared<UnpackOptions>();
    const ToolCommand command = tool.AddCommand("unpack", "Unpack a ZIP archive, a gzip or a Zstandard file");
    command.AddArgument("FILE", options->m_file, "The compressed file; its kind is recognised by its first bytes")
        .Required();
    command.AddArgument("DEST", options->m_destination,
                        "The folder to unpack to, which is created where it is missing; for a file that is no archive\n"
                        "the file to write, or a folder. The current folder if not given");
    command.AddFlag("--list", options->m_list, "List what is in FILE, and write nothing");
    command.AddOption("--password", options->m_password, "Password of encrypted entries").ValueName("TEXT");
    command.AddFlag("--keep", options->m_keep,
                    "Keep the files that are complete when unpacking fails or is interrupted;\nelse they are removed");
    command.Footer("Prints the files that it wrote. Existing files are replaced. Nothing is written\n"
                   "outside DEST: entries with unsafe names, links and damaged entries are skipped and reported, and\n"
                   "the exit code is then 1. What can be read of a damaged gzip file is kept.\n"
                   "--list prints the size, the compressed size, the time of the last change and the name, separated\n"
                   "by tabs where the output is no terminal.");
    command.OnRun([&session, options] { Run(session, *options); });
}
} // namespace tev::tool
