#pragma once

#include "arrays/IndexIterator.h"
#include "base/TevTypes.h"
#include "objects/ThreadUse.h"

class CXArchive;

/// An array of unsigned 64-bit offsets that takes 4 bytes an entry up to the first one that needs more, and 8 bytes from
/// there on: for tables of positions in files, which are small most of the time. One thread at a time.
///
/// Compared with std::vector<unsigned long long>: entries are read and set by value, also by `for (const auto offset :
/// offsets)`, there are no references to them, and nothing is thrown at an index past the end. Growing, and the first value of more than 32
/// bits, throw std::bad_alloc, and growing CXInvalidArgException where the room would exceed 32 bits; the entries are
/// unchanged then. Appending costs constant time on average. A value of more than 32 bits moves every entry behind it
/// once, so set large ones in ascending order.
class TEVTOOLS_API COffsetArray
{
public:
    /// Over the entries, by value.
    using Entries = tev::IndexIterator<COffsetArray, unsigned __int64>;

    COffsetArray() = default;
    COffsetArray(const COffsetArray& other);
    COffsetArray(COffsetArray&& other) noexcept { Swap(other); }
    COffsetArray& operator=(const COffsetArray& other);
    COffsetArray& operator=(COffsetArray&& other) noexcept;
    virtual ~COffsetArray();

    unsigned int GetSize() const noexcept { return m_size; }
    /// The entry; 0 past the end.
    unsigned __int64 GetAt(unsigned int index) const noexcept
    {
        const tev::SharedUse use(m_use);
        if (index < m_split)
            return m_narrow[index];
        return index < m_size ? m_wide[index - m_split] : 0;
    }
    unsigned __int64 operator[](unsigned int index) const noexcept { return GetAt(index); }

    Entries begin() const noexcept { return {*this, 0}; }
    Entries end() const noexcept { return {*this, m_size}; }

    /// Sets an entry; nothing happens past the end.
    void SetAt(unsigned int index, unsigned __int64 value);
    /// Sets an entry; past the end the array grows to it, with zeros before it. 0xFFFFFFFF is an invalid argument.
    void SetAtGrow(unsigned int index, unsigned __int64 value);
    /// Removes an entry; nothing happens past the end.
    void RemoveAt(unsigned int index);
    /// New entries are 0; a size of 0 frees the memory. `growBy` is how many entries the array gains when it must grow, 0
    /// for the automatic step, a negative one to leave it as it is.
    void SetSize(unsigned int size, int growBy = -1);
    /// Empties the array and makes room for so many entries. A negative capacity is an invalid argument.
    void PreAllocate(int capacity, int growBy = -1);
    /// Frees the memory that no entry uses.
    void FreeExtra();
    void RemoveAll() noexcept;

    /// Reads or writes the array, as the archive's direction says. Throws what the archive throws; sizes that contradict
    /// each other are archiveGeneric. After a failed reading the array is empty.
    void Serialize(CXArchive& archive);

protected:
    /// Holds every entry from this one on in 64 bits.
    void SplitArray(unsigned int index);
    /// Bytes of memory that the capacity takes.
    unsigned __int64 GetAllocatedSize() const noexcept;
    /// Entries of 64 bits.
    unsigned int GetSizetSize() const noexcept { return m_size - m_split; }

private:
    friend Entries;
    unsigned __int64 ValueAt(unsigned int index) const noexcept { return GetAt(index); }
    static unsigned int IndexAfter(unsigned int index) noexcept { return index + 1; }
    unsigned int Room() const noexcept { return m_wide != nullptr ? m_split + m_capacity : m_capacity; }
    void GrowRoom(unsigned int size);
    void SetCapacity(unsigned int capacity) noexcept { m_capacity = m_slots = capacity; }
    void FreeWide() noexcept;
    void ShrinkNarrow() noexcept;
    void Swap(COffsetArray& other) noexcept;
    void Store(CXArchive& archive) const;
    void Load(CXArchive& archive);

    int m_growBy = 0;
    unsigned int m_size = 0;
    unsigned int m_split = 0;    ///< entries of 32 bits: all of them while there is no wide part
    unsigned int m_capacity = 0; ///< entries allocated in the part that grows, the wide one where there is one
    unsigned int* m_narrow = nullptr;
    unsigned __int64* m_wide = nullptr; ///< never without an entry
    unsigned int m_slots = 0;           ///< of that part's memory; those beyond the capacity are there for growth
    tev::ThreadUse m_use;
};
