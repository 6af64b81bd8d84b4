#pragma once

#include "settings/CCustomData.h"
#include "settings/CustomDataChunk.h"
#include "settings/StoreListeners.h"

#include <cstring>
#include <memory>
#include <new>

/// Reports to the listeners of a store, if it has some, how what was done during its lifetime has changed a value. Made and
/// destroyed under the store's lock.
class CCustomData::ValueChange
{
public:
    ValueChange(const CCustomData& store, unsigned id) X_REQUIRES(store.m_lock)
        : m_store(store), m_id(id), m_isWatched(store.m_listeners != nullptr)
    {
        if (m_isWatched)
            Remember();
    }
    ~ValueChange() X_NO_THREAD_SAFETY_ANALYSIS // which the maker of the object holds
    {
        if (!m_isWatched)
            return;
        const unsigned char* const chunk = m_store.FindChunk(m_id);
        if (chunk == nullptr && m_hadValue)
            m_store.m_listeners->Record({&m_store, m_id, CXDataChange::kRemoved});
        else if (chunk != nullptr && !IsAsBefore(chunk))
            m_store.m_listeners->Record({&m_store, m_id, CXDataChange::kSet});
    }
    ValueChange(const ValueChange&) = delete;
    ValueChange& operator=(const ValueChange&) = delete;

private:
    void Remember() X_NO_THREAD_SAFETY_ANALYSIS
    {
        const unsigned char* const chunk = m_store.FindChunk(m_id);
        m_hadValue = chunk != nullptr;
        if (!m_hadValue)
            return;
        m_size = tev::kChunkHeader + tev::ChunkSize(chunk);
        m_before.reset(new (std::nothrow) unsigned char[m_size]);
        if (m_before != nullptr)
            std::memcpy(m_before.get(), chunk, m_size);
    }
    bool IsAsBefore(const unsigned char* chunk) const noexcept
    {
        return m_before != nullptr && m_size == tev::kChunkHeader + tev::ChunkSize(chunk) &&
               std::memcmp(m_before.get(), chunk, m_size) == 0;
    }

    const CCustomData& m_store;
    const unsigned m_id;
    const bool m_isWatched;
    bool m_hadValue = false;
    unsigned m_size = 0;
    std::unique_ptr<unsigned char[]> m_before; ///< with its header; null too where there is no memory for it
};

/// The same for the store as a whole: whether it has another block afterwards.
class CCustomData::WholeChange
{
public:
    explicit WholeChange(const CCustomData& store) X_REQUIRES(store.m_lock)
        : m_store(store), m_block(store.m_buffer), m_size(store.m_used)
    {
    }
    ~WholeChange() X_NO_THREAD_SAFETY_ANALYSIS
    {
        if (m_store.m_listeners != nullptr && (m_isNew || m_store.m_buffer != m_block || m_store.m_used != m_size))
            m_store.m_listeners->Record({&m_store, 0, CXDataChange::kReplaced});
    }
    WholeChange(const WholeChange&) = delete;
    WholeChange& operator=(const WholeChange&) = delete;

    /// The block was released: one at the same address is another one.
    void Released() noexcept { m_isNew = m_size != 0; }

private:
    const CCustomData& m_store;
    const unsigned char* const m_block;
    const unsigned m_size;
    bool m_isNew = false;
};
