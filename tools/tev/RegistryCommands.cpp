#include "tools/tev/RegistryCommands.h"

#include "files/CXFile.h"
#include "files/CXMemFile.h"
#include "objects/LastFailure.h"
#include "settings/CRegUtil.h"
#include "settings/RegistryText.h"
#include "tools/tev/CommandLine.h"
#include "tools/tev/Encodings.h"
#include "tools/tev/Json.h"
#include "tools/tev/Listing.h"
#include "tools/tev/RegistryValues.h"
#include "tools/tev/System.h"
#include "tools/tev/TextSource.h"
#include "tools/tev/Tool.h"

#include <memory>
#include <string>
#include <vector>

namespace tev::tool
{
namespace
{
constexpr int kNotFound = 2;
constexpr int kNoMoreItems = 259;
constexpr unsigned kLongestName = 16384; // the terminator included

struct RegistryOptions
{
    std::string m_key;
    std::string m_name;
    std::string m_type = "string";
    std::vector<std::string> m_values;
    std::vector<std::string> m_files;
    std::string m_file = kStandardStream;
    ListForm m_form;
    std::string m_encoding;
    std::optional<ToolOption> m_nameOption;
    bool m_recursive = false;
    bool m_expand = false;
    bool m_json = false;
};

using RegistryCommand = void (*)(Session& session, const RegistryOptions& options);

/// What the registry's codes mean for the user.
std::string ErrorText(int systemError)
{
    return Narrow(XGetSystemErrorText(static_cast<unsigned>(systemError)));
}

/// The root and the names below it that a path stands for.
struct KeyPath
{
    explicit KeyPath(const std::string& text) : m_text(text)
    {
        constexpr const wchar_t* kSeparators = L"\\/:";
        const std::wstring wide = Widen(text);
        for (std::size_t start = wide.find_first_not_of(kSeparators); start != wide.npos;)
        {
            const std::size_t end = wide.find_first_of(kSeparators, start);
            m_names.push_back(wide.substr(start, end - start));
            start = wide.find_first_not_of(kSeparators, end);
        }
        HKEY const named = m_names.empty() ? nullptr : CRegUtil::StrToRootKey(m_names.front().c_str());
        if (named != nullptr)
            m_names.erase(m_names.begin());
        m_root = named != nullptr ? named : CRegUtil::StrToRootKey(L"HKEY_CURRENT_USER");
    }

    /// A key below this one, whatever its name holds.
    KeyPath Below(const std::wstring& name) const
    {
        KeyPath below = *this;
        below.m_text += "\\" + Narrow(name.data(), name.size());
        below.m_names.push_back(name);
        return below;
    }

