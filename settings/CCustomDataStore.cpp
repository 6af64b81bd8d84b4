#include "settings/CCustomData.h"

#include "base/BlockChecksum.h"
#include "objects/CXException.h"
#include "objects/FailureNote.h"
#include "settings/CustomDataChunk.h"
#include "settings/StoreChange.h"
#include "settings/StoreLocks.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

using tev::LockGuard;
using tev::StoreLocks;

namespace
{
constexpr unsigned kNoId = 0xFFFFFFFF;
constexpr int kKeepPresent = 1;
} // namespace

X_IMPLEMENT_LIBRARY_CLASS(CCustomData, CXObject, 1)

CCustomDataClass::~CCustomDataClass() = default;

CCustomData::CCustomData()
{
    const LockGuard lock(m_lock);
    Touch();
}

CCustomData::CCustomData(const CCustomData& other) : CXObject(other)
{
    const StoreLocks locks(m_lock, other.m_lock);
    CopyFrom(other);
}

CCustomData& CCustomData::operator=(const CCustomData& other)
{
    if (this == &other)
        return *this;
    const StoreLocks locks(m_lock, other.m_lock);
    const WholeChange change(*this);
    CopyFrom(other);
    return *this;
}

CCustomData::~CCustomData()
{
    const LockGuard lock(m_lock);
    if (m_listeners != nullptr)
        m_listeners->Forget();
    Clear();
}

std::shared_ptr<tev::StoreListeners> CCustomData::GetListeners() const
{
    const LockGuard lock(m_lock);
    if (m_listeners == nullptr)
        m_listeners = std::make_shared<tev::StoreListeners>(*this);
    return m_listeners;
}

void CCustomData::CopyFrom(const CCustomData& other)
{
    other.CloseGaps();
    Block block(other.m_used == 0 ? nullptr : static_cast<unsigned char*>(Alloc(other.m_used)));
    std::unique_ptr<OffsetMap> offsets;
    if (block != nullptr)
    {
        std::memcpy(block.get(), other.m_buffer, other.m_used);
        offsets.reset(new (std::nothrow) OffsetMap(*other.m_offsets));
    }
    if (other.m_used != 0 && (offsets == nullptr || offsets->GetCount() != other.m_offsets->GetCount()))
        CXMemoryException::Throw();
    Clear();
    m_offsets = std::move(offsets);
    m_legacyMode = other.m_legacyMode;
    m_buffer = block.release();
    m_used = other.m_used;
    m_end = other.m_used;
    m_allocated = other.m_used;
    m_timeStamp = other.m_timeStamp;
}

// Moves the content of another store into this one; the other is left empty.
void CCustomData::TakeFrom(CCustomData& other)
{
    const StoreLocks locks(m_lock, other.m_lock);
    const WholeChange change(*this);
    Clear();
    other.CloseGaps();
    m_offsets = std::move(other.m_offsets);
    m_legacyMode = other.m_legacyMode;
    m_buffer = std::exchange(other.m_buffer, nullptr);
    m_used = other.m_used;
    m_end = other.m_used;
    m_allocated = other.m_allocated;
    m_timeStamp = other.m_timeStamp;
    other.Clear();
}

bool CCustomData::HasData() const
{
    const LockGuard lock(m_lock);
    return m_used != 0;
}

bool CCustomData::HasData(unsigned id) const
{
    const LockGuard lock(m_lock);
    return FindChunk(id) != nullptr;
}

unsigned CCustomData::GetDataKindOf(unsigned id) const
{
    const LockGuard lock(m_lock);
    const unsigned char* chunk = FindChunk(id);
    return chunk == nullptr ? 0 : tev::ChunkKind(chunk);
}

unsigned CCustomData::GetDataSize(unsigned id) const
{
    const LockGuard lock(m_lock);
    const unsigned char* chunk = FindChunk(id);
    return chunk == nullptr ? 0 : tev::ChunkSize(chunk);
}

unsigned CCustomData::GetIDCount() const
{
    const LockGuard lock(m_lock);
    return m_offsets == nullptr ? 0 : m_offsets->GetCount();
}

