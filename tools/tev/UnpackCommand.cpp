#include "tools/tev/UnpackCommand.h"

#include "services/Paths.h"
#include "tools/tev/CommandLine.h"
#include "tools/tev/Json.h"
#include "tools/tev/Listing.h"
#include "tools/tev/Progress.h"
#include "tools/tev/System.h"
#include "tools/tev/Tool.h"
#include "tools/tev/ZipWork.h"
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
    ListForm m_form; // of the list
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

/// One line of what is in a file. The size and time of what is compressed by itself are not known.
void AddListed(Listing& listing, const std::string& name, std::optional<unsigned __int64> size, unsigned __int64 packed,
               __int64 modified)
{
    const auto row = [&]() -> Row {
        return {size ? std::to_string(*size) : kEmptyField, std::to_string(packed),
                modified != 0 ? Narrow(CXTime(modified).Format(L"%Y-%m-%d %H:%M:%S")) : kEmptyField, name};
    };
    const auto json = [&] {
        return Json::Object({{"name", name},
                             {"size", size ? Json(*size) : Json()},
                             {"packed", packed},
                             {"modified", modified != 0 ? Json(IsoTime(modified)) : Json()}});
    };
    listing.Add(row, json);
}

void ListArchive(Session& session, const UnpackOptions& options, Listing& listing)
{
    CZip zip;
    if (!zip.Open(Widen(options.m_file).c_str(), zipOpenReadOnly, false, nullptr))
        throw Failure(options.m_file, FailureText(zip));
    const auto count = static_cast<unsigned>(zip.GetCount(false));
    for (unsigned i = 0; i < count; ++i)
    {
        CZipFileInfo info;
        if (!zip.GetFileInfo(info, i))
        {
            Report(session, options.m_file, "entry " + std::to_string(i + 1) + ": " + FailureText(zip));
            session.m_exitCode = kExitFailed;
            continue;
        }
        AddListed(listing, Printable(info.GetFileName()), info.GetUncompressedSize(), info.GetCompressedSize(),
                  info.GetModifiedTime());
    }
}

void List(Session& session, const UnpackOptions& options, bool isStream)
{
    Listing listing(session, options.m_form, {{"SIZE", true}, {"PACKED", true}, {"CHANGED"}, {"NAME"}});
    if (isStream)
        AddListed(listing, NameWithin(options.m_file), std::nullopt,
                  std::filesystem::file_size(SystemPath(options.m_file)), 0);
    else
        ListArchive(session, options, listing);
    listing.Finish();
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
        if (options.m_list)
            List(session, options, isStream);
        else
            Unpack(session, options, isStream);
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
    AddListForm(command, options->m_form);
    command.AddOption("--password", options->m_password, "Password of encrypted entries").ValueName("TEXT");
    command.AddFlag("--keep", options->m_keep,
                    "Keep the files that are complete when unpacking fails or is interrupted;\nelse they are removed");
    command.Footer("Prints the files that it wrote. Existing files are replaced. Nothing is written\n"
                   "outside DEST: entries with unsafe names, links and damaged entries are skipped and reported, and\n"
                   "the exit code is then 1. What can be read of a damaged gzip file is kept.\n"
                   "--list prints the size, the compressed size, the time of the last change and the name.");
    command.OnRun([&session, options] { Run(session, *options); });
}
} // namespace tev::tool