    std::string m_text;
    HKEY m_root;
    std::vector<std::wstring> m_names;
};

/// Names the key where the fault is the user's, and the registry's file where it is not.
[[noreturn]] void Fail(const KeyPath& key, int systemError)
{
    const bool isOfKey = systemError == kNotFound || systemError == 13 || systemError == 87 || systemError == 1018;
    throw Failure(isOfKey ? key.m_text : Narrow(CRegUtil::GetFilePath(key.m_root)), ErrorText(systemError));
}

/// As above, for a value. The default value has no name and is shown as lists show it.
[[noreturn]] void FailWithValue(const KeyPath& key, const std::string& name, int systemError)
{
    if (systemError != kNotFound)
        Fail(key, systemError);
    throw Failure(key.m_text + ": " + (name.empty() ? "@" : Json(name).Text()), ErrorText(systemError));
}

/// A key that is held open.
class OpenKey
{
public:
    OpenKey(const KeyPath& key, unsigned long access, bool create) : m_registry(access)
    {
        std::vector<const wchar_t*> names;
        for (const std::wstring& name : key.m_names)
            names.push_back(name.c_str());
        if (!m_registry.SetPath(names.data(), static_cast<int>(names.size()), key.m_root, create) ||
            !m_registry.OpenBase(false))
            Fail(key, m_registry.GetLastError());
    }
    CRegUtil& operator*() noexcept { return m_registry; }
    CRegUtil* operator->() noexcept { return &m_registry; }

private:
    CRegUtil m_registry;
};

void RunGet(Session& session, const RegistryOptions& options)
{
    const KeyPath path(options.m_key);
    OpenKey key(path, CRegUtil::kRead, false);
    const std::wstring name = Widen(options.m_name);
    RegistryValue value;
    if (!key->ReadValue(name.c_str(), value.m_type, value.m_data))
        FailWithValue(path, options.m_name, key->GetLastError());
    if (options.m_json)
        session.m_output.Write(RegistryValueJson(value).Line());
    else if (options.m_expand && value.m_type == CRegUtil::kTypeExpandString)
        session.m_output.Write(Narrow(key->GetKeyString(name.c_str(), true)) + "\n");
    else
        session.m_output.Write(RegistryValueText(value) + "\n");
}

/// A value that cannot be set, and an encoding that is unknown, are wrong usage.
template <class Parse>
auto OrUsageError(Parse parse)
{
    try
    {
        return parse();
    }
    catch (const Failure& failure)
    {
        throw UsageError(failure.Subject() + ": " + failure.what());
    }
}

void CheckSet(const RegistryOptions& options)
{
    OrUsageError([&] { return ParseRegistryValue(options.m_type, options.m_values); });
}

void RunSet(Session&, const RegistryOptions& options)
{
    const RegistryValue value = ParseRegistryValue(options.m_type, options.m_values);
    const KeyPath path(options.m_key);
    OpenKey key(path, CRegUtil::kReadWrite, true);
    if (!key->WriteValue(Widen(options.m_name).c_str(), value.m_type, value.m_data.data(), value.m_data.size()))
        Fail(path, key->GetLastError());
}

void RunDelete(Session&, const RegistryOptions& options)
{
    const KeyPath path(options.m_key);
    OpenKey key(path, CRegUtil::kReadWrite, false);
    if (options.m_nameOption->IsGiven())
    {
        if (!key->DeleteValue(nullptr, Widen(options.m_name).c_str()))
            FailWithValue(path, options.m_name, key->GetLastError());
        return;
    }
    wchar_t name[256];
    const bool hasKeys = key->StartSubKeyEnum() && key->GetNextSubKeyName(name, 256);
    if (hasKeys && !options.m_recursive)
        throw Failure(options.m_key, "has keys below it, which go with --recursive only");
    if (!key->DeleteKey(L"", options.m_recursive))
        Fail(path, key->GetLastError());
}

/// The names that an enumeration gives.
std::vector<std::wstring> Names(CRegUtil& registry, const KeyPath& key,
                                bool (CRegUtil::*next)(wchar_t* buffer, unsigned long size))
{
    std::vector<std::wstring> names;
    std::vector<wchar_t> name(kLongestName);
    while ((registry.*next)(name.data(), kLongestName))
        names.emplace_back(name.data());
    if (registry.GetLastError() != kNoMoreItems)
        Fail(key, registry.GetLastError());
    return names;
}

/// Prints the keys and values of a key, and of those below it.
class Lister
{
public:
    Lister(Session& session, const RegistryOptions& options)
        : m_session(session),
          m_options(options),
          m_listing(session, options.m_form, {{"NAME"}, {"TYPE"}, {"BYTES", true}, {"VALUE"}})
    {
    }

    void List()
    {
        ListKey(KeyPath(m_options.m_key), {});
        m_listing.Finish();
    }

private:
    void ListKey(const KeyPath& path, const std::string& prefix)
    {
        OpenKey key(path, CRegUtil::kRead, false);
        key->StartSubKeyEnum();
        const std::vector<std::wstring> keys = Names(*key, path, &CRegUtil::GetNextSubKeyName);
        key->StartValueSection(nullptr);
        for (const std::wstring& wide : Names(*key, path, &CRegUtil::GetNextValueName))
        {
            RegistryValue value;
            const std::string name = Narrow(wide.data(), wide.size());
            if (!key->ReadValue(wide.c_str(), value.m_type, value.m_data))
            {
                ReportUnread(prefix + name, key->GetLastError());
                continue;
            }
            Add(prefix, name, RegistryTypeName(value.m_type), std::to_string(value.m_data.size()), value);
        }
        for (const std::wstring& wide : keys)
        {
            const std::string name = Narrow(wide.data(), wide.size());
            Add(prefix, name, "key", "", {});
            if (m_options.m_recursive)
                ListKey(path.Below(wide), prefix + name + "\\");
        }
    }

