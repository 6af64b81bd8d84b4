#include "arrays/CElementArray.h"

#include "arrays/ArrayBlock.h"
#include "arrays/ArrayElements.h"
#include "arrays/ArrayGrowth.h"
#include "base/BlockChecksum.h"
#include "objects/CXException.h"
#include "objects/FailureNote.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <typeinfo>
#include <utility>
#include <vector>

X_IMPLEMENT_LIBRARY_CLASS(CElementArray, CXObject, 1)

namespace
{
constexpr unsigned kPlaced = 0xFFFFFFFF;

void Require(bool holds)
{
    if (!holds)
        tev::ThrowInvalidArgument();
}

// Sizes that the processor copies in one step need no call.
void CopyElementBytes(void* target, const void* source, std::size_t size) noexcept
{
    switch (size)
    {
    case 1:
        std::memcpy(target, source, 1);
        return;
    case 4:
        std::memcpy(target, source, 4);
        return;
    case 8:
        std::memcpy(target, source, 8);
        return;
    default:
        std::memmove(target, source, size);
    }
}

// For each new place the old index of the element that goes there; empty when the order is no permutation.
std::vector<unsigned> SourcesOf(const unsigned* order, unsigned count, bool inverse)
{
    std::vector<unsigned> inverted(count, kPlaced);
    for (unsigned i = 0; i < count; ++i)
    {
        if (order[i] >= count || inverted[order[i]] != kPlaced)
            return {};
        inverted[order[i]] = i;
    }
    return inverse ? inverted : std::vector<unsigned>(order, order + count);
}

// An element outside every array.
class ScratchElement
{
public:
    explicit ScratchElement(CElementMethods& methods)
        : m_methods(methods), m_element(tev::ResizedArrayBlock<unsigned char>(nullptr, methods.GetSizeOfElement()))
    {
        methods.ConstructElement(m_element.get());
    }
    ~ScratchElement() { m_methods.DestructElement(m_element.get()); }
    ScratchElement(const ScratchElement&) = delete;
    ScratchElement& operator=(const ScratchElement&) = delete;
    void* Address() const noexcept { return m_element.get(); }

private:
    CElementMethods& m_methods;
    tev::ArrayBlock<unsigned char> m_element;
};
} // namespace

CElementArray::CElementArray(CElementMethods* methods)
{
    Install(methods);
}

CElementArray::~CElementArray()
{
    Release();
    DeleteMe(m_methods);
}

void CElementArray::Install(CElementMethods* methods)
{
    m_methods = methods;
    m_elementSize = methods != nullptr ? methods->GetSizeOfElement() : 0;
    m_isObject = methods != nullptr && methods->IsObject();
}

void CElementArray::SetMethods(CElementMethods* methods)
{
    const tev::ExclusiveUse use(m_use);
    if (m_data != nullptr)
        SetSize(0, false, -1);
    Release(); // a derived class may have kept elements, which the new methods do not know
    DeleteMe(m_methods);
    Install(methods);
    m_growFactor = 0;
    m_constructMode = false;
}

unsigned int CElementArray::GetTypeOfElement() const
{
    return m_methods != nullptr ? m_methods->GetTypeOfElement() : 0;
}

unsigned int CElementArray::GetBaseTypeOfElement() const
{
    return m_methods != nullptr ? m_methods->GetBaseTypeOfElement() : 0;
}

int CElementArray::IndexBehind(const void* element) const noexcept
{
    if (!Owns(element))
        return -1;
    const auto offset = static_cast<std::size_t>(static_cast<const unsigned char*>(element) - m_data);
    return static_cast<int>(offset / static_cast<std::size_t>(m_elementSize)) + 1;
}

bool CElementArray::Owns(const void* element) const noexcept
{
    const auto offset = reinterpret_cast<std::uintptr_t>(element) - reinterpret_cast<std::uintptr_t>(m_data);
    return offset < Bytes(m_size);
}

unsigned int CElementArray::GetChecksum() const noexcept
{
    const tev::SharedUse use(m_use);
    return tev::BlockChecksum(m_data, Bytes(m_size));
}

int CElementArray::SetGrowFactor(int growFactor) noexcept
{
    return growFactor < 0 ? m_growFactor : std::exchange(m_growFactor, growFactor);
}

void CElementArray::SetSize(int newSize, bool keepMemory, int growFactor)
{
    const tev::ExclusiveUse use(m_use);
    Require(newSize >= 0);
    const int growthBefore = std::exchange(m_growFactor, tev::ChosenGrowth(m_growFactor, growFactor));
    if (newSize == 0 && !keepMemory)
    {
        Release();
        return;
    }
    try
    {
        ChangeSize(newSize, keepMemory);
    }
    catch (...)
    {
        m_growFactor = growthBefore;
        throw;
    }
}