unsigned CCustomData::GetIDByIndex(unsigned index, unsigned& kind) const
{
    const LockGuard lock(m_lock);
    kind = 0;
    if (m_offsets == nullptr || index >= m_offsets->GetCount())
        return kNoId;
    CloseGaps();
    if (index < m_lastIndex)
    {
        m_lastIndex = 0;
        m_lastOffset = 0;
    }
    for (; m_lastIndex < index; ++m_lastIndex)
        m_lastOffset += tev::kChunkHeader + tev::ChunkSize(m_buffer + m_lastOffset);
    kind = tev::ChunkKind(m_buffer + m_lastOffset);
    return tev::ChunkId(m_buffer + m_lastOffset);
}

unsigned CCustomData::GetChecksum(unsigned id) const
{
    const LockGuard lock(m_lock);
    const unsigned char* chunk = FindChunk(id);
    return chunk == nullptr ? tev::BlockChecksum(nullptr, 0)
                            : tev::BlockChecksum(tev::ChunkData(chunk), tev::ChunkSize(chunk));
}

unsigned __int64 CCustomData::GetTimeStamp() const
{
    const LockGuard lock(m_lock);
    return m_timeStamp;
}

bool CCustomData::IsEqual(const CCustomData& other) const
{
    const StoreLocks locks(m_lock, other.m_lock);
    if (m_used != other.m_used)
        return false;
    CloseGaps();
    other.CloseGaps();
    if (m_used == 0 || std::memcmp(m_buffer, other.m_buffer, m_used) == 0)
        return true;
    // The totals are equal and no identifier occurs twice, so if each chunk is found in the other store, the other has
    // no more.
    for (unsigned at = 0; at < m_used;)
    {
        const unsigned extent = tev::kChunkHeader + tev::ChunkSize(m_buffer + at);
        const unsigned char* theirs = other.FindChunk(tev::ChunkId(m_buffer + at));
        if (theirs == nullptr || tev::ChunkSize(theirs) != extent - tev::kChunkHeader ||
            std::memcmp(m_buffer + at, theirs, extent) != 0)
            return false;
        at += extent;
    }
    return true;
}

bool CCustomData::RemoveCustom(unsigned id)
{
    const LockGuard lock(m_lock);
    const ValueChange change(*this, id);
    return RemoveChunk(id);
}

void CCustomData::RemoveAll()
{
    const LockGuard lock(m_lock);
    const WholeChange change(*this);
    Clear();
}

bool CCustomData::ChangeID(unsigned oldId, unsigned newId)
{
    const LockGuard lock(m_lock);
    const ValueChange newChange(*this, newId);
    const ValueChange oldChange(*this, oldId);
    const unsigned char* chunk = FindChunk(oldId);
    if (chunk == nullptr)
        return false;
    if (FindChunk(newId) != nullptr)
        return tev::NoteBadArgument("CCustomData::ChangeID");
    const auto offset = static_cast<unsigned>(chunk - m_buffer);
    if (!EnterOffset(newId, offset))
        return tev::NoteNoMemory("CCustomData::ChangeID");
    m_offsets->Remove(oldId);
    tev::StoreLittleEndian(m_buffer + offset, newId);
    return true;
}

bool CCustomData::CopyID(const CCustomData* source, unsigned id, unsigned newId)
{
    if (source == nullptr)
        return tev::NoteBadArgument("CCustomData::CopyID");
    const StoreLocks locks(m_lock, source->m_lock);
    const ValueChange change(*this, newId);
    const unsigned char* chunk = source->FindChunk(id);
    return chunk != nullptr && SetChunk(newId, tev::ChunkData(chunk), tev::ChunkSize(chunk), tev::ChunkKind(chunk));
}

CCustomData* CCustomData::Copy() const
{
    return new CCustomData(*this);
}

void CCustomData::FreeExtra()
{
    const LockGuard lock(m_lock);
    CloseGaps();
    if (m_used != 0 && m_used != m_allocated)
        static_cast<void>(Reallocate(m_used));
}

void* CCustomData::GetData(unsigned& size)
{
    const LockGuard lock(m_lock);
    CloseGaps();
    size = m_used;
    return m_buffer;
}

