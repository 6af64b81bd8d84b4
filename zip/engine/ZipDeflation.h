#pragma once

#include "zip/engine/ZipSources.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

// The contents of new entries, deflated by several threads.

namespace tev::platform
{
/// Reads new entries in the order in which they are to be written, a little ahead, and packs what it has read in parallel:
/// several entries at a time, and of a large one several blocks, each of which knows the last bytes of the one before. The
/// bytes are the same whatever the number of threads. Takes about two megabytes for each thread. One thread at a time.
class ZipDeflation
{
public:
    struct Entry
    {
        std::uint64_t m_slot;
        const ZipAddition* m_addition; ///< outlives its use
    };
    /// What became of a read.
    enum class Outcome
    {
        Done,
        System, ///< errno says why
        Cancelled
    };
    struct Totals
    {
        std::uint32_t m_checksum = 0;
        std::uint64_t m_size = 0;
    };

    ZipDeflation();
    ~ZipDeflation();
    ZipDeflation(const ZipDeflation&) = delete;
    ZipDeflation& operator=(const ZipDeflation&) = delete;

    /// The entries in the order of their slots. `saving` learns of what is read of them.
    void Begin(ZipSaving& saving, std::vector<Entry> entries);
    void End() noexcept;

    /// From now on Read delivers this entry's packed bytes.
    void Start(std::uint64_t slot);
    /// 0 bytes at the end, when the totals are known.
    [[nodiscard]] Outcome Read(void* buffer, std::size_t count, std::size_t& delivered);
    const Totals& TotalsOfEntry() const { return m_totals; }

private:
    struct Block;
    class Packer;

    void ReadAhead();
    bool ReadBlock();
    bool ReadFile(std::vector<unsigned char>& plain, std::size_t count);
    bool OpenNext();
    void PackAll();
    bool PackOne(Packer& packer, std::size_t i);
    void Forget(std::size_t entry);
    bool Stop(Outcome reason);

    ZipSaving* m_saving = nullptr;
    std::vector<Entry> m_entries;

    // What is read next.
    std::size_t m_reading = 0; ///< an entry
    std::unique_ptr<ZipBytes> m_bytes;
    std::uint64_t m_position = 0;
    std::vector<unsigned char> m_window; ///< the last bytes before the position
    Outcome m_stopped = Outcome::Done;   ///< why no more is read
    int m_error = 0;                     ///< errno of Outcome::System

    std::vector<Block> m_blocks; ///< read and packed
    std::size_t m_next = 0;      ///< of the blocks, to be delivered
    std::size_t m_delivered = 0; ///< of that block
    bool m_isAtEnd = false;
    Totals m_totals;
};

/// An addition that libzip gets deflated. Belongs to libzip.
class ZipDeflatedSource final : public ZipSource
{
public:
    /// `deflation` outlives the source.
    ZipDeflatedSource(const ZipAddition& addition, std::int64_t modified, ZipDeflation& deflation)
        : m_size(addition.size), m_modified(modified), m_level(addition.level), m_deflation(deflation)
    {
    }
    void SetSlot(std::uint64_t slot) noexcept override { m_slot = slot; }

protected:
    zip_int64_t Supported() const override;
    zip_int64_t Open() override;
    void Close() override {}
    zip_int64_t Stat(zip_stat_t& status) override;
    void Freed() override { delete this; }
    zip_int64_t Read(void* buffer, zip_uint64_t count) override;
    zip_int64_t Attributes(zip_file_attributes_t& attributes) override;

private:
    std::uint64_t m_size;
    std::int64_t m_modified;
    int m_level;
    ZipDeflation& m_deflation;
    std::uint64_t m_slot = 0;
    std::optional<std::uint32_t> m_checksum; ///< once all is read
};
} // namespace tev::platform
