// The block of chunks and the map of where each begins. The caller holds the lock.

#include "objects/FailureNote.h"
#include "settings/CCustomData.h"
#include "settings/CustomDataChunk.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <utility>

namespace
{
constexpr struct
{
    CCustomData::Kind m_kind;
    const char* m_name;
} kSetters[] = {
    {CCustomData::kInt, "CCustomData::SetInt"},
    {CCustomData::kUInt, "CCustomData::SetUInt"},
    {CCustomData::kLong, "CCustomData::SetLong"},
    {CCustomData::kULong, "CCustomData::SetULong"},
    {CCustomData::kLongInt, "CCustomData::SetLongInt"},
    {CCustomData::kULongInt, "CCustomData::SetULongInt"},
    {CCustomData::kChar, "CCustomData::SetChar"},
    {CCustomData::kUChar, "CCustomData::SetUChar"},
    {CCustomData::kBool, "CCustomData::SetBool"},
    {CCustomData::kFloat, "CCustomData::SetFloat"},
    {CCustomData::kDouble, "CCustomData::SetDouble"},
    {CCustomData::kPtr, "CCustomData::SetPtr"},
    {CCustomData::kStringW, "CCustomData::SetStringW"},
    {CCustomData::kStringA, "CCustomData::SetStringA"},
    {CCustomData::kStringList, "CCustomData::SetStringList"},
    {CCustomData::kXTime, "CCustomData::SetXTime"},
    {CCustomData::kUTCTime, "CCustomData::SetUTCTime"},
    {CCustomData::kBinary, "CCustomData::SetBinary"},
    {CCustomData::kArray, "CCustomData::SetArray"},
    {CCustomData::kCustomData, "CCustomData::SetCustomData"},
};

using namespace tev;

constexpr unsigned kSmallestBlock = 128;
constexpr double kGrowth = 1.5;
// A store that is saved counts the 20 bytes of its header in the same 32 bits.
constexpr unsigned kLargestBlock = 0xFFFFFFFF - 20;
// A block is given back when less than a third of it is used, and keeps a half more than that: so a value that comes
// and goes does not move the block each time.
constexpr unsigned kShrinkBelow = 3;
constexpr unsigned kNowhere = 0xFFFFFFFF;
constexpr unsigned kRetiredKind = 0; // of a chunk in a gap, for debuggers

bool PointsInto(const void* pointer, const unsigned char* block, unsigned size)
{
    const auto* byte = static_cast<const unsigned char*>(pointer);
    return !std::less<>()(byte, block) && std::less<>()(byte, block + size);
}

unsigned Grown(unsigned __int64 size)
{
    return static_cast<unsigned>(std::min(static_cast<double>(size) * kGrowth, static_cast<double>(kLargestBlock)));
}
} // namespace

void CCustomData::Touch() noexcept
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    m_timeStamp = static_cast<unsigned __int64>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

const unsigned char* CCustomData::FindChunk(unsigned id) const
{
    if (m_offsets == nullptr)
        return nullptr;
    const unsigned* offset = m_offsets->Find(id);
    return offset == nullptr ? nullptr : m_buffer + *offset;
}

// The bytes of a value that has this size, and this kind where kinds are known.
const unsigned char* CCustomData::FindValue(unsigned id, unsigned size, unsigned kind) const
{
    unsigned found = 0;
    const unsigned char* data = FindOfKind(id, kind, found);
    return found == size ? data : nullptr;
}

const unsigned char* CCustomData::FindOfKind(unsigned id, unsigned kind, unsigned& size) const
{
    const unsigned char* chunk = FindChunk(id);
    if (chunk == nullptr || (m_legacyMode == 0 && kind != kAnyKind && ChunkKind(chunk) != kind))
        return nullptr;
    size = ChunkSize(chunk);
    return ChunkData(chunk);
}

// Makes a value of this size, which is not 0, and returns its bytes for the caller to fill; null, with nothing changed,
// when there is no room. One that has the size already keeps its place and its bytes.
unsigned char* CCustomData::Place(unsigned id, unsigned size, unsigned kind)
{
    unsigned char* const bytes = PlaceQuietly(id, size, kind);
    if (bytes == nullptr)
        NoteNotSet(kind);
    return bytes;
}