const void* CCustomData::GetData(unsigned& size) const
{
    return const_cast<CCustomData*>(this)->GetData(size);
}

bool CCustomData::IsTaken(const char* operation, Outcome outcome) noexcept
{
    if (outcome == Outcome::kDone)
        return true;
    return outcome == Outcome::kNoMemory ? tev::NoteNoMemory(operation) : tev::NoteBadData(operation);
}

bool CCustomData::SetData(const void* data, unsigned size)
{
    const LockGuard lock(m_lock);
    const WholeChange change(*this);
    Block block(size == 0 ? nullptr : static_cast<unsigned char*>(Alloc(size)));
    if (size != 0 && data == nullptr)
        return tev::NoteBadArgument("CCustomData::SetData");
    if (size != 0 && block == nullptr)
        return false; // Alloc has said so
    if (size != 0)
        std::memcpy(block.get(), data, size);
    return IsTaken("CCustomData::SetData", TakeBlock(std::move(block), size, 0));
}

void* CCustomData::Detach(unsigned& size)
{
    const LockGuard lock(m_lock);
    FreeExtra();
    const WholeChange change(*this);
    size = m_used;
    unsigned char* block = std::exchange(m_buffer, nullptr);
    Clear();
    return block;
}

bool CCustomData::Attach(void* buffer, unsigned size)
{
    const LockGuard lock(m_lock);
    const WholeChange change(*this);
    if (buffer == m_buffer)
        m_buffer = nullptr; // the store's own block, which Clear must not free
    Clear();
    Block block(static_cast<unsigned char*>(buffer));
    if (size != 0 && buffer == nullptr)
        return tev::NoteBadArgument("CCustomData::Attach");
    return IsTaken("CCustomData::Attach", TakeBlock(std::move(block), size, 0));
}

void* CCustomData::Alloc(unsigned size)
{
    void* const block = std::malloc(size);
    if (block == nullptr && size != 0)
        tev::NoteNoMemory("CCustomData::Alloc");
    return block;
}

void CCustomData::Free(void* buffer)
{
    std::free(buffer);
}

bool CCustomData::SetCustomData(unsigned id, const CCustomData& data)
{
    const StoreLocks locks(m_lock, data.m_lock);
    const ValueChange change(*this, id);
    data.CloseGaps();
    return SetChunk(id, data.m_buffer, data.m_used, kCustomData);
}

bool CCustomData::GetCustomData(unsigned id, CCustomData& out) const
{
    const StoreLocks locks(m_lock, out.m_lock);
    const tev::FailuresUnnoted unnoted; // a getter's answer says enough
    unsigned size = 0;
    const unsigned char* data = FindOfKind(id, kCustomData, size);
    const unsigned legacyMode = m_legacyMode;
    if (data == nullptr || !out.SetData(data, size))
        return false;
    out.m_legacyMode = legacyMode; // values of an older layout have no kinds within nested stores either
    return true;
}

bool CCustomData::AddToCustomData(unsigned id, const CCustomData& data, int mode)
{
    const StoreLocks locks(m_lock, data.m_lock);
    CCustomData merged;
    if (!GetCustomData(id, merged)) // a damaged one is replaced
        return SetCustomData(id, data);
    data.CloseGaps();
    for (unsigned at = 0; at < data.m_used;)
    {
        const unsigned char* chunk = data.m_buffer + at;
        const unsigned added = tev::ChunkId(chunk);
        if ((mode != kKeepPresent || !merged.HasData(added)) && !merged.CopyID(&data, added))
            return false;
        at += tev::kChunkHeader + tev::ChunkSize(chunk);
    }
    return SetCustomData(id, merged);
}

bool CCustomData::SetCustomClass(unsigned id, const CCustomDataClass& object)
{
    CCustomData data;
    object.SaveTo(data);
    return SetCustomData(id, data);
}

bool CCustomData::GetCustomClass(unsigned id, CCustomDataClass& object) const
{
    CCustomData data;
    return GetCustomData(id, data) && object.LoadFrom(data);
}
