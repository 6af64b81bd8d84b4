#include "settings/engine/SettingsHandles.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace tev
{
namespace
{
unsigned ReadValues(SettingsDatabase& database, std::int64_t id, std::vector<SettingsTreeValue>& values)
{
    SettingsQuery query(database, SettingsStatement::AllValues);
    query.With(id);
    unsigned error = query.Next();
    for (; error == kSettingsDone; error = query.Next())
    {
        if (!query.IsIntactValue(id, true))
            return kSettingsDamaged;
        SettingsTreeValue& found = values.emplace_back();
        found.name = SettingsNameText(query.Bytes(0));
        found.value.type = static_cast<unsigned>(query.Number(2));
        found.value.data.assign(query.Bytes(5));
    }
    return error == kSettingsNoMoreItems ? unsigned{kSettingsDone} : error;
}

/// A key that is still to be read.
struct PendingKey
{
    std::int64_t id;
    unsigned depth;
    std::wstring path;
};

/// Pushes the keys below one onto the stack of pending ones, the first one on top.
unsigned AddBelow(SettingsDatabase& database, const PendingKey& key, std::vector<PendingKey>& pending)
{
    const auto first = static_cast<std::ptrdiff_t>(pending.size());
    SettingsQuery query(database, SettingsStatement::AllKeys);
    query.With(key.id);
    unsigned error = query.Next();
    for (; error == kSettingsDone; error = query.Next())
    {
        if (!query.IsIntactKey(key.id))
            return kSettingsDamaged;
        const std::wstring name = SettingsNameText(query.Bytes(0));
        pending.push_back({query.Number(2), key.depth + 1, key.path.empty() ? name : key.path + L'\\' + name});
    }
    std::reverse(pending.begin() + first, pending.end());
    return error == kSettingsNoMoreItems ? unsigned{kSettingsDone} : error;
}

unsigned ReadTree(SettingsKeyState& state, const std::vector<SettingsName>& names, std::vector<SettingsTreeKey>& tree)
{
    SettingsTransaction transaction(*state.database);
    unsigned error = transaction.Begin(false);
    if (error == kSettingsDone)
        error = WalkSettingsKeys(state, names, false);
    std::vector<PendingKey> pending = {{state.id, state.depth, {}}};
    while (error == kSettingsDone && !pending.empty())
    {
        const PendingKey key = std::move(pending.back());
        pending.pop_back();
        if (key.depth > kDeepestSettingsKey)
            return kSettingsDamaged; // for example a key that is its own descendant
        SettingsTreeKey& read = tree.emplace_back();
        read.path = key.path;
        error = ReadValues(*state.database, key.id, read.values);
        if (error == kSettingsDone)
            error = AddBelow(*state.database, key, pending);
    }
    return error;
}

/// Makes changes, in one transaction for each database concerned.
class Changer
{
public:
    unsigned Change(const SettingsChange& change);
    unsigned Commit();

private:
    struct Part
    {
        std::shared_ptr<SettingsDatabase> database;
        std::unique_ptr<SettingsTransaction> transaction;
    };

    unsigned Join(const SettingsKeyState& state, SettingsUse use);
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
    SettingsDatabase& database = *state.database;
    if (change.kind == SettingsChange::Kind::CreateKey)
        return kSettingsDone;
    if (change.kind == SettingsChange::Kind::DeleteKey)
        return SettingsQuery(database, SettingsStatement::DeleteKey).With(state.id).Run();
    SettingsName name;
    if (!MakeSettingsName(change.name, kLongestSettingsValueName, name))
        return kSettingsBadParameter;
    if (change.kind == SettingsChange::Kind::DeleteValue)
        return SettingsQuery(database, SettingsStatement::DeleteValue).With(state.id).With(name.folded).Run();
    return SettingsQuery(database, SettingsStatement::WriteValue)
        .With(state.id)
        .With(name.folded)
        .With(name.spelling)
        .With(std::int64_t{change.value.type})
        .With(change.value.data)
        .Run();
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
unsigned ReadTreeOf(SettingsKey key, const std::vector<SettingsName>& names, std::vector<SettingsTreeKey>& tree)
{
    const SettingsLock lock;
    tree.clear();
    SettingsKeyState root;
    const SettingsKeyState* const start = FindSettingsKey(key, root);
    if (start == nullptr)
        return kSettingsBadHandle;
    SettingsKeyState state = *start;
    const unsigned error = ConnectSettingsKey(state, SettingsUse::Read);
    if (error == kSettingsNotFound && names.empty())
    {
        tree.emplace_back(); // a root exists before its store is created
        return kSettingsDone;
    }
    return error == kSettingsDone ? ReadTree(state, names, tree) : error;
}
} // namespace

unsigned ReadSettingsTree(SettingsKey key, const wchar_t* path, std::vector<SettingsTreeKey>& tree)
{
    std::vector<SettingsName> names;
    if (!SplitSettingsPath(path, names))
        return kSettingsBadParameter;
    return RetryWhileBusy([&] { return ReadTreeOf(key, names, tree); });
}

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
} // namespace tev
