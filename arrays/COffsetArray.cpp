#include "arrays/COffsetArray.h"

#include "arrays/ArrayBlock.h"
#include "arrays/ArrayGrowth.h"
#include "files/CXArchive.h"
#include "files/CXFile.h"

#include <cstring>
#include <utility>

namespace
{
constexpr unsigned __int64 kLargestNarrow = 0xFFFFFFFF;
constexpr unsigned kLargestRoom = 0xFFFFFFFF;
} // namespace

COffsetArray::COffsetArray(const COffsetArray& other) : m_growBy(other.m_growBy)
{
    tev::ArrayBlock<unsigned> narrow(tev::ResizedArrayBlock<unsigned>(nullptr, other.m_split));
    m_wide = tev::ResizedArrayBlock(m_wide, other.GetSizetSize());
    m_narrow = narrow.release();
    std::copy_n(other.m_narrow, other.m_split, m_narrow);
    std::copy_n(other.m_wide, other.GetSizetSize(), m_wide);
    m_size = other.m_size;
    m_split = other.m_split;
    SetCapacity(m_wide != nullptr ? GetSizetSize() : m_size);
}

COffsetArray& COffsetArray::operator=(const COffsetArray& other)
{
    if (this != &other)
    {
        COffsetArray copy(other);
        Swap(copy);
    }
    return *this;
}

COffsetArray& COffsetArray::operator=(COffsetArray&& other) noexcept
{
    const tev::ExclusiveUse use(m_use);
    COffsetArray taken(std::move(other));
    Swap(taken);
    return *this;
}

COffsetArray::~COffsetArray()
{
    RemoveAll();
}

void COffsetArray::SetAt(unsigned int index, unsigned __int64 value)
{
    const tev::ExclusiveUse use(m_use);
    if (index >= m_size)
        return;
    if (value > kLargestNarrow)
        SplitArray(index);
    if (index < m_split)
        m_narrow[index] = static_cast<unsigned>(value);
    else
        m_wide[index - m_split] = value;
}

void COffsetArray::SetAtGrow(unsigned int index, unsigned __int64 value)
{
    const tev::ExclusiveUse use(m_use);
    if (index == m_size && m_wide == nullptr && index < m_capacity && value <= kLargestNarrow)
    {
        // What a table that is filled from the front does most of the time.
        m_narrow[index] = static_cast<unsigned>(value);
        m_size = m_split = index + 1;
        return;
    }
    if (index >= m_size)
    {
        if (index == kLargestRoom)
            CXInvalidArgException::Throw();
        const unsigned sizeBefore = m_size;
        SetSize(index + 1, -1);
        try
        {
            SetAt(index, value);
        }
        catch (...)
        {
            SetSize(sizeBefore, -1); // there was no memory for a wide part
            throw;
        }
        return;
    }
    SetAt(index, value);
}

void COffsetArray::RemoveAt(unsigned int index)
{
    const tev::ExclusiveUse use(m_use);
    if (index >= m_size)
        return;
    --m_size;
    if (index >= m_split)
    {
        unsigned __int64* entry = m_wide + (index - m_split);
        std::memmove(entry, entry + 1, sizeof *entry * (m_size - index));
        if (m_size == m_split)
            FreeWide();
        return;
    }
    --m_split;
    std::memmove(m_narrow + index, m_narrow + index + 1, sizeof *m_narrow * (m_split - index));
    if (m_wide != nullptr)
        ShrinkNarrow();
}

void COffsetArray::SetSize(unsigned int size, int growBy)
{
    const tev::ExclusiveUse use(m_use);
    if (growBy >= 0)
        m_growBy = growBy;
    if (size == 0)
    {
        RemoveAll();
        return;
    }
    if (m_wide != nullptr && size <= m_split)
    {
        m_split = m_size = size;
        FreeWide();
        ShrinkNarrow();
        return;
    }
    if (size > Room())
        GrowRoom(size);
    // Removed entries left their values there.
    if (m_wide != nullptr)
    {
        if (size > m_size)
            std::fill(m_wide + (m_size - m_split), m_wide + (size - m_split), 0);
    }
    else
    {
        if (size > m_size)
            std::fill(m_narrow + m_size, m_narrow + size, 0);
        m_split = size;
    }
    m_size = size;
}

