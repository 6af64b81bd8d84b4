#pragma once

#include "tests/support/Testing.h"

namespace tev::test
{

/// Cuts a ZIP archive, which holds nothing of 64 bits, into volumes of a size, as programs for floppy disks did. Headers that
/// end at a volume's end are not kept together, so that everything may lie across two. `zip64` puts all numbers that may
/// stand in 64 bits there.
class SplitZip
{
public:
    SplitZip(const std::string& archive, std::size_t volumeSize, bool zip64)
        : m_bytes("PK\x07\x08"), m_volumeSize(volumeSize)
    {
        const std::size_t end = archive.rfind("PK\x05\x06");
        const auto count = Number<std::uint16_t>(archive, end + 10);
        std::size_t from = Number<std::uint32_t>(archive, end + 16);
        // The archive's end, by which its volumes are counted, lies completely in the last one.
        const std::size_t total = m_bytes.size() + end + (zip64 ? count * 32u + 56 + 20 : 0) + 22;
        m_lastVolume = static_cast<std::uint32_t>((total - 22 - (zip64 ? 20 : 0)) / volumeSize);
        m_bytes += archive.substr(0, from);
        const std::size_t directory = m_bytes.size();
        for (unsigned i = 0; i < count; ++i)
            from += AddHeader(archive, from, zip64);
        const std::size_t size = m_bytes.size() - directory;
        const std::size_t record = m_bytes.size();
        if (zip64)
        {
            m_bytes += "PK\x06\x06";
            Add<std::uint64_t>(44);
            Add<std::uint32_t>(45 << 16 | 45);
            Add<std::uint32_t>(VolumeOf(record));
            Add<std::uint32_t>(VolumeOf(directory));
            Add<std::uint64_t>(count);
            Add<std::uint64_t>(count);
            Add<std::uint64_t>(size);
            Add<std::uint64_t>(OffsetOf(directory));
            m_bytes += "PK\x06\x07";
            Add<std::uint32_t>(VolumeOf(record));
            Add<std::uint64_t>(OffsetOf(record));
            Add<std::uint32_t>(m_lastVolume + 1);
        }
        m_bytes += "PK\x05\x06";
        Add<std::uint16_t>(zip64 ? 0xFFFF : m_lastVolume);
        Add<std::uint16_t>(zip64 ? 0xFFFF : VolumeOf(directory));
        Add<std::uint16_t>(zip64 ? 0xFFFF : count);
        Add<std::uint16_t>(zip64 ? 0xFFFF : count);
        Add<std::uint32_t>(zip64 ? 0xFFFFFFFF : size);
        Add<std::uint32_t>(zip64 ? 0xFFFFFFFF : OffsetOf(directory));
        Add<std::uint16_t>(0);
    }

    std::vector<std::string> Volumes() const
    {
        std::vector<std::string> volumes;
        for (std::uint32_t number = 0; number < m_lastVolume; ++number)
            volumes.push_back(m_bytes.substr(number * m_volumeSize, m_volumeSize));
        volumes.push_back(m_bytes.substr(m_lastVolume * m_volumeSize));
        return volumes;
    }

private:
    template <class T>
    static T Number(const std::string& bytes, std::size_t at)
    {
        T value;
        std::memcpy(&value, bytes.data() + at, sizeof value);
        return value;
    }
    template <class T>
    void Add(std::uint64_t value)
    {
        const T stored = static_cast<T>(value);
        m_bytes.append(reinterpret_cast<const char*>(&stored), sizeof stored);
    }
    std::uint32_t VolumeOf(std::size_t position) const
    {
        return std::min(static_cast<std::uint32_t>(position / m_volumeSize), m_lastVolume);
    }
    std::uint32_t OffsetOf(std::size_t position) const
    {
        return static_cast<std::uint32_t>(position - VolumeOf(position) * m_volumeSize);
    }

    std::size_t AddHeader(const std::string& archive, std::size_t from, bool zip64)
    {
        const auto nameSize = Number<std::uint16_t>(archive, from + 28);
        const auto extraSize = Number<std::uint16_t>(archive, from + 30);
        const std::size_t place = Number<std::uint32_t>(archive, from + 42) + 4;
        const std::size_t at = m_bytes.size();
        m_bytes += archive.substr(from, 46 + nameSize);
        const auto put = [&](std::size_t offset, auto value) {
            std::memcpy(m_bytes.data() + at + offset, &value, sizeof value);
        };
        if (!zip64)
        {
            put(34, static_cast<std::uint16_t>(VolumeOf(place)));
            put(42, OffsetOf(place));
        }
        else
        {
            const auto compressed = Number<std::uint32_t>(archive, from + 20);
            const auto size = Number<std::uint32_t>(archive, from + 24);
            put(20, ~0u);
            put(24, ~0u);
            put(42, ~0u);
            put(34, static_cast<std::uint16_t>(0xFFFF));
            put(30, static_cast<std::uint16_t>(extraSize + 32));
            Add<std::uint32_t>(28 << 16 | 1);
            Add<std::uint64_t>(size);
            Add<std::uint64_t>(compressed);
            Add<std::uint64_t>(OffsetOf(place));
            Add<std::uint32_t>(VolumeOf(place));
        }
        m_bytes += archive.substr(from + 46 + nameSize, extraSize);
        return 46u + nameSize + extraSize;
    }

    std::string m_bytes;
    std::size_t m_volumeSize;
    std::uint32_t m_lastVolume = 0;
};

} // namespace tev::test
