#pragma once

#include "zip/engine/ZipEngine.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

namespace tev::test
{

/// An archive, or the contents of an entry, in memory.
class MemoryBytes final : public platform::ZipBytes
{
public:
    explicit MemoryBytes(std::string bytes) : m_bytes(std::move(bytes)) {}
    std::uint64_t Size() const override { return m_bytes.size(); }
    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& delivered) override
    {
        const std::size_t at = static_cast<std::size_t>(std::min<std::uint64_t>(offset, m_bytes.size()));
        delivered = std::min(count, m_bytes.size() - at);
        std::copy_n(m_bytes.data() + at, delivered, static_cast<char*>(buffer));
        return true;
    }

private:
    std::string m_bytes;
};

/// Zeros, of which there may be more than memory.
class ZeroBytes final : public platform::ZipBytes
{
public:
    explicit ZeroBytes(std::uint64_t size) : m_size(size) {}
    std::uint64_t Size() const override { return m_size; }
    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& delivered) override
    {
        delivered = static_cast<std::size_t>(std::min<std::uint64_t>(count, m_size - std::min(offset, m_size)));
        std::memset(buffer, 0, delivered);
        return true;
    }

private:
    std::uint64_t m_size;
};

/// Receives a new archive; `m_saved` changes with Commit only.
class MemoryTarget final : public platform::ZipTarget
{
public:
    bool Begin() override
    {
        m_written.clear();
        return true;
    }
    bool WriteAt(std::uint64_t offset, const void* bytes, std::size_t count) override
    {
        if (offset + count > m_space)
        {
            errno = ENOSPC;
            return false;
        }
        m_written.resize(std::max<std::size_t>(m_written.size(), static_cast<std::size_t>(offset) + count));
        std::memcpy(m_written.data() + offset, bytes, count);
        return true;
    }
    bool Commit() override
    {
        m_saved = m_written;
        return true;
    }

    std::string m_saved;
    std::uint64_t m_space = 1u << 30;

private:
    std::string m_written;
};

inline std::unique_ptr<platform::ZipEngine> OpenInMemory(std::string archive, platform::ZipError& error)
{
    bool isReadOnly = false;
    return platform::ZipEngine::Open(std::make_unique<MemoryBytes>(std::move(archive)), nullptr, isReadOnly, error);
}

inline platform::ZipAddition MemoryAddition(std::string name, std::string contents)
{
    platform::ZipAddition addition;
    addition.name = std::move(name);
    addition.size = contents.size();
    addition.modified = 1600000001;
    addition.open = [contents = std::move(contents)] { return std::make_unique<MemoryBytes>(contents); };
    return addition;
}

/// What the entry holds, or `error`.
inline std::string ReadEntry(platform::ZipEngine& engine, std::uint64_t index, const std::string& password,
                             platform::ZipError& error)
{
    const std::unique_ptr<platform::ZipReader> reader = engine.OpenEntry(index, password, error);
    std::string contents;
    char block[4096];
    std::size_t delivered = 1;
    while (reader != nullptr && delivered != 0 && reader->Read(block, sizeof block, delivered, error))
        contents.append(block, delivered);
    return contents;
}

} // namespace tev::test