void COffsetArray::GrowRoom(unsigned int size)
{
    const unsigned room = Room();
    const unsigned step =
        room != 0 && m_growBy == 0 ? tev::AutomaticGrowthStep(m_size) : static_cast<unsigned>(m_growBy);
    const unsigned __int64 grown = static_cast<unsigned __int64>(room) + step;
    if (grown > kLargestRoom)
        CXInvalidArgException::Throw();
    const unsigned newRoom = std::max(static_cast<unsigned>(grown), size);
    const unsigned capacity = m_wide != nullptr ? newRoom - m_split : newRoom;
    if (capacity > m_slots)
    {
        // Half as much again, so that appending in small steps stays linear.
        const unsigned slots = std::max(capacity, m_slots + std::min(m_slots / 2, kLargestRoom - m_slots));
        if (m_wide != nullptr)
            m_wide = tev::ResizedArrayBlock(m_wide, slots);
        else
            m_narrow = tev::ResizedArrayBlock(m_narrow, slots);
        m_slots = slots;
    }
    m_capacity = capacity;
}

void COffsetArray::PreAllocate(int capacity, int growBy)
{
    const tev::ExclusiveUse use(m_use);
    if (capacity < 0)
        CXInvalidArgException::Throw();
    if (growBy >= 0)
        m_growBy = growBy;
    RemoveAll();
    m_narrow = tev::ResizedArrayBlock(m_narrow, static_cast<unsigned>(capacity));
    SetCapacity(static_cast<unsigned>(capacity));
}

void COffsetArray::FreeExtra()
{
    const tev::ExclusiveUse use(m_use);
    if (m_wide != nullptr)
        m_wide = tev::ResizedArrayBlock(m_wide, GetSizetSize());
    else
        m_narrow = tev::ResizedArrayBlock(m_narrow, m_size);
    SetCapacity(m_wide != nullptr ? GetSizetSize() : m_size);
}

void COffsetArray::RemoveAll() noexcept
{
    const tev::ExclusiveUse use(m_use);
    std::free(m_narrow);
    std::free(m_wide);
    m_narrow = nullptr;
    m_wide = nullptr;
    m_size = m_split = 0;
    SetCapacity(0);
}

void COffsetArray::SplitArray(unsigned int index)
{
    const tev::ExclusiveUse use(m_use);
    if (index >= m_split)
        return;
    const unsigned room = Room() - index;
    auto* wide = tev::ResizedArrayBlock<unsigned __int64>(nullptr, room);
    unsigned __int64* end = std::copy(m_narrow + index, m_narrow + m_split, wide);
    std::copy_n(m_wide, GetSizetSize(), end);
    std::free(m_wide);
    m_wide = wide;
    m_split = index;
    SetCapacity(room);
    ShrinkNarrow();
}

// The narrow part stops growing once there is a wide one, so its spare entries are freed.
void COffsetArray::ShrinkNarrow() noexcept
{
    if (m_split == 0)
    {
        std::free(m_narrow);
        m_narrow = nullptr;
    }
    else if (void* shorter = std::realloc(m_narrow, sizeof *m_narrow * m_split))
        m_narrow = static_cast<unsigned*>(shorter);
}

void COffsetArray::FreeWide() noexcept
{
    std::free(m_wide);
    m_wide = nullptr;
    SetCapacity(m_split);
}

unsigned __int64 COffsetArray::GetAllocatedSize() const noexcept
{
    const unsigned __int64 narrow = m_wide != nullptr ? m_split : m_capacity;
    const unsigned __int64 wide = m_wide != nullptr ? m_capacity : 0;
    return narrow * sizeof *m_narrow + wide * sizeof *m_wide;
}

void COffsetArray::Swap(COffsetArray& other) noexcept
{
    std::swap(m_growBy, other.m_growBy);
    std::swap(m_size, other.m_size);
    std::swap(m_split, other.m_split);
    std::swap(m_capacity, other.m_capacity);
    std::swap(m_slots, other.m_slots);
    std::swap(m_narrow, other.m_narrow);
    std::swap(m_wide, other.m_wide);
}

void COffsetArray::Serialize(CXArchive& archive)
{
    const tev::ExclusiveUse use(m_use);
    if (archive.IsStoring())
        Store(archive);
    else
        Load(archive);
}

void COffsetArray::Store(CXArchive& archive) const
{
    archive << m_size << m_split << m_growBy;
    tev::StoreNumbers(archive, m_narrow, m_split);
    tev::StoreNumbers(archive, m_wide, GetSizetSize());
}

void COffsetArray::Load(CXArchive& archive)
{
    RemoveAll();
    unsigned size = 0;
    unsigned split = 0;
    int growBy = 0;
    archive >> size >> split >> growBy;
    if (split > size)
        CXArchiveException::Throw(archiveGeneric, archive.GetFile()->GetFilePath());
    auto narrow = tev::LoadNumbers<unsigned>(archive, split);
    auto wide = tev::LoadNumbers<unsigned __int64>(archive, size - split);
    m_growBy = std::max(growBy, 0);
    m_size = size;
    m_split = split;
    m_narrow = narrow.release();
    m_wide = wide.release();
    SetCapacity(m_wide != nullptr ? GetSizetSize() : m_size);
}
