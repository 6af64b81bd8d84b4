#include "settings/engine/SettingsBatch.h"

#include "settings/engine/SettingsHandles.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace tev
{
namespace
{
/// Makes changes, in one transaction for each database concerned.
class Changer
{
public:
    unsigned Change(const SettingsChange& change);
    /// Before a change in the key's database.
    unsigned Join(const SettingsKeyState& state, SettingsUse use);
    unsigned Commit();

private:
    struct Part
    {
        std::shared_ptr<SettingsDatabase> database;
        std::unique_ptr<SettingsTransaction> transaction;
    };

    static unsigned ChangeIn(const SettingsKeyState& state, const SettingsChange& change);

    std::vector<Part> m_parts;
};

unsigned Changer::Join(const SettingsKeyState& state, SettingsUse use)
{
    const auto isSame = [&](const Part& part) { return part.database == state.database; };
    if (std::any_of(m_parts.begin(), m_parts.end(), isSame))
        return kSettingsDone;
    const unsigned error = ConnectSettingsKey(state, use);
    if (error != kSettingsDone)
        return error;
    auto transaction = std::make_unique<SettingsTransaction>(*state.database);
    const unsigned failure = transaction->Begin(true);
    if (failure == kSettingsDone)
        m_parts.push_back({state.database, std::move(transaction)});
    return failure;
}

unsigned Changer::Change(const SettingsChange& change)
{
    std::vector<SettingsName> names;
    if (!SplitSettingsPath(change.path.c_str(), names))
        return kSettingsBadParameter;
    SettingsKeyState state;
    if (FindSettingsKey(RootKey(change.root), state) == nullptr)
        return kSettingsBadHandle;
    const bool deletes =
        change.kind == SettingsChange::Kind::DeleteKey || change.kind == SettingsChange::Kind::DeleteValue;
    if (change.kind == SettingsChange::Kind::DeleteKey && names.empty())
        return kSettingsAccessDenied;
    unsigned error = Join(state, deletes ? SettingsUse::Write : SettingsUse::Create);
    if (error == kSettingsDone)
        error = WalkSettingsKeys(state, names, !deletes);
    if (error == kSettingsDone)
        error = ChangeIn(state, change);
    return deletes && error == kSettingsNotFound ? unsigned{kSettingsDone} : error;
}

unsigned Changer::ChangeIn(const SettingsKeyState& state, const SettingsChange& change)
{
    if (change.kind == SettingsChange::Kind::CreateKey)
        return kSettingsDone;
    if (change.kind == SettingsChange::Kind::DeleteKey)
        return SettingsQuery(*state.database, SettingsStatement::DeleteKey).With(state.id).Run();
    SettingsName name;
    if (!MakeSettingsName(change.name, kLongestSettingsValueName, name))
        return kSettingsBadParameter;
    return change.kind == SettingsChange::Kind::DeleteValue
               ? DeleteValueIn(state, name)
               : WriteValueIn(state, name, change.value.type, change.value.data);
}

unsigned Changer::Commit()
{
    for (const Part& part : m_parts)
    {
        if (const unsigned error = part.transaction->Commit(); error != kSettingsDone)
            return error;
    }
    return kSettingsDone;
}
} // namespace

unsigned ChangeSettings(const std::vector<SettingsChange>& changes, std::size_t& failed)
{
    return RetryWhileBusy([&]() -> unsigned {
        const SettingsLock lock;
        Changer changer;
        for (failed = 0; failed < changes.size(); ++failed)
        {
            if (const unsigned error = changer.Change(changes[failed]); error != kSettingsDone)
                return error;
        }
        return changer.Commit();
    });
}

struct SettingsBatch::Change
{
    SettingsKeyState key;
    SettingsName name;
    Kind kind;
    SettingsValue value;
};

SettingsBatch::SettingsBatch() = default;
SettingsBatch::~SettingsBatch() = default;

unsigned SettingsBatch::Write(SettingsKey key, const wchar_t* name, unsigned type, const void* data, std::uint64_t size)
{
    if (data == nullptr && size != 0)
        return kSettingsBadParameter;
    return Add(key, name, Kind::Write, type, {static_cast<const char*>(data), static_cast<std::size_t>(size)});
}

unsigned SettingsBatch::Delete(SettingsKey key, const wchar_t* name)
{
    return Add(key, name, Kind::Delete, 0, {});
}

unsigned SettingsBatch::Expect(SettingsKey key, const wchar_t* name, const SettingsValue* value)
{
    return value == nullptr ? Add(key, name, Kind::ExpectNone, 0, {})
                            : Add(key, name, Kind::ExpectValue, value->type, value->data);
}

unsigned SettingsBatch::Add(SettingsKey key, const wchar_t* name, Kind kind, unsigned type, std::string_view data)
{
    SettingsName changed;
    if (!MakeSettingsName(name != nullptr ? name : L"", kLongestSettingsValueName, changed))
        return kSettingsBadParameter;
    const SettingsLock lock;
    SettingsKeyState root;
    const SettingsKeyState* const state = FindSettingsKey(key, root);
    if (state == nullptr)
        return kSettingsBadHandle;
    const bool isCondition = kind == Kind::ExpectValue || kind == Kind::ExpectNone;
    if ((state->access & (isCondition ? kSettingsQueryValue : kSettingsSetValue)) == 0)
        return kSettingsAccessDenied;
    m_changes.push_back({*state, std::move(changed), kind, {type, std::string(data)}});
    return kSettingsDone;
}

unsigned SettingsBatch::MakeOne(const Change& change)
{
    switch (change.kind)
    {
    case Kind::Write:
        return WriteValueIn(change.key, change.name, change.value.type, change.value.data);
    case Kind::Delete:
        return DeleteValueIn(change.key, change.name);
    default:
        return ExpectValueIn(change.key, change.name, change.kind == Kind::ExpectValue ? &change.value : nullptr);
    }
}

unsigned SettingsBatch::Make()
{
    return RetryWhileBusy([&]() -> unsigned {
        const SettingsLock lock;
        Changer changer;
        for (const Change& change : m_changes)
        {
            unsigned error = changer.Join(change.key, SettingsUse::Create);
            if (error == kSettingsDone)
                error = MakeOne(change);
            if (error != kSettingsDone)
                return error;
        }
        return changer.Commit();
    });
}
} // namespace tev