void CElementArray::ChangeSize(int newSize, bool keepMemory)
{
    if (newSize > m_capacity)
        GrowTo(tev::GrownCapacity(m_size, m_capacity, m_growFactor, newSize));
    if (newSize < m_size && !keepMemory)
    {
        const int oldSize = std::exchange(m_size, newSize);
        Destroy(newSize, oldSize);
        RestoreReserve(newSize, oldSize);
    }
    else if (newSize > m_size && !m_constructMode)
        DestroyReserve(); // elements that keepMemory left are not reused
    ConstructUpTo(m_constructMode ? m_capacity : newSize);
    m_size = newSize;
}

// Before elements are written to: a derived class may have refused to make so many.
void CElementArray::Resize(int newSize, bool keepMemory, int growFactor)
{
    SetSize(newSize, keepMemory, growFactor);
    Require(m_size >= newSize && (m_data != nullptr || newSize == 0));
}

void CElementArray::RemoveAll()
{
    SetSize(0, false, -1);
}

void CElementArray::GrowTo(int capacity)
{
    if (capacity > m_slots)
        Reallocate(m_data == nullptr ? capacity : tev::SlotsForGrowth(m_slots, capacity));
    SetCapacity(capacity);
}

void CElementArray::SetCapacity(int capacity) noexcept
{
    m_capacity = capacity;
    m_directEnd = !m_isObject && typeid(*this) == typeid(CElementArray) ? capacity : 0;
}

void CElementArray::Reallocate(int slots)
{
    Require(m_elementSize != 0);
    if (m_elementSize > static_cast<std::size_t>(PTRDIFF_MAX) / static_cast<unsigned>(slots))
        throw std::bad_alloc();
    m_data = tev::ResizedArrayBlock(m_data, Bytes(slots));
    m_slots = slots;
}

void CElementArray::Release() noexcept
{
    Destroy(0, m_constructed);
    std::free(m_data);
    m_data = nullptr;
    m_size = m_capacity = m_slots = m_constructed = m_directEnd = 0;
}

void CElementArray::ConstructUpTo(int end)
{
    if (m_constructed >= end)
        return;
    if (m_isObject)
    {
        for (; m_constructed < end; ++m_constructed)
            m_methods->ConstructElement(Address(m_constructed));
        return;
    }
    // One is constructed; what is there is doubled until all are.
    unsigned char* const first = Address(m_constructed);
    const std::size_t bytes = Bytes(end - m_constructed);
    m_methods->ConstructElement(first);
    for (std::size_t done = Bytes(1); done < bytes;)
    {
        const std::size_t step = std::min(done, bytes - done);
        std::memcpy(first + done, first, step);
        done += step;
    }
    m_constructed = end;
}

void CElementArray::Destroy(int first, int last) noexcept
{
    if (!m_isObject)
        return;
    for (; first < last; ++first)
        m_methods->DestructElement(Address(first));
}

void CElementArray::DestroyReserve() noexcept
{
    Destroy(m_size, m_constructed);
    m_constructed = std::min(m_constructed, m_size);
}

// For slots of the reserve that no longer hold elements while those after them do. Construct mode constructs them again;
// else the rest of the reserve is destroyed, since constructed slots must be contiguous.
void CElementArray::RestoreReserve(int first, int last)
{
    const int end = std::exchange(m_constructed, first);
    if (!m_constructMode)
    {
        Destroy(last, end);
        return;
    }
    try
    {
        ConstructUpTo(last);
    }
    catch (...)
    {
        Destroy(last, end);
        throw;
    }
    m_constructed = end;
}

void CElementArray::ConstructMode(bool construct)
{
    const tev::ExclusiveUse use(m_use);
    if (construct == m_constructMode)
        return;
    DestroyReserve();
    if (construct)
        ConstructUpTo(m_capacity);
    m_constructMode = construct;
}

void CElementArray::PreAllocate(int capacity)
{
    const tev::ExclusiveUse use(m_use);
    Require(capacity >= 0);
    if (capacity == m_capacity && m_size == 0)
        return;
    Release();
    if (capacity == 0)
        return;
    GrowTo(capacity);
    if (m_constructMode)
        ConstructUpTo(capacity);
}

void CElementArray::FreeExtra()
{
    const tev::ExclusiveUse use(m_use);
    if (m_size == 0)
    {
        Release();
        return;
    }
    DestroyReserve();
    Reallocate(m_size);
    SetCapacity(m_size);
}

void CElementArray::CopyValue(void* target, const void* source)
{
    if (m_isObject)
        m_methods->CopyElement(target, source);
    else if (source == nullptr)
        std::memset(target, 0, Bytes(1));
    else
        CopyElementBytes(target, source, Bytes(1));
}

void CElementArray::SetAt(int index, const void* source)
{
    const tev::ExclusiveUse use(m_use);
    Require(IsElement(index));
    CopyValue(Address(index), source);
}