    void ReportUnread(const std::string& name, int systemError)
    {
        if (systemError == kNotFound) // deleted meanwhile
            return;
        Report(m_session, name, ErrorText(systemError));
        m_session.m_exitCode = kExitFailed;
    }

    void Add(const std::string& prefix, const std::string& name, const std::string& type, const std::string& size,
             const RegistryValue& value)
    {
        const bool isKey = size.empty();
        const auto row = [&]() -> Row {
            const std::string shown = prefix + (isKey ? name + "\\" : name.empty() ? "@" : name);
            return {shown, type, size, isKey ? "" : RegistryValueLine(value)};
        };
        const auto json = [&] {
            Json::Members members = {{"name", prefix + name}, {"type", type}};
            if (!isKey)
            {
                members.emplace_back("bytes", value.m_data.size());
                members.emplace_back("value", RegistryValueJson(value));
            }
            return Json::Object(members);
        };
        m_listing.Add(row, json);
    }

    Session& m_session;
    const RegistryOptions& m_options;
    Listing m_listing;
};

void RunList(Session& session, const RegistryOptions& options)
{
    Lister(session, options).List();
}

void ExportTo(CXFile& file, const std::string& key, xStringEncoding encoding)
{
    int systemError = 0;
    if (!XExportRegistry(Widen(key).c_str(), file, encoding, systemError))
        Fail(KeyPath(key), systemError);
}

void RunExport(Session& session, const RegistryOptions& options)
{
    if (options.m_file == kStandardStream)
    {
        CXMemFile text;
        ExportTo(text, options.m_key, xEncodingUtf8);
        std::string bytes(static_cast<std::size_t>(text.GetLength()), '\0');
        text.SeekToBegin();
        text.Read(bytes.data(), static_cast<unsigned>(bytes.size()));
        session.m_output.Write(bytes);
        return;
    }
    Replacement replacement(options.m_file);
    CXFile file(Widen(replacement.Path()).c_str(), CXFile::modeWrite | CXFile::modeNoInherit);
    file.SetFilePath(Widen(options.m_file).c_str()); // failures name the file that the user knows
    ExportTo(file, options.m_key, xEncodingUtf16);
    file.Flush();
    file.Close();
    replacement.TakePlace();
}

std::string ReadWhole(const std::string& name)
{
    const std::unique_ptr<CXFile> file = OpenInput(name);
    std::string bytes;
    constexpr unsigned kBlock = 1u << 20;
    for (;;)
    {
        const std::size_t before = bytes.size();
        bytes.resize(before + kBlock);
        const unsigned read = file->Read(&bytes[before], kBlock);
        bytes.resize(before + read);
        if (read == 0)
            return bytes;
    }
}

void Import(const std::string& name, xStringEncoding encoding)
{
    const std::string bytes = ReadWhole(name);
    const XTextMark mark = XFindTextMark(bytes.data(), bytes.size());
    CXTString<wchar_t> text;
    if (!XDecodeText(bytes.data() + mark.m_size, bytes.size() - mark.m_size,
                     mark.m_size != 0 ? mark.m_encoding : encoding, text))
        throw Failure(name, LastFailureText());
    XRegistryImport result;
    if (XImportRegistry(text, result))
        return;
    const std::string line = result.m_line != 0 ? "line " + std::to_string(result.m_line) + ": " : "";
    if (result.m_fault == XRegistryFault::Registry)
        throw Failure(name, line + ErrorText(result.m_systemError));
    throw Failure(name, line + Narrow(XGetText(result.m_fault)));
}

xStringEncoding ImportEncoding(const RegistryOptions& options)
{
    if (options.m_encoding.empty())
        return xEncodingUtf8;
    const std::optional<xStringEncoding> found = FindEncoding(options.m_encoding);
    if (!found)
        throw Failure(options.m_encoding, "is an unknown encoding; there are " + EncodingNamesHelp());
    return *found;
}

void CheckImport(const RegistryOptions& options)
{
    OrUsageError([&] { return ImportEncoding(options); });
}

void RunImport(Session& session, const RegistryOptions& options)
{
    const xStringEncoding encoding = ImportEncoding(options);
    if (encoding != xEncodingAnsi && !IsUtf16(encoding) && encoding != xEncodingUtf8)
        XSetAnsiCodePage(encoding); // of the texts that stand as bytes
    AttemptEach(session, options.m_files, [&](const std::string& name) { Import(name, encoding); });
}

/// Builds the commands, which share their arguments.
class RegistryFamily
{
public:
    RegistryFamily(const ToolCommand& registry, Session& session) : m_registry(registry), m_session(session) {}

