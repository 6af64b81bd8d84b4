#include "settings/engine/SettingsHandles.h"

#include <algorithm>
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

/// In a transaction that is begun here; the state becomes that of the key.
unsigned ReadTree(SettingsTransaction& transaction, bool isWriting, SettingsKeyState& state,
                  const std::vector<SettingsName>& names, std::vector<SettingsTreeKey>& tree)
{
    tree.clear();
    unsigned error = transaction.Begin(isWriting);
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

unsigned ReadTreeOf(SettingsKey key, const std::vector<SettingsName>& names, std::vector<SettingsTreeKey>& tree)
{
    const SettingsLock lock;
    SettingsKeyState root;
    const SettingsKeyState* const start = FindSettingsKey(key, root);
    if (start == nullptr)
        return kSettingsBadHandle;
    SettingsKeyState state = *start;
    const unsigned error = ConnectSettingsKey(state, SettingsUse::Read);
    if (error == kSettingsNotFound && names.empty())
    {
        tree.assign(1, {}); // a root exists before its store is created
        return kSettingsDone;
    }
    if (error != kSettingsDone)
        return error;
    SettingsTransaction transaction(*state.database);
    return ReadTree(transaction, false, state, names, tree);
}

unsigned DeleteTreeOf(SettingsKey key, const std::vector<SettingsName>& names,
                      const std::function<bool(const std::vector<SettingsTreeKey>&)>& isExpected)
{
    const SettingsLock lock;
    SettingsKeyState root;
    const SettingsKeyState* const start = FindSettingsKey(key, root);
    if (start == nullptr)
        return kSettingsBadHandle;
    SettingsKeyState state = *start;
    if (state.depth == 0 && names.empty())
        return kSettingsAccessDenied;
    unsigned error = ConnectSettingsKey(state, SettingsUse::Write);
    if (error != kSettingsDone)
        return error;
    SettingsTransaction transaction(*state.database);
    std::vector<SettingsTreeKey> tree;
    error = ReadTree(transaction, true, state, names, tree);
    if (error == kSettingsDone && !isExpected(tree))
        error = kSettingsChanged;
    if (error == kSettingsDone)
        error = SettingsQuery(*state.database, SettingsStatement::DeleteKey).With(state.id).Run();
    return error == kSettingsDone ? transaction.Commit() : error;
}
} // namespace

unsigned ReadSettingsTree(SettingsKey key, const wchar_t* path, std::vector<SettingsTreeKey>& tree)
{
    std::vector<SettingsName> names;
    if (!SplitSettingsPath(path, names))
        return kSettingsBadParameter;
    return RetryWhileBusy([&] { return ReadTreeOf(key, names, tree); });
}

unsigned DeleteSettingsTree(SettingsKey key, const wchar_t* path,
                            const std::function<bool(const std::vector<SettingsTreeKey>&)>& isExpected)
{
    std::vector<SettingsName> names;
    if (!SplitSettingsPath(path, names))
        return kSettingsBadParameter;
    return RetryWhileBusy([&] { return DeleteTreeOf(key, names, isExpected); });
}
} // namespace tev
