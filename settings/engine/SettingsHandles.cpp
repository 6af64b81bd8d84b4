#include "settings/engine/SettingsHandles.h"

#include "platform/DatabaseFiles.h"
#include "platform/FileInformation.h"
#include "platform/PathNames.h"
#include "platform/SystemErrors.h"

#include <cstdlib>
#include <unordered_map>
#include <utility>

namespace tev
{
namespace
{
constexpr std::uintptr_t kFirstRoot = 0x80000000;
constexpr std::uintptr_t kLastRoot = 0x80000006;
constexpr std::uintptr_t kNoRoot = 0x80000004;
constexpr unsigned kAllAccess = 0xFFFFFFFF;

/// Handles are numbers that are never used again, so that a closed one is recognised. They lie above the roots.
struct Handles
{
    std::unordered_map<std::uintptr_t, SettingsKeyState> open;
    std::uintptr_t last = 0xFFFFFFFF;
    std::shared_ptr<SettingsDatabase> user;
    std::shared_ptr<SettingsDatabase> machine;
};

Handles& AllHandles()
{
    static auto* const handles = new Handles; // objects that outlive this library's statics may still hold some
    return *handles;
}

bool IsMissing(unsigned systemError)
{
    return systemError == kSettingsNotFound || systemError == platform::kPathNotFound;
}

std::string FromEnvironment(const char* variable)
{
    const char* const value = std::getenv(variable);
    return value != nullptr ? value : "";
}

std::string UserPath()
{
    std::string path = FromEnvironment("TEVTOOLS_REGISTRY");
    if (!path.empty())
        return path;
    path = FromEnvironment("XDG_CONFIG_HOME");
    if (path.empty() || path.front() != '/')
    {
        if (!platform::WidePathToSystem(platform::HomeFolder().c_str(), path))
            path.clear();
        path += "/.config";
    }
    return path + "/TevTools/registry.db";
}

std::string MachinePath()
{
    const std::string path = FromEnvironment("TEVTOOLS_MACHINE_REGISTRY");
    return path.empty() ? "/etc/TevTools/registry.db" : path;
}

const std::shared_ptr<SettingsDatabase>& Database(std::shared_ptr<SettingsDatabase>& database, const std::string& path,
                                                  SettingsJournal journal)
{
    if (database == nullptr || database->Path() != path)
        database = std::make_shared<SettingsDatabase>(path, journal);
    return database;
}

const std::shared_ptr<SettingsDatabase>& DatabaseOf(std::uintptr_t root)
{
    Handles& handles = AllHandles();
    if (root == kLocalMachine)
    {
        const std::string path = MachinePath();
        platform::DatabaseFile file;
        // A file that cannot be accessed exists all the same; using it reports the error.
        if (platform::FindDatabaseFile(path, file) || !IsMissing(platform::LastSystemError()))
            return Database(handles.machine, path, SettingsJournal::Rollback);
    }
    return Database(handles.user, UserPath(), SettingsJournal::WriteAhead);
}
/// Adds a key below one, which `state` then stands for.
unsigned AddKey(SettingsKeyState& state, const SettingsName& name)
{
    SettingsQuery add(*state.database, SettingsStatement::AddKey);
    const unsigned error = add.With(state.id).With(name.folded).With(name.spelling).Next();
    if (error != kSettingsDone)
        return error;
    state.id = add.Number(0);
    return SettingsQuery(*state.database, SettingsStatement::SealKey).With(state.id).Run();
}
} // namespace

SettingsKeyState* FindSettingsKey(SettingsKey key, SettingsKeyState& root)
{
    auto number = reinterpret_cast<std::uintptr_t>(key);
    auto& open = AllHandles().open;
    const auto found = open.find(number);
    if (found != open.end())
        return &found->second;
    if (number >> 31 >> 1 == ~std::uintptr_t{0} >> 31 >> 1) // a root that went through a signed number of 32 bits
        number &= 0xFFFFFFFF;
    if (number < kFirstRoot || number > kLastRoot || number == kNoRoot)
        return nullptr;
    root.database = DatabaseOf(number);
    root.id = static_cast<std::int64_t>(number - kFirstRoot) + 1;
    root.access = kAllAccess;
    return &root;
}

std::wstring SettingsFile(SettingsRoot root)
{
    const SettingsLock lock;
    return platform::SystemPathToWide(DatabaseOf(root)->Path().c_str());
}

SettingsKey AddSettingsKey(SettingsKeyState state)
{
    Handles& handles = AllHandles();
    const std::uintptr_t number = ++handles.last;
    handles.open.emplace(number, std::move(state));
    return reinterpret_cast<SettingsKey>(number);
}

bool RemoveSettingsKey(SettingsKey key)
{
    return AllHandles().open.erase(reinterpret_cast<std::uintptr_t>(key)) != 0;
}

unsigned ConnectSettingsKey(const SettingsKeyState& state, SettingsUse use)
{
    const bool isRoot = state.depth == 0;
    const unsigned error = state.database->Connect(use == SettingsUse::Create && !isRoot ? SettingsUse::Write : use);
    return error == kSettingsNotFound && !isRoot ? unsigned{kSettingsKeyDeleted} : error;
}

unsigned CheckSettingsKey(const SettingsKeyState& state)
{
    SettingsQuery query(*state.database, SettingsStatement::KeyExists);
    const unsigned error = query.With(state.id).Next();
    return error == kSettingsNoMoreItems ? unsigned{kSettingsKeyDeleted} : error;
}

unsigned WriteValueIn(const SettingsKeyState& state, const SettingsName& name, unsigned type, std::string_view data)
{
    return SettingsQuery(*state.database, SettingsStatement::WriteValue)
        .With(state.id)
        .With(name.folded)
        .With(name.spelling)
        .With(std::int64_t{type})
        .With(data)
        .Run();
}

unsigned DeleteValueIn(const SettingsKeyState& state, const SettingsName& name)
{
    return SettingsQuery(*state.database, SettingsStatement::DeleteValue).With(state.id).With(name.folded).Run();
}

unsigned ExpectValueIn(const SettingsKeyState& state, const SettingsName& name, const SettingsValue* value)
{
    SettingsQuery query(*state.database, SettingsStatement::ReadValue);
    const unsigned error = query.With(state.id).With(name.folded).Next();
    if (error == kSettingsNoMoreItems)
        return value == nullptr ? CheckSettingsKey(state) : unsigned{kSettingsChanged};
    if (error != kSettingsDone)
        return error;
    if (query.Bytes(1) != name.folded || !query.IsIntactValue(state.id, true))
        return kSettingsDamaged;
    const bool isSame = value != nullptr && query.Number(2) == value->type && query.Bytes(5) == value->data;
    return isSame ? kSettingsDone : kSettingsChanged;
}

unsigned WalkSettingsKeys(SettingsKeyState& state, const std::vector<SettingsName>& names, bool create)
{
    if (names.size() > kDeepestSettingsKey - state.depth)
        return create ? kSettingsBadParameter : kSettingsNotFound;
    if (names.empty())
        return CheckSettingsKey(state);
    const std::int64_t start = state.id;
    for (const SettingsName& name : names)
    {
        SettingsQuery find(*state.database, SettingsStatement::FindKey);
        unsigned error = find.With(state.id).With(name.folded).Next();
        if (error == kSettingsDone && !(find.Bytes(1) == name.folded && find.IsIntactKey(state.id)))
            return kSettingsDamaged;
        if (error == kSettingsDone)
            state.id = find.Number(2);
        else if (error == kSettingsNoMoreItems && create)
            error = AddKey(state, name);
        else if (error == kSettingsNoMoreItems)
        {
            error = state.id == start ? CheckSettingsKey(state) : unsigned{kSettingsDone};
            return error == kSettingsDone ? unsigned{kSettingsNotFound} : error;
        }
        if (error != kSettingsDone)
            return error;
        ++state.depth;
    }
    return kSettingsDone;
}
} // namespace tev