    struct Added
    {
        ToolCommand m_command;
        RegistryOptions& m_options;
    };

    /// `check` runs before the command and throws UsageError.
    Added Add(const char* name, const char* help, RegistryCommand run, void (*check)(const RegistryOptions&) = nullptr,
              bool hasKey = true)
    {
        const auto options = std::make_shared<RegistryOptions>();
        const ToolCommand command = m_registry.AddCommand(name, help);
        if (hasKey)
            command.AddArgument("KEY", options->m_key, "The path of the key").Required();
        command.OnRun([&session = m_session, options, run, check] {
            if (check != nullptr)
                check(*options);
            Attempt(session, options->m_key, [&] { run(session, *options); });
        });
        return {command, *options};
    }

private:
    const ToolCommand& m_registry;
    Session& m_session;
};
} // namespace

void AddRegistryCommands(const ToolCommand& tool, Session& session)
{
    const ToolCommand registry = tool.AddFamily("registry", "Look at and change settings in the registry");
    registry.Footer(
        "A key is HKEY_CURRENT_USER\\Software\\Maker\\Program, also with / instead of \\. HKEY_CURRENT_USER may be "
        "left\n"
        "out; the other roots are HKEY_LOCAL_MACHINE, HKEY_USERS, HKEY_CLASSES_ROOT, HKEY_CURRENT_CONFIG and\n"
        "HKEY_DYN_DATA. Upper and lower case of names does not count.");
    RegistryFamily family(registry, session);

    const RegistryFamily::Added get = family.Add("get", "Print a value", RunGet);
    get.m_command.AddArgument("NAME", get.m_options.m_name, "The name of the value; the default value if none");
    get.m_command.AddFlag("--expand", get.m_options.m_expand, "Replace %NAME% in values of the type expand");
    AddJsonFlag(get.m_command, get.m_options.m_json);

    const RegistryFamily::Added set =
        family.Add("set", "Set a value, in a new key where there is none", RunSet, CheckSet);
    set.m_command.AddArgument("NAME", set.m_options.m_name, "The name of the value; \"\" for the default value")
        .Required();
    set.m_command.AddArgument("VALUE", set.m_options.m_values, "The value; several for the type multi");
    set.m_command
        .AddOption("--type", set.m_options.m_type,
                   "The type of the value: " + RegistryTypeNames() + ";\nstring if not given")
        .ValueName("TYPE");
    set.m_command.Footer(
        "A binary value is hexadecimal digits. Numbers are decimal, or hexadecimal with 0x; before a negative one "
        "stands --.");

    const RegistryFamily::Added remove = family.Add("delete", "Delete a value, or a key with its values", RunDelete);
    remove.m_options.m_nameOption =
        remove.m_command.AddArgument("NAME", remove.m_options.m_name, "The name of the value; the key if none");
    remove.m_command.AddFlag("--recursive", remove.m_options.m_recursive, "Also the keys below the key");

    const RegistryFamily::Added list = family.Add("list", "List the values of a key and the keys below it", RunList);
    list.m_command.AddFlag("--recursive", list.m_options.m_recursive, "Also what is in the keys below");
    AddListForm(list.m_command, list.m_options.m_form);

    const RegistryFamily::Added out = family.Add("export", "Write a key and all below it as .reg text", RunExport);
    out.m_command.AddArgument("FILE", out.m_options.m_file, "The file, in UTF-16; standard output, in UTF-8, if none");

    const RegistryFamily::Added in =
        family.Add("import", "Take over .reg texts, each as a whole or not at all", RunImport, CheckImport, false);
    in.m_command.AddArgument("FILE", in.m_options.m_files, "The files; standard input if none");
    in.m_command
        .AddOption("--from", in.m_options.m_encoding,
                   "The encoding of files without a byte-order mark; utf-8 if not given")
        .ValueName("ENCODING");
}

} // namespace tev::tool
