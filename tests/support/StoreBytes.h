#pragma once

#include "settings/CCustomData.h"
#include "tests/support/Testing.h"

// Stores and their bytes, as the document of the formats describes them.

namespace tev::test
{
inline std::string Number(std::uint32_t value)
{
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(value >> shift);
    return bytes;
}

inline std::string Chunk(unsigned id, unsigned kind, const std::string& data)
{
    return Number(id) + Number(static_cast<unsigned>(data.size())) + Number(kind) + data;
}

/// What a store of these chunks is in a file.
inline std::string StoreOf(const std::string& chunks, unsigned count, unsigned legacyMode = 0)
{
    const auto size = static_cast<unsigned>(chunks.size());
    return "5SUC" + Number(size + 20) + Number(1) + Number(count) + Number(size - 12 * count) + Number(legacyMode) +
           Number(0) + chunks;
}

inline std::string ChunksOf(const CCustomData& store)
{
    unsigned size = 0;
    const void* data = store.GetData(size);
    return std::string(static_cast<const char*>(data), size);
}

inline std::string SerializedBytes(const CCustomData& store)
{
    unsigned __int64 size = 0;
    void* data = store.SerializeToData(size);
    const std::string bytes(static_cast<const char*>(data), size);
    CCustomData::Free(data);
    return bytes;
}

inline bool Load(CCustomData& store, const std::string& bytes)
{
    return CCustomData::SerializeFromData(store, bytes.data(), bytes.size());
}
} // namespace tev::test