void CElementArray::SetAtGrow(int index, const void* source, int growFactor)
{
    const tev::ExclusiveUse use(m_use);
    Require(index >= 0 && index < tev::kMostElements);
    const int sizeBefore = m_size;
    const int growthBefore = m_growFactor;
    if (index >= m_size)
    {
        const bool isOwn = Owns(source);
        const std::ptrdiff_t offset = isOwn ? static_cast<const unsigned char*>(source) - m_data : 0;
        Resize(index + 1, true, growFactor);
        if (isOwn)
            source = m_data + offset;
    }
    try
    {
        CopyValue(Address(index), source);
    }
    catch (...)
    {
        m_size = sizeBefore;
        m_growFactor = growthBefore;
        throw;
    }
}

int CElementArray::Add(const void* source, int growFactor)
{
    const tev::ExclusiveUse use(m_use);
    if (m_size < m_directEnd && source != nullptr && growFactor == tev::kKeepGrowth)
    {
        CopyElementBytes(Address(m_size), source, Bytes(1));
        m_constructed = m_constructMode ? m_constructed : m_size + 1;
        return m_size++;
    }
    const int index = m_size;
    SetAtGrow(index, source, growFactor);
    return index;
}

// Inserts `count` constructed elements at the index and has them filled; past the end, the array is filled up to the index
// first. When that throws, the elements that were there are moved back, for which nothing must be allocated any more.
template <class FILL>
void CElementArray::InsertGap(int index, int count, FILL fill)
{
    Require(index >= 0 && count >= 1 && count <= tev::kMostElements - std::max(index, m_size));
    const int sizeBefore = m_size;
    const int behind = std::max(sizeBefore - index, 0);
    std::vector<unsigned char> inserted(behind == 0 ? 0 : Bytes(count));
    Resize(index + behind + count, true, -1);
    // The new elements change places with those behind the index, as bytes.
    if (behind != 0)
    {
        std::memcpy(inserted.data(), Address(sizeBefore), inserted.size());
        std::memmove(Address(index + count), Address(index), Bytes(behind));
        std::memcpy(Address(index), inserted.data(), inserted.size());
    }
    try
    {
        fill();
    }
    catch (...)
    {
        if (behind != 0)
        {
            std::memcpy(inserted.data(), Address(index), inserted.size());
            std::memmove(Address(index), Address(index + count), Bytes(behind));
            std::memcpy(Address(sizeBefore), inserted.data(), inserted.size());
        }
        m_size = sizeBefore;
        throw;
    }
}

void CElementArray::InsertAt(int index, const void* source, int count)
{
    const tev::ExclusiveUse use(m_use);
    const bool isOwn = Owns(source);
    auto offset = isOwn ? static_cast<std::size_t>(static_cast<const unsigned char*>(source) - m_data) : 0;
    InsertGap(index, count, [&] {
        if (source == nullptr)
            return;
        if (isOwn)
        {
            if (offset >= Bytes(index))
                offset += Bytes(count);
            source = m_data + offset;
        }
        for (int i = 0; i < count; ++i)
            CopyValue(Address(index + i), source);
    });
}

bool CElementArray::InsertAt(int index, const CElementArray* other)
{
    const tev::ExclusiveUse use(m_use);
    Require(other != nullptr && index >= 0);
    if (!CanCopy(*other))
        return tev::NoteBadArgument("CElementArray::InsertAt");
    const int count = other->m_size;
    if (count == 0)
        return true;
    // In the array itself, the gap has moved the elements behind it.
    const int unmoved = other == this ? std::min(index, count) : count;
    InsertGap(index, count, [&] {
        CopyRun(index, *other, 0, unmoved);
        CopyRun(index + unmoved, *other, unmoved + count, count - unmoved);
    });
    return true;
}

void CElementArray::RemoveAt(int index, int count)
{
    const tev::ExclusiveUse use(m_use);
    Require(index >= 0 && count >= 0 && index <= m_size && count <= m_size - index);
    if (count == 0)
        return;
    const int sizeBefore = std::exchange(m_size, m_size - count);
    Destroy(index, index + count);
    std::memmove(Address(index), Address(index + count), Bytes(m_size - index));
    RestoreReserve(m_size, sizeBefore);
}

bool CElementArray::Reorder(const unsigned int* order, unsigned int count, bool inverse)
{
    const tev::ExclusiveUse use(m_use);
    if (order == nullptr || count == 0 || count != static_cast<unsigned>(m_size))
        return tev::NoteBadArgument("CElementArray::Reorder");
    std::vector<unsigned> sources = SourcesOf(order, count, inverse);
    if (sources.empty())
        return tev::NoteBadArgument("CElementArray::Reorder");
    const ScratchElement scratch(*m_methods);
    for (unsigned i = 0; i < count; ++i)
    {
        if (sources[i] == kPlaced || sources[i] == i)
            continue;
        // Each place of the cycle gets its element.
        CopyValue(scratch.Address(), Address(static_cast<int>(i)));
        unsigned place = i;
        do
        {
            const unsigned next = std::exchange(sources[place], kPlaced);
            CopyValue(Address(static_cast<int>(place)), Address(static_cast<int>(next)));
            place = next;
        } while (sources[place] != i);
        CopyValue(Address(static_cast<int>(place)), scratch.Address());
        sources[place] = kPlaced;
    }
    return true;
}
