#pragma once

#include "platform/DumpFile.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

// The means of MinidumpWriter: all work in memory that is there already.
namespace tev::platform
{
/// Composes a record by appending fields.
template <std::size_t CAPACITY>
class DumpRecord
{
public:
    template <class T>
    DumpRecord& Add(T value) noexcept
    {
        std::memcpy(m_bytes + m_size, &value, sizeof value);
        m_size += sizeof value;
        return *this;
    }
    DumpRecord& Zeros(std::size_t count) noexcept
    {
        std::memset(m_bytes + m_size, 0, count);
        m_size += count;
        return *this;
    }
    const unsigned char* Bytes() const noexcept { return m_bytes; }
    std::size_t Size() const noexcept { return m_size; }

private:
    unsigned char m_bytes[CAPACITY];
    std::size_t m_size = 0;
};

/// Collects what is written in a buffer before the file.
class DumpOutput
{
public:
    static constexpr std::size_t kBufferSize = std::size_t{64} << 10;

    DumpOutput(DumpFile& file, unsigned char* buffer) noexcept : m_file(file), m_buffer(buffer) {}

    std::uint32_t Position() const noexcept { return static_cast<std::uint32_t>(m_written + m_used); }
    void Write(const void* bytes, std::size_t size) noexcept
    {
        const auto* at = static_cast<const char*>(bytes);
        while (size != 0 && m_isGood)
        {
            const std::size_t count = std::min(size, kBufferSize - m_used);
            std::memcpy(m_buffer + m_used, at, count);
            m_used += count;
            at += count;
            size -= count;
            if (m_used == kBufferSize)
                Flush();
        }
    }
    template <std::size_t CAPACITY>
    void Write(const DumpRecord<CAPACITY>& record) noexcept
    {
        Write(record.Bytes(), record.Size());
    }
    void Align() noexcept
    {
        constexpr char kZeros[8] = {};
        Write(kZeros, (8 - Position() % 8) % 8);
    }
    void Flush() noexcept
    {
        m_isGood = m_isGood && m_file.Append(m_buffer, m_used);
        m_written += m_used;
        m_used = 0;
    }
    bool IsGood() const noexcept { return m_isGood; }

private:
    DumpFile& m_file;
    unsigned char* const m_buffer;
    std::size_t m_used = 0;
    std::uint64_t m_written = 0;
    bool m_isGood = true;
};

/// A list of records of one size; what does not fit is left out.
class DumpTable
{
public:
    DumpTable(unsigned char* memory, std::size_t recordSize, std::size_t most) noexcept
        : m_memory(memory), m_recordSize(recordSize), m_most(most)
    {
    }
    template <std::size_t CAPACITY>
    void Add(const DumpRecord<CAPACITY>& record) noexcept
    {
        if (IsFull())
            return;
        std::memcpy(m_memory + m_count * m_recordSize, record.Bytes(), m_recordSize);
        ++m_count;
    }
    bool IsFull() const noexcept { return m_count == m_most; }
    std::uint32_t Count() const noexcept { return static_cast<std::uint32_t>(m_count); }
    const unsigned char* Bytes() const noexcept { return m_memory; }
    std::size_t Size() const noexcept { return m_count * m_recordSize; }

private:
    unsigned char* const m_memory;
    const std::size_t m_recordSize;
    const std::size_t m_most;
    std::size_t m_count = 0;
};

/// Hands out the parts of the workspace.
class DumpWorkspace
{
public:
    explicit DumpWorkspace(void* memory) noexcept : m_at(static_cast<unsigned char*>(memory)) {}
    /// Aligned for every type.
    unsigned char* Take(std::size_t size) noexcept
    {
        unsigned char* const taken = m_at;
        m_at += (size + 15) / 16 * 16;
        return taken;
    }

private:
    unsigned char* m_at;
};
} // namespace tev::platform
