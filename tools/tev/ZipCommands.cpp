#include "tools/tev/ZipCommands.h"

#include "services/Paths.h"
#include "tools/tev/CommandLine.h"
#include "tools/tev/Json.h"
#include "tools/tev/Listing.h"
#include "tools/tev/System.h"
#include "tools/tev/Tool.h"
#include "tools/tev/ZipWork.h"
#include "values/CXTime.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tev::tool
{
namespace
{

const std::map<std::string, XZipEncryption> kEncryptions = {
    {"aes128", XZipEncryption::kAes128},
    {"aes192", XZipEncryption::kAes192},
    {"aes256", XZipEncryption::kAes256},
    {"traditional", XZipEncryption::kTraditional},
};

const std::map<unsigned, std::string> kMethods = {{0, "stored"}, {8, "deflated"}, {9, "deflate64"}, {12, "bzip2"},
                                                  {14, "lzma"},  {93, "zstd"},    {95, "xz"}};

struct ZipOptions
{
    std::string m_archive;
    std::vector<std::string> m_names;
    ListForm m_form;
    bool m_isJson = false;
    std::string m_password;
    std::string m_encryption = "aes256";
    std::string m_folder = ".";
    bool m_flat = false;
    bool m_fullPath = false;
    int m_level = zipLevelDefault;
    std::string m_oldName;
    std::string m_newName;
};

using ZipCommand = void (*)(Session& session, const ZipOptions& options);

void GivePassword(ZipWork& work, const ZipOptions& options)
{
    work.Zip().SetPassword(Widen(options.m_password).c_str(), kEncryptions.at(options.m_encryption));
}

CZipFileInfo Describe(ZipWork& work, unsigned index)
{
    CZipFileInfo info;
    work.Require(work.Zip().GetFileInfo(info, index), "entry " + std::to_string(index));
    return info;
}

std::string MethodText(const CZipFileInfo& info)
{
    const auto method = kMethods.find(info.GetMethod());
    return method != kMethods.end() ? method->second : std::to_string(info.GetMethod());
}

std::string EncryptionText(const CZipFileInfo& info)
{
    if (info.GetEncryption() == XZipEncryption::kNone)
        return kEmptyField;
    for (const auto& [name, encryption] : kEncryptions)
    {
        if (encryption == info.GetEncryption())
            return name;
    }
    return "unknown";
}

Row RowOf(const CZipFileInfo& info)
{
    const std::string modified = Narrow(CXTime(info.GetModifiedTime()).Format(L"%Y-%m-%d %H:%M:%S"));
    return {std::to_string(info.GetUncompressedSize()),
            std::to_string(info.GetCompressedSize()),
            info.GetModifiedTime() != 0 ? modified : kEmptyField,
            info.IsDirectory() ? "folder" : MethodText(info),
            EncryptionText(info),
            Printable(info.GetFileName())};
}

Json ToJson(const CZipFileInfo& info)
{
    const std::string encryption = EncryptionText(info);
    return Json::Object({{"name", info.GetFileName()},
                         {"directory", info.IsDirectory()},
                         {"size", info.GetUncompressedSize()},
                         {"packed", info.GetCompressedSize()},
                         {"modified", info.GetModifiedTime() != 0 ? Json(IsoTime(info.GetModifiedTime())) : Json()},
                         {"method", MethodText(info)},
                         {"encryption", encryption == kEmptyField ? Json() : Json(encryption)}});
}

void RunList(Session& session, const ZipOptions& options)
{
    ZipWork work(options.m_archive, zipOpenReadOnly);
    Listing listing(session, options.m_form,
                    {{"SIZE", true}, {"PACKED", true}, {"MODIFIED"}, {"METHOD"}, {"ENCRYPTION"}, {"NAME"}});
    for (const unsigned index : work.Find(options.m_names))
    {
        const CZipFileInfo info = Describe(work, index);
        listing.Add([&] { return RowOf(info); }, [&] { return ToJson(info); });
    }
    listing.Finish();
}

/// Calls `onEntry` for each of the entries that the user named, also after one of them failed.
template <class Work>
void ForEachEntry(Session& session, const ZipOptions& options, ZipWork& work, Work&& onEntry)
{
    const std::vector<unsigned> indexes = work.Find(options.m_names);
    unsigned __int64 total = 0;
    for (const unsigned index : indexes)
        total += Describe(work, index).GetUncompressedSize();
    work.ExpectBytes(total);
    for (const unsigned index : indexes)
    {
        if (EndingSignalsHeld::HasCome())
            return;
        const std::string name = Printable(Describe(work, index).GetFileName());
        Attempt(session, options.m_archive,
                [&] { work.Require(onEntry(index) == zipExtracted, options.m_archive + ": " + name); });
    }
}

void RunTest(Session& session, const ZipOptions& options)
{
    ZipWork work(options.m_archive, zipOpenReadOnly);
    GivePassword(work, options);
    int sound = 0;
    ForEachEntry(session, options, work, [&](unsigned index) {
        const ZipExtractResult result = work.Zip().TestFile(index);
        sound += result == zipExtracted ? 1 : 0;
        return result;
    });
    if (options.m_isJson)
    {
        session.m_output.Write(
            Json::Object({{"file", options.m_archive}, {"sound", session.m_exitCode == kExitDone}, {"entries", sound}})
                .Line());
        return;
    }
    session.m_output.Write(options.m_archive + (session.m_exitCode == kExitDone ? ": sound, " : ": damaged, ") +
                           std::to_string(sound) + (sound == 1 ? " entry is sound\n" : " entries are sound\n"));
}

void RunExtract(Session& session, const ZipOptions& options)
{
    ZipWork work(options.m_archive, zipOpenReadOnly);
    GivePassword(work, options);
    work.Find(options.m_names); // throws before anything is created
    CreateFolder(options.m_folder);
    const std::wstring folder = Widen(options.m_folder);
    ForEachEntry(session, options, work, [&](unsigned index) {
        return work.Zip().ExtractFile(index, folder.c_str(), !options.m_flat, nullptr, false);
    });
}

/// Changes the archive, once more each time when another program was faster.
template <class Change>
void ChangeArchive(const ZipOptions& options, bool mayBeNew, const Change& change)
{
    constexpr int kMostAttempts = 100;
    bool isSaved = false;
    for (int attempt = 1; !isSaved; ++attempt)
    {
        const bool isNew = mayBeNew && !fileExists(Widen(options.m_archive).c_str());
        ZipWork work(options.m_archive, isNew ? zipCreate : zipOpenReadWrite);
        change(work);
        isSaved = work.Save(attempt < kMostAttempts);
    }
}

void AddFiles(ZipWork& work, const ZipOptions& options)
{
    GivePassword(work, options);
    for (const ZipAdding& file : FilesToAdd(options.m_names, options.m_fullPath))
    {
        if (fileIsSameFile(Widen(file.m_path).c_str(), Widen(options.m_archive).c_str()))
            continue; // the archive lies in the folder that is added
        const bool isAdded = work.Zip().AddNewFile(Widen(file.m_path).c_str(), Widen(file.m_entryName).c_str(),
                                                   static_cast<ZipCompressionLevel>(options.m_level));
        work.Require(isAdded, file.m_path);
    }
}

void RunAdd(Session&, const ZipOptions& options)
{
    RequireFolderOf(options.m_archive);
    ChangeArchive(options, true, [&options](ZipWork& work) { AddFiles(work, options); });
}

void RunDelete(Session&, const ZipOptions& options)
{
    ChangeArchive(options, false, [&options](ZipWork& work) {
        CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&> names;
        for (const unsigned index : work.Find(options.m_names))
            names.Add(Describe(work, index).GetFileName());
        work.Require(work.Zip().DeleteFiles(names), options.m_archive);
    });
}

void RunRename(Session&, const ZipOptions& options)
{
    CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&> oldNames;
    CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&> newNames;
    oldNames.Add(Widen(options.m_oldName).c_str());
    newNames.Add(Widen(options.m_newName).c_str());
    ChangeArchive(options, false, [&](ZipWork& work) {
        work.Require(work.Zip().RenameFiles(oldNames, newNames), options.m_archive + ": " + options.m_oldName);
    });
}

/// Builds the commands, which share their arguments.
class ZipFamily
{
public:
    ZipFamily(const ToolCommand& zip, Session& session) : m_zip(zip), m_session(session) {}

    struct Added
    {
        ToolCommand m_command;
        ZipOptions& m_options;
    };

    Added Add(const char* name, const char* help, ZipCommand run)
    {
        const auto options = std::make_shared<ZipOptions>();
        const ToolCommand command = m_zip.AddCommand(name, help);
        command.AddArgument("ARCHIVE", options->m_archive, "The archive; of a split one the .zip").Required();
        command.OnRun([&session = m_session, options, run] {
            Attempt(session, options->m_archive, [&] { run(session, *options); });
        });
        return {command, *options};
    }

    static ToolOption AddNames(const Added& added, const char* name, const char* help)
    {
        return added.m_command.AddArgument(name, added.m_options.m_names, help);
    }

    static void AddPassword(const Added& added)
    {
        added.m_command.AddOption("--password", added.m_options.m_password, "The password of encrypted entries")
            .ValueName("PASSWORD");
    }

private:
    const ToolCommand& m_zip;
    Session& m_session;
};
} // namespace

void AddZipCommands(const ToolCommand& tool, Session& session)
{
    constexpr const char* kNamesHelp = "The entries, in which * and ? stand for any characters; all if none";
    const ToolCommand zip = tool.AddFamily("zip", "Look into ZIP archives, extract from them and change them");
    ZipFamily family(zip, session);

    const ZipFamily::Added list = family.Add("list", "List entries: sizes, time, method, encryption, name", RunList);
    ZipFamily::AddNames(list, "NAME", kNamesHelp);
    AddListForm(list.m_command, list.m_options.m_form);

    const ZipFamily::Added test =
        family.Add("test", "Read entries and check them; the exit code is 1 where one is damaged", RunTest);
    ZipFamily::AddNames(test, "NAME", kNamesHelp);
    ZipFamily::AddPassword(test);
    AddJsonFlag(test.m_command, test.m_options.m_isJson);

    const ZipFamily::Added extract =
        family.Add("extract", "Extract entries beneath a folder, never outside", RunExtract);
    ZipFamily::AddNames(extract, "NAME", kNamesHelp);
    ZipFamily::AddPassword(extract);
    extract.m_command.AddOption("--to", extract.m_options.m_folder, "The folder; this one if not given")
        .ValueName("FOLDER");
    extract.m_command.AddFlag("--flat", extract.m_options.m_flat, "Without the folders of their names");

    const ZipFamily::Added add =
        family.Add("add", "Add files, and folders with all that is in them, to an archive or a new one", RunAdd);
    ZipFamily::AddNames(add, "FILE", "What is added").Required();
    ZipFamily::AddPassword(add);
    add.m_command.AddOption("--encryption", add.m_options.m_encryption, "How a password encrypts; aes256 if not given")
        .OneOf(kEncryptions)
        .ValueName("aes128|aes192|aes256|traditional");
    add.m_command.AddOption("--level", add.m_options.m_level, "0 stores, 1 is the fastest, 9 the smallest")
        .InRange(static_cast<int>(zipLevelStore), static_cast<int>(zipLevelBest))
        .ValueName("LEVEL");
    add.m_command.AddFlag("--full-path", add.m_options.m_fullPath, "Under the whole path and not only the last name");

    const ZipFamily::Added remove = family.Add("delete", "Delete entries", RunDelete);
    ZipFamily::AddNames(remove, "NAME", "The entries, in which * and ? stand for any characters").Required();

    const ZipFamily::Added rename = family.Add("rename", "Give an entry another name", RunRename);
    rename.m_command.AddArgument("OLD", rename.m_options.m_oldName, "Its name").Required();
    rename.m_command.AddArgument("NEW", rename.m_options.m_newName, "Its new name").Required();
}

} // namespace tev::tool
