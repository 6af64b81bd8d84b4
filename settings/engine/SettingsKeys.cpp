#include "settings/engine/SettingsStore.h"

#include "settings/engine/SettingsHandles.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace tev
{
namespace
{
/// What generic rights mean for keys.
constexpr struct
{
    unsigned generic;
    unsigned rights;
} kGenericRights[] = {
    {0x80000000, 0x20019}, // reading
    {0x40000000, 0x20006}, // writing
    {0x20000000, 0x20019}, // execution
    {0x10000000, 0xF003F}, // all
    {0x02000000, 0xF003F}, // the maximum allowed
};

unsigned SpecificRights(unsigned access)
{
    for (const auto& row : kGenericRights)
        access |= (access & row.generic) != 0 ? row.rights : 0;
    return access;
}

/// The key of a handle for the length of one operation: under the lock, and with its database connected, unless Error()
/// says why not.
class UsedKey
{
public:
    UsedKey(SettingsKey key, unsigned rights, SettingsUse use) : m_state(FindSettingsKey(key, m_root))
    {
        if (m_state == nullptr)
            m_error = kSettingsBadHandle;
        else if ((m_state->access & rights) != rights)
            m_error = kSettingsAccessDenied;
        else
            m_error = ConnectSettingsKey(*m_state, use);
    }

    unsigned Error() const noexcept { return m_error; }
    /// A root exists before its store is created.
    bool IsEmptyRoot() const noexcept { return m_error == kSettingsNotFound; }
    SettingsKeyState& State() const noexcept { return *m_state; }
    SettingsDatabase& Database() const noexcept { return *m_state->database; }
    /// Why something was not found in the key.
    unsigned WhyMissing(SettingsError inAPresentKey) const
    {
        const unsigned error = CheckSettingsKey(*m_state);
        return error == kSettingsDone ? unsigned{inAPresentKey} : error;
    }

private:
    SettingsLock m_lock;
    SettingsKeyState m_root;
    SettingsKeyState* m_state;
    unsigned m_error = kSettingsDone;
};

bool MakeValueName(const wchar_t* text, SettingsName& name)
{
    return MakeSettingsName(text != nullptr ? text : L"", kLongestSettingsValueName, name);
}

/// The names of a path as the cache knows it.
std::string FoldedPath(const std::vector<SettingsName>& names)
{
    std::string path;
    for (const SettingsName& name : names)
        (path += name.folded) += '\\'; // which no name holds
    return path;
}

/// Goes from a key down the names, in a database that is connected.
unsigned FindKeyBelow(SettingsKeyState& state, const std::vector<SettingsName>& names)
{
    SettingsCache& cache = state.database->Cache();
    const std::int64_t start = state.id;
    const std::string path = FoldedPath(names);
    if (const SettingsCache::Entry* const known = cache.Find(SettingsCache::Kind::Key, start, path))
    {
        state.id = known->number;
        state.depth += static_cast<unsigned>(names.size());
        return known->error;
    }
    SettingsTransaction transaction(*state.database);
    unsigned error = names.size() > 1 ? transaction.Begin(false) : kSettingsDone; // several steps must read one state
    if (error == kSettingsDone)
        error = WalkSettingsKeys(state, names, false);
    if (error == kSettingsDone && names.size() > 1)
        error = transaction.Commit();
    if (error == kSettingsDone || error == kSettingsNotFound)
        cache.Keep(SettingsCache::Kind::Key, start, path, error, state.id);
    return error;
}

unsigned OpenOrCreate(SettingsKey parent, const std::vector<SettingsName>& names, unsigned access, SettingsKey& key,
                      bool create)
{
    const UsedKey start(parent, 0, create ? SettingsUse::Create : SettingsUse::Read);
    if (start.Error() != kSettingsDone && !(start.IsEmptyRoot() && names.empty()))
        return start.Error();
    SettingsKeyState state = start.State();
    state.access = SpecificRights(access);
    unsigned error = kSettingsDone;
    if (create)
    {
        SettingsTransaction transaction(start.Database());
        error = transaction.Begin(true);
        if (error == kSettingsDone)
            error = WalkSettingsKeys(state, names, true);
        if (error == kSettingsDone)
            error = transaction.Commit();
    }
    else if (start.Error() == kSettingsDone)
        error = FindKeyBelow(state, names);
    if (error == kSettingsDone)
        key = AddSettingsKey(std::move(state));
    return error;
}

struct FoundValue
{
    unsigned type;
    std::uint64_t size;
    std::string_view data; ///< only where it was asked for
};

/// Finds a value and calls `use` with it.
template <class USE>
unsigned UseValue(SettingsKey key, const wchar_t* name, bool withData, USE use)
{
    SettingsName sought;
    if (!MakeValueName(name, sought))
        return kSettingsBadParameter;
    return RetryWhileBusy([&]() -> unsigned {
        const UsedKey used(key, kSettingsQueryValue, SettingsUse::Read);
        if (used.Error() != kSettingsDone)
            return used.Error();
        SettingsCache& cache = used.Database().Cache();
        const std::int64_t id = used.State().id;
        if (const SettingsCache::Entry* const known = cache.Find(SettingsCache::Kind::Value, id, sought.folded))
            return known->error == kSettingsDone
                       ? use(FoundValue{static_cast<unsigned>(known->number), known->data.size(), known->data})
                       : known->error;
        SettingsQuery query(used.Database(), withData ? SettingsStatement::ReadValue : SettingsStatement::MeasureValue);
        unsigned error = query.With(id).With(sought.folded).Next();
        if (error == kSettingsNoMoreItems && (error = used.WhyMissing(kSettingsNotFound)) == kSettingsNotFound)
            cache.Keep(SettingsCache::Kind::Value, id, sought.folded, error);
        if (error != kSettingsDone)
            return error;
        if (query.Bytes(1) != sought.folded || !query.IsIntactValue(id, withData))
            return kSettingsDamaged;
        const FoundValue found = {static_cast<unsigned>(query.Number(2)), static_cast<std::uint64_t>(query.Number(3)),
                                  withData ? query.Bytes(5) : std::string_view()};
        if (withData && found.size == found.data.size())
            cache.Keep(SettingsCache::Kind::Value, id, sought.folded, kSettingsDone, found.type, found.data);
        return use(found);
    });
}

struct EnumerationStatements
{
    SettingsStatement at;
    SettingsStatement from;
    SettingsStatement after;
};
constexpr EnumerationStatements kKeyEnumeration = {SettingsStatement::KeyAt, SettingsStatement::KeyFrom,
                                                   SettingsStatement::KeyAfter};
constexpr EnumerationStatements kValueEnumeration = {SettingsStatement::ValueAt, SettingsStatement::ValueFrom,
                                                     SettingsStatement::ValueAfter};

unsigned Enumerate(SettingsKey key, unsigned right, SettingsCursor SettingsKeyState::*which,
                   const EnumerationStatements& statements, unsigned index, std::wstring& name)
{
    const UsedKey used(key, right, SettingsUse::Read);
    if (used.Error() != kSettingsDone)
        return used.IsEmptyRoot() ? unsigned{kSettingsNoMoreItems} : used.Error();
    SettingsCursor& cursor = used.State().*which;
    const bool isNext = index != 0 && index == cursor.next;
    const bool isSame = index != 0 && index + 1 == cursor.next; // the buffer of the caller was too small for the name
    SettingsQuery query(used.Database(), isNext ? statements.after : isSame ? statements.from : statements.at);
    query.With(used.State().id);
    if (isNext || isSame)
        query.With(cursor.lastFound);
    else
        query.With(std::int64_t{index});
    const unsigned error = query.Next();
    if (error != kSettingsDone)
        return error == kSettingsNoMoreItems ? used.WhyMissing(kSettingsNoMoreItems) : error;
    const std::int64_t id = used.State().id;
    const bool isIntact = which == &SettingsKeyState::keys ? query.IsIntactKey(id) : query.IsIntactValue(id, false);
    if (!isIntact || (isNext && query.Bytes(1) <= cursor.lastFound))
        return kSettingsDamaged; // an enumeration must end in a damaged file too
    name = SettingsNameText(query.Bytes(0));
    cursor.lastFound = std::string(query.Bytes(1));
    cursor.next = index + 1;
    return kSettingsDone;
}

unsigned DeleteKeyIn(SettingsTransaction& transaction, SettingsKeyState& state, const std::vector<SettingsName>& names,
                     bool recursive)
{
    unsigned error = transaction.Begin(true);
    if (error == kSettingsDone)
        error = WalkSettingsKeys(state, names, false);
    if (error != kSettingsDone)
        return error;
    if (!recursive)
    {
        error = SettingsQuery(*state.database, SettingsStatement::HasKeys).With(state.id).Next();
        if (error == kSettingsDone)
            return kSettingsAccessDenied;
        if (error != kSettingsNoMoreItems)
            return error;
    }
    error = SettingsQuery(*state.database, SettingsStatement::DeleteKey).With(state.id).Run();
    return error == kSettingsDone ? transaction.Commit() : error;
}
/// Splits a path and calls `attempt` with its names.
template <class Attempt>
unsigned SplitAndRetry(const wchar_t* path, Attempt attempt)
{
    std::vector<SettingsName> names;
    if (!SplitSettingsPath(path, names))
        return kSettingsBadParameter;
    return RetryWhileBusy([&] { return attempt(names); });
}
} // namespace

unsigned OpenSettingsKey(SettingsKey parent, const wchar_t* path, unsigned access, SettingsKey& key)
{
    return SplitAndRetry(path, [&](const auto& names) { return OpenOrCreate(parent, names, access, key, false); });
}

unsigned CreateSettingsKey(SettingsKey parent, const wchar_t* path, unsigned access, SettingsKey& key)
{
    return SplitAndRetry(path, [&](const auto& names) { return OpenOrCreate(parent, names, access, key, true); });
}

unsigned CloseSettingsKey(SettingsKey key)
{
    const SettingsLock lock;
    SettingsKeyState root;
    return RemoveSettingsKey(key) || FindSettingsKey(key, root) != nullptr ? kSettingsDone : kSettingsBadHandle;
}

unsigned ReadSettingsValue(SettingsKey key, const wchar_t* name, SettingsValue& value)
{
    return UseValue(key, name, true, [&](const FoundValue& found) {
        value.type = found.type;
        value.data.assign(found.data);
        return unsigned{kSettingsDone};
    });
}

unsigned ReadSettingsValue(SettingsKey key, const wchar_t* name, unsigned& type, void* buffer, std::uint64_t& size)
{
    return UseValue(key, name, buffer != nullptr, [&](const FoundValue& found) {
        type = found.type;
        if (buffer == nullptr)
        {
            size = found.size;
            return unsigned{kSettingsDone};
        }
        // A file may hold text in place of bytes, whose length it counts otherwise.
        const std::uint64_t room = std::exchange(size, found.data.size());
        if (room < found.data.size())
            return unsigned{kSettingsMoreData};
        if (!found.data.empty())
            std::memcpy(buffer, found.data.data(), found.data.size());
        return unsigned{kSettingsDone};
    });
}

unsigned WriteSettingsValue(SettingsKey key, const wchar_t* name, unsigned type, const void* data, std::uint64_t size)
{
    SettingsName written;
    if (!MakeValueName(name, written) || (data == nullptr && size != 0))
        return kSettingsBadParameter;
    return RetryWhileBusy([&]() -> unsigned {
        const UsedKey used(key, kSettingsSetValue, SettingsUse::Create);
        if (used.Error() != kSettingsDone)
            return used.Error();
        return WriteValueIn(used.State(), written, type,
                            std::string_view(static_cast<const char*>(data), static_cast<std::size_t>(size)));
    });
}

unsigned DeleteSettingsValue(SettingsKey key, const wchar_t* name)
{
    SettingsName sought;
    if (!MakeValueName(name, sought))
        return kSettingsBadParameter;
    return RetryWhileBusy([&]() -> unsigned {
        const UsedKey used(key, kSettingsSetValue, SettingsUse::Write);
        if (used.Error() != kSettingsDone)
            return used.Error();
        SettingsQuery query(used.Database(), SettingsStatement::DeleteValue);
        const unsigned error = query.With(used.State().id).With(sought.folded).Run();
        return error != kSettingsDone || query.HasChanged() ? error : used.WhyMissing(kSettingsNotFound);
    });
}

unsigned DeleteSettingsKey(SettingsKey parent, const wchar_t* path, bool recursive)
{
    return SplitAndRetry(path, [&](const std::vector<SettingsName>& names) -> unsigned {
        const UsedKey start(parent, 0, SettingsUse::Write);
        if (start.Error() != kSettingsDone)
            return start.Error();
        SettingsKeyState state = start.State();
        if (state.depth == 0 && names.empty())
            return kSettingsAccessDenied;
        SettingsTransaction transaction(start.Database());
        return DeleteKeyIn(transaction, state, names, recursive);
    });
}

unsigned EnumerateSettingsKeys(SettingsKey key, unsigned index, std::wstring& name)
{
    return RetryWhileBusy(
        [&] { return Enumerate(key, kSettingsEnumerateKeys, &SettingsKeyState::keys, kKeyEnumeration, index, name); });
}

unsigned EnumerateSettingsValues(SettingsKey key, unsigned index, std::wstring& name)
{
    return RetryWhileBusy(
        [&] { return Enumerate(key, kSettingsQueryValue, &SettingsKeyState::values, kValueEnumeration, index, name); });
}

unsigned QuerySettingsKey(SettingsKey key)
{
    return RetryWhileBusy([&]() -> unsigned {
        const UsedKey used(key, kSettingsQueryValue, SettingsUse::Read);
        if (used.Error() != kSettingsDone)
            return used.IsEmptyRoot() ? unsigned{kSettingsDone} : used.Error();
        return CheckSettingsKey(used.State());
    });
}
} // namespace tev