bool CCustomData::NoteNotSet(unsigned kind) noexcept
{
    for (const auto& setter : kSetters)
    {
        if (setter.m_kind == kind)
            return tev::NoteNoMemory(setter.m_name);
    }
    return tev::NoteNoMemory("CCustomData::CopyID");
}

unsigned char* CCustomData::PlaceQuietly(unsigned id, unsigned size, unsigned kind)
{
    unsigned* offset = m_offsets == nullptr ? nullptr : m_offsets->Find(id);
    if (offset != nullptr && ChunkSize(m_buffer + *offset) == size)
    {
        SetChunkKind(m_buffer + *offset, kind);
        return m_buffer + *offset + kChunkHeader;
    }
    const unsigned replaced = offset == nullptr ? 0 : kChunkHeader + ChunkSize(m_buffer + *offset);
    const bool isLast = offset != nullptr && *offset + replaced == m_end;
    const unsigned __int64 extent = static_cast<unsigned __int64>(kChunkHeader) + size;
    const unsigned __int64 needed = m_used - replaced + extent;
    if (!MakeRoom(needed, m_end - (isLast ? replaced : 0) + extent))
        return nullptr;
    const unsigned entered = m_end;
    if (offset == nullptr && !EnterOffset(id, entered))
        return nullptr;
    if (offset != nullptr)
        Retire(std::exchange(*offset, kNowhere));
    if (m_end + extent > m_allocated)
        CloseGaps();
    const unsigned start = m_end;
    if (offset != nullptr)
        *offset = start;
    else if (start != entered)
        *m_offsets->Find(id) = start;
    if (start == 0 && offset != nullptr)
        m_legacyMode = 0; // nothing is left of the older layout
    WriteChunkHeader(m_buffer + start, id, size, kind);
    m_used = static_cast<unsigned>(needed);
    m_end = static_cast<unsigned>(start + extent);
    Touch();
    return m_buffer + start + kChunkHeader;
}

// As Place for `room` bytes and a copy of the data behind them, which may lie in this block; null makes a new value
// zero.
unsigned char* CCustomData::PlaceCopy(unsigned id, unsigned room, const void* data, unsigned size, unsigned kind)
{
    std::unique_ptr<unsigned char[]> copy;
    if (data != nullptr && PointsInto(data, m_buffer, m_end))
    {
        copy.reset(new (std::nothrow) unsigned char[size]);
        if (copy == nullptr)
        {
            NoteNotSet(kind);
            return nullptr;
        }
        std::memcpy(copy.get(), data, size);
        data = copy.get();
    }
    const bool isNew = GetDataSize(id) != room + size;
    unsigned char* target = Place(id, room + size, kind);
    if (target == nullptr)
        return nullptr;
    if (data != nullptr)
        std::memcpy(target + room, data, size);
    else if (isNew)
        std::memset(target + room, 0, size);
    return target;
}

bool CCustomData::SetChunk(unsigned id, const void* data, unsigned size, unsigned kind)
{
    if (size != 0)
        return PlaceCopy(id, 0, data, size, kind) != nullptr;
    RemoveChunk(id);
    return true;
}

// For chunks that take `needed` bytes in a row, and end at `end` with the gaps that there are. These are closed where they
// are worth it, so that all the moves together cost no more than a few for each value.
bool CCustomData::MakeRoom(unsigned __int64 needed, unsigned __int64 end)
{
    const bool hasFewGaps = end - needed < needed / 2;
    return needed <= kLargestBlock && (end <= m_allocated || (hasFewGaps && Reserve(end)) || Reserve(needed));
}

bool CCustomData::Reserve(unsigned __int64 needed)
{
    if (needed > kLargestBlock)
        return false;
    if (needed <= m_allocated)
        return true;
    const unsigned exact = static_cast<unsigned>(needed);
    return Reallocate(m_buffer == nullptr ? std::max(exact, kSmallestBlock) : Grown(exact)) || Reallocate(exact);
}

bool CCustomData::Reallocate(unsigned size)
{
    auto* block = static_cast<unsigned char*>(std::realloc(m_buffer, size));
    if (block == nullptr)
        return false;
    m_buffer = block;
    m_allocated = size;
    return true;
}

bool CCustomData::EnterOffset(unsigned id, unsigned offset)
{
    if (m_offsets == nullptr)
        m_offsets.reset(new (std::nothrow) OffsetMap);
    return m_offsets != nullptr && m_offsets->Insert(id, offset) == 1;
}

