#pragma once

#include "maps/HashTableBase.h"

/// A hash map whose entries lie in one array of slots. Entries are walked in the order of the slots, which depends on the
/// keys and on what was done to the map, and on nothing else: the same calls give the same order in each run.
/// One thread at a time.
///
/// `for (auto& [key, value] : map)` walks the entries; the key is const, the value as const as the map. The entry that a
/// walk is at may be removed, and nothing inserted.
///
/// Compared with std::unordered_map: an entry is found by a position, a slot's index, and not by an iterator; no
/// operation of the map throws, and only exceptions of the keys and values themselves pass through it. Any insertion of
/// a new key, and Remove with `rehash`, may move all entries: addresses of keys and values and positions are invalid
/// then; a plain Remove invalidates those of its entry alone. A walk costs the number of slots, not of entries: two to
/// four for each entry, more after many removals.
///
/// Less than half of the slots are in use, counting those of removed entries; a new entry that reaches half of them
/// rebuilds the table. A rebuild that finds no memory leaves the table as it is and is tried again by the next
/// insertion of a new key, which is refused if there still is none. A map that could not get its first slots, and one
/// that was moved from, has none: it finds nothing, and gets its slots with the first insertion. An exception thrown
/// while an entry is inserted leaves the map as it was. XLastFailure() says why an operation found no memory.
///
/// The hash of numbers is fixed, since it decides the order, so keys can be chosen to collide. A million of them
/// take some five times as long as others, as long as few are removed: a removal makes the next insertion among them slow.
///
/// KEY is stored, ARG_KEY is how keys are passed (`int`, `const CXTString<wchar_t>&`), METHODS hashes and compares them. In
/// maps of strings, lookups and removals take plain C strings as they are. Key and value of an entry are destroyed when
/// it is removed, not when its slot is used again.
template <class KEY, class ARG_KEY, class VALUE, class METHODS = CHashMethods<KEY>>
class CHashMap : public tev::HashTableBase<tev::HashSlot<KEY, VALUE>, ARG_KEY, METHODS>
{
    static_assert(std::is_class_v<METHODS> && !std::is_same_v<METHODS, VALUE>,
                  "the fourth argument hashes and compares keys; values have no argument type of their own");
    using Base = tev::HashTableBase<tev::HashSlot<KEY, VALUE>, ARG_KEY, METHODS>;

public:
    using typename Base::LookupKey;
    using Entry = tev::HashEntry<KEY, VALUE>;

    /// Makes `size` empty slots, rounded up to a prime of at least 5; 23 where there is no such prime of 32 bits.
    explicit CHashMap(unsigned int size = tev::kDefaultHashSize) : Base(size) {}
    /// Copies have the same slots, and so the same order. Without memory the copy is empty and has none.
    CHashMap(const CHashMap&) = default;
    CHashMap(CHashMap&&) noexcept = default;
    CHashMap& operator=(const CHashMap&) = default;
    CHashMap& operator=(CHashMap&&) noexcept = default;

    auto begin() noexcept { return this->template Begin<Entry>(); }
    auto end() noexcept { return this->template End<Entry>(); }
    auto begin() const noexcept { return this->template Begin<const Entry>(); }
    auto end() const noexcept { return this->template End<const Entry>(); }

    /// The value's address, null when the key is not there.
    VALUE* Find(LookupKey key) const
    {
        auto* slot = this->FindSlot(key);
        return slot == nullptr ? nullptr : &slot->m_value;
    }
    /// 1, and the value's address, when the key is there; else 0, and nothing is delivered.
    int Find(LookupKey key, VALUE*& value) const
    {
        VALUE* found = Find(key);
        if (found == nullptr)
            return 0;
        value = found;
        return 1;
    }
    /// 1, and a copy of the value, when the key is there; else 0, and nothing is delivered.
    int Find(LookupKey key, VALUE& value) const
    {
        const VALUE* found = Find(key);
        if (found == nullptr)
            return 0;
        value = *found;
        return 1;
    }

    /// Puts an entry in, or overwrites the value of the one that is there. 1 for a new entry; 0 for an overwritten value,
    /// and for a new key that is refused because there is no memory.
    int Insert(ARG_KEY key, const VALUE& value) { return this->InsertEntry(key, value); }
    /// As Insert; the value is moved in.
    int Insert2(ARG_KEY key, VALUE value) { return this->InsertEntry(key, std::move(value)); }
    /// Inserts every entry of the other map.
    void Merge(const CHashMap& other)
    {
        if (this != &other)
            other.ForEach([this](const auto& slot) { this->InsertEntry(slot.m_key, slot.m_value); });
    }
    using Base::Remove;
    /// Removes every key of the other map.
    void Remove(const CHashMap& other) { this->RemoveKeys(other); }

    /// Delivers the entry at a position that GetFirst or GetNext gave, and moves the position to the next one, or to
    /// 0xFFFFFFFF behind the last. `key` is a KEY for a copy or a `const KEY*` for the address, `value` likewise a
    /// VALUE or a `VALUE*`. False, with nothing delivered, when the entry was removed meanwhile or the position is no
    /// position.
    template <class KEY_OUT, class VALUE_OUT>
    bool GetNext(unsigned int& position, KEY_OUT& key, VALUE_OUT& value) const
    {
        auto* slot = this->TakePosition(position);
        if (slot == nullptr)
            return false;
        Deliver(slot->m_key, key);
        Deliver(slot->m_value, value);
        return true;
    }
    /// As above for the key or the value alone, distinguished by type; the key where both have the same.
    template <class OUT>
    bool GetNext(unsigned int& position, OUT& keyOrValue) const
    {
        auto* slot = this->TakePosition(position);
        if (slot == nullptr)
            return false;
        if constexpr (std::is_same_v<OUT, KEY> || std::is_same_v<OUT, const KEY*>)
            Deliver(slot->m_key, keyOrValue);
        else
            Deliver(slot->m_value, keyOrValue);
        return true;
    }

private:
    template <class T>
    static void Deliver(const T& stored, T& out)
    {
        out = stored;
    }
    template <class T>
    static void Deliver(T& stored, T*& out) noexcept
    {
        out = &stored;
    }
    template <class T>
    static void Deliver(const T& stored, const T*& out) noexcept
    {
        out = &stored;
    }
};
