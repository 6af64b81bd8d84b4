#pragma once

#include "platform/ContainedFolder.h"
#include "threads/WorkPool.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace tev
{
/// Writes a file on another thread while the caller makes the next bytes. Small files, and those for which no thread is
/// free, are written on the caller's. One thread at a time.
class WriteBehind
{
public:
    enum class Threads
    {
        kCallersOnly,
        kItsOwn
    };

    /// The file must outlive the object.
    WriteBehind(platform::ContainedFile& file, Threads threads);
    /// Waits for pending writes.
    ~WriteBehind();
    WriteBehind(const WriteBehind&) = delete;
    WriteBehind& operator=(const WriteBehind&) = delete;

    /// Copies the bytes. False when they, or earlier ones, could not be written.
    [[nodiscard]] bool Write(const void* bytes, std::size_t count);
    /// Returns when all is written; false when a write failed.
    [[nodiscard]] bool Finish();
    /// Why the first write failed that did.
    unsigned SystemError() const noexcept { return m_systemError.load(); }

private:
    enum State : std::uint32_t
    {
        kFree, ///< the caller's, to fill
        kFull, ///< the thread's, to write
        kLast  ///< there is nothing more to write
    };
    struct Block
    {
        std::vector<unsigned char> m_bytes;
        std::atomic<std::uint32_t> m_state{kFree};
    };

    void HandOver();
    bool WriteNow(const void* bytes, std::size_t count);
    void WriteBlocks();
    void WriteBlock(Block& block);
    void WriteTheRest();

    platform::ContainedFile& m_file;
    const bool m_mayStart;
    std::array<Block, 2> m_blocks;
    std::size_t m_filling = 0;
    std::atomic<bool> m_hasFailed{false};
    std::atomic<unsigned> m_systemError{0};
    std::size_t m_writing = 0;        ///< the next block to be written; used by the thread that writes
    std::optional<Teamwork> m_writer; ///< there from the first full block on
};
} // namespace tev
