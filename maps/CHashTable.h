#pragma once

#include "maps/HashTableBase.h"

/// A set of keys: CHashMap without values, with its rules, its names, its costs and its order. One thread at a time.
template <class KEY, class METHODS = CHashMethods<KEY>>
class CHashTable : public tev::HashTableBase<tev::HashSlot<KEY, void>,
                                             std::conditional_t<std::is_scalar_v<KEY>, KEY, const KEY&>, METHODS>
{
    using ArgKey = std::conditional_t<std::is_scalar_v<KEY>, KEY, const KEY&>;
    using Base = tev::HashTableBase<tev::HashSlot<KEY, void>, ArgKey, METHODS>;

public:
    using typename Base::LookupKey;

    explicit CHashTable(unsigned int size = tev::kDefaultHashSize) : Base(size) {}
    CHashTable(const CHashTable&) = default;
    CHashTable(CHashTable&&) noexcept = default;
    CHashTable& operator=(const CHashTable&) = default;
    CHashTable& operator=(CHashTable&&) noexcept = default;

    /// `for (const auto& key : table)` walks the keys.
    auto begin() const noexcept { return this->template Begin<const KEY>(); }
    auto end() const noexcept { return this->template End<const KEY>(); }

    /// The stored key's address, null when the key is not there.
    const KEY* Find(LookupKey key) const
    {
        const auto* slot = this->FindSlot(key);
        return slot == nullptr ? nullptr : &slot->m_key;
    }

    /// 1 for a new key; 0 when it was there, and when it is refused because there is no memory.
    int Insert(ArgKey key) { return this->InsertEntry(key); }
    void Merge(const CHashTable& other)
    {
        if (this != &other)
            other.ForEach([this](const auto& slot) { this->InsertEntry(slot.m_key); });
    }
    using Base::Remove;
    /// Removes every key of the other table.
    void Remove(const CHashTable& other) { this->RemoveKeys(other); }

    /// Delivers a copy of the key at a position and moves the position on, as CHashMap does.
    bool GetNext(unsigned int& position, KEY& key) const
    {
        const auto* slot = this->TakePosition(position);
        if (slot == nullptr)
            return false;
        key = slot->m_key;
        return true;
    }
    /// As above for the key's address.
    bool GetNext(unsigned int& position, const KEY*& key) const
    {
        const auto* slot = this->TakePosition(position);
        if (slot == nullptr)
            return false;
        key = &slot->m_key;
        return true;
    }
};
