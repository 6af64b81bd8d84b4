#include "tools/tev/SettingsCommands.h"

#include "objects/CXFileException.h"
#include "services/Paths.h"
#include "settings/CCustomData.h"
#include "settings/PreferenceFile.h"
#include "tools/tev/CommandLine.h"
#include "tools/tev/Json.h"
#include "tools/tev/Listing.h"
#include "tools/tev/SettingsValues.h"
#include "tools/tev/System.h"
#include "tools/tev/Tool.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tev::tool
{
namespace
{

/// Which store of a preference file.
struct StoreKeys
{
    unsigned m_first = 0;
    unsigned m_second = 0;
};

struct SettingsOptions
{
    std::string m_file;
    StoreKeys m_keys;
    std::string m_targetFile;
    StoreKeys m_targetKeys;
    unsigned m_id = 0;           // of `set`
    std::vector<unsigned> m_ids; // of the others
    std::string m_kind;
    std::vector<std::string> m_values;
    ListForm m_form;
    bool m_json = false;
};

using SettingsCommand = void (*)(Session& session, const SettingsOptions& options);

/// A store that must be there.
CCustomData Load(const std::string& name, const StoreKeys& keys)
{
    const std::wstring path = Widen(name);
    CCustomData store;
    if (!fileExists(path.c_str()))
        CXFileException::Throw(fileNotFound, path.c_str());
    if (!store.LoadFromPrefs(path.c_str(), keys.m_first, keys.m_second, true))
        throw Failure(name, LastFailureText());
    return store;
}

void Save(const CCustomData& store, const std::string& name, const StoreKeys& keys)
{
    if (!store.SaveToPrefs(Widen(name).c_str(), keys.m_first, keys.m_second))
        throw Failure(name, LastFailureText());
}

void RequireValue(const CCustomData& store, const std::string& name, unsigned id)
{
    if (!store.HasData(id))
        throw Failure(name, "there is no value of identifier " + std::to_string(id));
}

/// The records of a file; what is wrong with it is reported.
std::vector<XPreferenceRecord> SoundRecords(Session& session, const std::string& name)
{
    std::vector<XPreferenceRecord> records;
    const bool isSound = XListPreferences(Widen(name).c_str(), records);
    const auto firstDamaged = std::stable_partition(records.begin(), records.end(),
                                                    [](const XPreferenceRecord& record) { return record.m_isSound; });
    for (auto damaged = firstDamaged; damaged != records.end(); ++damaged)
    {
        CXTString<char> text;
        text.Format("%I64u bytes at offset 0x%I64x are no store", damaged->m_size, damaged->m_offset);
        Report(session, name, text.GetConstBuffer());
    }
    if (!isSound && firstDamaged == records.end())
        Report(session, name, "the number of stores at its start is wrong");
    if (!isSound)
        session.m_exitCode = kExitFailed;
    records.erase(firstDamaged, records.end());
    return records;
}

void RunList(Session& session, const SettingsOptions& options)
{
    Listing listing(session, options.m_form, {{"KEY 1", true}, {"KEY 2", true}, {"BYTES", true}, {"VALUES", true}});
    for (const XPreferenceRecord& record : SoundRecords(session, options.m_file))
    {
        const auto row = [&]() -> Row {
            return {std::to_string(record.m_key1), std::to_string(record.m_key2), std::to_string(record.m_size),
                    std::to_string(record.m_valueCount)};
        };
        const auto json = [&] {
            return Json::Object({{"key1", record.m_key1},
                                 {"key2", record.m_key2},
                                 {"bytes", record.m_size},
                                 {"values", record.m_valueCount}});
        };
        listing.Add(row, json);
    }
    listing.Finish();
}

void PrintValues(Output& output, const CCustomData& store, int depth)
{
    const std::string indent(static_cast<std::size_t>(depth) * 4, ' ');
    unsigned kind = 0;
    for (unsigned index = 0; index < store.GetIDCount(); ++index)
    {
        const unsigned id = store.GetIDByIndex(index, kind);
        output.Write(indent + std::to_string(id) + "\t" + KindName(kind) + "\t" +
                     std::to_string(store.GetDataSize(id)) + "\t" +
                     (kind == CCustomData::kCustomData ? ValueText(store, id) : ValueJson(store, id).Text()) + "\n");
        CCustomData within;
        if (depth < kDeepestStore && store.GetCustomData(id, within))
            PrintValues(output, within, depth + 1);
    }
}

void RunShow(Session& session, const SettingsOptions& options)
{
    const CCustomData store = Load(options.m_file, options.m_keys);
    if (options.m_json)
        session.m_output.Write(Json::Object({{"keys", Json::List({options.m_keys.m_first, options.m_keys.m_second})},
                                             {"values", StoreJson(store)}})
                                   .Line());
    else
        PrintValues(session.m_output, store, 0);
}

void RunGet(Session& session, const SettingsOptions& options)
{
    const CCustomData store = Load(options.m_file, options.m_keys);
    for (const unsigned id : options.m_ids)
    {
        RequireValue(store, options.m_file, id);
        session.m_output.Write((options.m_json ? ValueJson(store, id).Text() : ValueText(store, id)) + "\n");
    }
}

/// Changes a store without losing what others save meanwhile.
void Update(const std::string& name, const StoreKeys& keys, const std::function<void(CCustomData& store)>& change)
{
    const std::wstring path = Widen(name);
    if (XUpdatePreferences(path.c_str(), keys.m_first, keys.m_second, change))
        return;
    const std::string reason = LastFailureText();
    CCustomData store;
    store.LoadFromPrefs(path.c_str(), keys.m_first, keys.m_second, true); // reports a file that cannot be read
    throw Failure(name, reason);
}

/// A value that cannot be set is wrong usage.
void CheckSet(const SettingsOptions& options)
{
    CCustomData store;
    try
    {
        SetValue(store, options.m_id, options.m_kind, options.m_values);
    }
    catch (const Failure& failure)
    {
        throw UsageError(failure.Subject() + ": " + failure.what());
    }
}

void RunSet(Session&, const SettingsOptions& options)
{
    Update(options.m_file, options.m_keys,
           [&](CCustomData& store) { SetValue(store, options.m_id, options.m_kind, options.m_values); });
}

void RunRemove(Session&, const SettingsOptions& options)
{
    Load(options.m_file, options.m_keys);
    if (!options.m_ids.empty())
    {
        Update(options.m_file, options.m_keys, [&](CCustomData& store) {
            for (const unsigned id : options.m_ids)
            {
                RequireValue(store, options.m_file, id);
                store.RemoveCustom(id);
            }
        });
    }
    else if (!XRemovePreference(Widen(options.m_file).c_str(), options.m_keys.m_first, options.m_keys.m_second))
        throw Failure(options.m_file, LastFailureText());
}

void RunCopy(Session&, const SettingsOptions& options)
{
    const CCustomData store = Load(options.m_file, options.m_keys);
    Save(store, options.m_targetFile, options.m_targetKeys);
}

void RunCheck(Session& session, const SettingsOptions& options)
{
    const std::size_t stores = SoundRecords(session, options.m_file).size();
    if (options.m_json)
    {
        session.m_output.Write(
            Json::Object({{"file", options.m_file}, {"sound", session.m_exitCode == kExitDone}, {"stores", stores}})
                .Line());
        return;
    }
    const char* const state = session.m_exitCode == kExitDone ? "sound, " : "damaged, ";
    session.m_output.Write(options.m_file + ": " + state + std::to_string(stores) +
                           (stores == 1 ? " store" : " stores") + "\n");
}

/// A key or an identifier: a number of 32 bits, or four letters that stand for one.
unsigned KeyNumber(const std::string& text)
{
    constexpr std::size_t kLetters = 4;
    const bool isNumber = !text.empty() && text.front() >= '0' && text.front() <= '9';
    if (!isNumber && text.size() == kLetters)
    {
        unsigned code = 0;
        for (const char letter : text)
            code = code << 8 | static_cast<unsigned char>(letter);
        return code;
    }
    const bool isHexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* const end = text.data() + text.size();
    unsigned number = 0;
    const auto [stop, error] =
        std::from_chars(text.data() + (isHexadecimal ? 2 : 0), end, number, isHexadecimal ? 16 : 10);
    if (error != std::errc() || stop != end)
        throw UsageError(text + " is no number of 32 bits, and not four letters");
    return number;
}

void AddNumber(const ToolCommand& command, const char* name, unsigned& number, const char* help)
{
    command
        .AddParsedOption(
            name, [&number](const std::string& text) { number = KeyNumber(text); }, help)
        .ValueName("")
        .Required();
}

/// Builds the commands, which share their arguments.
class SettingsFamily
{
public:
    SettingsFamily(const ToolCommand& settings, Session& session) : m_settings(settings), m_session(session) {}

    struct Added
    {
        ToolCommand m_command;
        SettingsOptions& m_options;
    };

    /// `check` runs before the command and throws UsageError.
    Added Add(const char* name, const char* help, SettingsCommand run, void (*check)(const SettingsOptions&) = nullptr)
    {
        const auto options = std::make_shared<SettingsOptions>();
        const ToolCommand command = m_settings.AddCommand(name, help);
        command.AddArgument("FILE", options->m_file, "The preference file").Required();
        command.OnRun([&session = m_session, options, run, check] {
            if (check != nullptr)
                check(*options);
            Attempt(session, options->m_file, [&] { run(session, *options); });
        });
        return {command, *options};
    }

    static void AddKeys(const Added& added)
    {
        AddNumber(added.m_command, "KEY1", added.m_options.m_keys.m_first, "The first key of the store");
        AddNumber(added.m_command, "KEY2", added.m_options.m_keys.m_second, "The second key of the store");
    }

    static ToolOption AddIds(const Added& added)
    {
        std::vector<unsigned>& ids = added.m_options.m_ids;
        const auto parse = [&ids](const std::string& text) { ids.push_back(KeyNumber(text)); };
        return added.m_command.AddParsedOption("ID", parse, "The identifier of the value")
            .ValueName("")
            .Several()
            .Required();
    }

    static void AddJson(const Added& added) { AddJsonFlag(added.m_command, added.m_options.m_json); }

private:
    const ToolCommand& m_settings;
    Session& m_session;
};
} // namespace

void AddSettingsCommands(const ToolCommand& tool, Session& session)
{
    const ToolCommand settings = tool.AddFamily("settings", "Look at and change the stores of preference files");
    settings.Footer("Keys and identifiers are numbers of 32 bits, also in hexadecimal (0x...), or four letters: ACME "
                    "is 0x41434d45.");
    SettingsFamily family(settings, session);

    const SettingsFamily::Added list =
        family.Add("list", "List the stores: keys, size in the file, number of values", RunList);
    AddListForm(list.m_command, list.m_options.m_form);

    const SettingsFamily::Added show = family.Add(
        "show", "Show every value of a store: identifier, kind, size, value; stores within indented", RunShow);
    SettingsFamily::AddKeys(show);
    SettingsFamily::AddJson(show);

    const SettingsFamily::Added get = family.Add("get", "Print values", RunGet);
    SettingsFamily::AddKeys(get);
    SettingsFamily::AddIds(get);
    SettingsFamily::AddJson(get);

    const SettingsFamily::Added set =
        family.Add("set", "Set a value, in a new store or file where there is none", RunSet, CheckSet);
    SettingsFamily::AddKeys(set);
    AddNumber(set.m_command, "ID", set.m_options.m_id, "The identifier of the value");
    set.m_command.AddArgument("KIND", set.m_options.m_kind, "The kind of the value: " + SettableKinds()).Required();
    set.m_command.AddArgument("VALUE", set.m_options.m_values, "The value; a list takes several").Required();
    set.m_command.Footer(
        "A bool is true or false, a time the seconds since 1970 UTC, a binary value hexadecimal digits.\n"
        "Before a negative number stands --.");

    const SettingsFamily::Added remove =
        family.Add("remove", "Remove values from a store, or the whole store", RunRemove);
    SettingsFamily::AddKeys(remove);
    SettingsFamily::AddIds(remove).Required(false).Description("The identifiers of the values; the store if none");

    const SettingsFamily::Added copy = family.Add("copy", "Copy a store to other keys or another file", RunCopy);
    SettingsFamily::AddKeys(copy);
    copy.m_command.AddArgument("TOFILE", copy.m_options.m_targetFile, "The file that receives it").Required();
    AddNumber(copy.m_command, "TOKEY1", copy.m_options.m_targetKeys.m_first, "Its first key there");
    AddNumber(copy.m_command, "TOKEY2", copy.m_options.m_targetKeys.m_second, "Its second key there");

    SettingsFamily::AddJson(family.Add(
        "check", "Check whether the file is sound; damaged parts are listed, and the exit code is 1", RunCheck));
}

} // namespace tev::tool
