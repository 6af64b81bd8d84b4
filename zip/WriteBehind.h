#pragma once

#include "platform/ContainedFolder.h"
#include "platform/Threads.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tev
{
/// Writes a file on a thread of its own while the caller makes the next bytes. Small files, and those for which no thread
/// can be started, are written on the caller's. One thread at a time.
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

    bool Start();
    void HandOver(State state);
    void WriteBlocks() noexcept;
    void Stop();

    platform::ContainedFile& m_file;
    const bool m_mayStart;
    std::array<Block, 2> m_blocks;
    std::size_t m_filling = 0;
    std::atomic<bool> m_hasFailed{false};
    platform::StartedThread* m_thread = nullptr;
};
} // namespace tev
