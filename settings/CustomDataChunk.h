#pragma once

#include "base/LittleEndian.h"

// How a value lies in the block of a store: identifier, size of the data and kind, 4 bytes each, and then the data.

namespace tev
{
constexpr unsigned kChunkHeader = 12;

inline unsigned ChunkId(const unsigned char* chunk) noexcept
{
    return LoadLittleEndian<unsigned>(chunk);
}
inline unsigned ChunkSize(const unsigned char* chunk) noexcept
{
    return LoadLittleEndian<unsigned>(chunk + 4);
}
inline unsigned ChunkKind(const unsigned char* chunk) noexcept
{
    return LoadLittleEndian<unsigned>(chunk + 8);
}
inline void SetChunkKind(unsigned char* chunk, unsigned kind) noexcept
{
    StoreLittleEndian(chunk + 8, kind);
}
inline const unsigned char* ChunkData(const unsigned char* chunk) noexcept
{
    return chunk + kChunkHeader;
}
inline void WriteChunkHeader(unsigned char* chunk, unsigned id, unsigned size, unsigned kind) noexcept
{
    StoreLittleEndian(chunk, id);
    StoreLittleEndian(chunk + 4, size);
    SetChunkKind(chunk, kind);
}

/// The size of the chunk at `offset` of a block, header included; 0 when it runs past the end of the block.
inline unsigned ChunkExtent(const unsigned char* block, unsigned size, unsigned offset) noexcept
{
    const unsigned left = size - offset;
    if (left < kChunkHeader || ChunkSize(block + offset) > left - kChunkHeader)
        return 0;
    return kChunkHeader + ChunkSize(block + offset);
}
} // namespace tev