bool CCustomData::RemoveChunk(unsigned id)
{
    const unsigned char* chunk = FindChunk(id);
    if (chunk == nullptr)
        return false;
    if (m_offsets->GetCount() == 1)
    {
        Clear();
        return true;
    }
    Retire(static_cast<unsigned>(chunk - m_buffer));
    m_offsets->Remove(id);
    ShrinkAfterRemoval();
    return true;
}

// Leaves a gap where a chunk was, which the map must then not name any more.
void CCustomData::Retire(unsigned offset)
{
    const unsigned extent = kChunkHeader + ChunkSize(m_buffer + offset);
    const bool isLast = offset + extent == m_end;
    m_firstGap = m_end == m_used ? offset : std::min(m_firstGap, offset);
    m_used -= extent;
    if (m_used == 0)
        m_end = 0;
    else if (isLast)
        m_end = offset;
    SetChunkKind(m_buffer + offset, kRetiredKind);
    m_lastIndex = 0;
    m_lastOffset = 0;
}

// Moves the chunks together, in their order. Whatever hands out pointers into the block, or its bytes as a whole, does this
// first: so nothing moves as long as nothing is changed. Only the map knows for sure which chunks are in use.
void CCustomData::CloseGaps() const noexcept
{
    if (m_end == m_used)
        return;
    unsigned to = m_firstGap;
    for (unsigned at = m_firstGap; at < m_end;)
    {
        const unsigned extent = kChunkHeader + ChunkSize(m_buffer + at);
        unsigned* const offset = m_offsets->Find(ChunkId(m_buffer + at));
        if (offset != nullptr && *offset == at)
        {
            std::memmove(m_buffer + to, m_buffer + at, extent);
            *offset = to;
            to += extent;
        }
        at += extent;
    }
    m_end = to;
    m_lastIndex = 0;
    m_lastOffset = 0;
}

void CCustomData::ShrinkAfterRemoval()
{
    if (m_allocated <= kSmallestBlock || m_used >= m_allocated / kShrinkBelow)
        return;
    CloseGaps();
    static_cast<void>(Reallocate(std::max(Grown(m_used), kSmallestBlock)));
}

void CCustomData::Clear() noexcept
{
    Free(m_buffer);
    m_buffer = nullptr;
    m_used = 0;
    m_end = 0;
    m_allocated = 0;
    m_offsets.reset();
    m_legacyMode = 0;
    m_lastIndex = 0;
    m_lastOffset = 0;
}

// Malformed: a chunk runs past the end, or an identifier occurs twice.
CCustomData::Outcome CCustomData::MapChunks(const unsigned char* block, unsigned size,
                                            std::unique_ptr<OffsetMap>& offsets)
{
    unsigned count = 0;
    for (unsigned at = 0; at < size; ++count)
    {
        const unsigned extent = ChunkExtent(block, size, at);
        if (extent == 0)
            return Outcome::kMalformed;
        at += extent;
    }
    offsets.reset(new (std::nothrow) OffsetMap);
    if (offsets == nullptr || !offsets->InitHashTable(count))
        return Outcome::kNoMemory;
    for (unsigned at = 0; at < size; at += kChunkHeader + ChunkSize(block + at))
    {
        const unsigned id = ChunkId(block + at);
        if (offsets->Insert(id, at) == 0)
            return offsets->IsFound(id) ? Outcome::kMalformed : Outcome::kNoMemory;
    }
    return Outcome::kDone;
}

// Makes a block the contents; nothing has changed when that cannot be done.
CCustomData::Outcome CCustomData::TakeBlock(Block block, unsigned size, unsigned legacyMode)
{
    std::unique_ptr<OffsetMap> offsets;
    if (size > kLargestBlock)
        return Outcome::kMalformed;
    const Outcome outcome = size == 0 ? Outcome::kDone : MapChunks(block.get(), size, offsets);
    if (outcome != Outcome::kDone)
        return outcome;
    Clear();
    m_offsets = std::move(offsets);
    m_legacyMode = legacyMode;
    m_buffer = size == 0 ? nullptr : block.release();
    m_used = size;
    m_end = size;
    m_allocated = size;
    Touch();
    return Outcome::kDone;
}
