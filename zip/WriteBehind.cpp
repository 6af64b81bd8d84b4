#include "zip/WriteBehind.h"

#include "objects/ThreadStatus.h"
#include "platform/AddressWait.h"
#include "platform/SystemErrors.h"

#include <algorithm>

namespace tev
{
namespace
{
constexpr std::size_t kBlockSize = 256 * 1024;
constexpr std::chrono::milliseconds kCheckEvery(20);
} // namespace

WriteBehind::WriteBehind(platform::ContainedFile& file, Threads threads)
    : m_file(file), m_mayStart(threads == Threads::kItsOwn)
{
}

WriteBehind::~WriteBehind()
{
    m_blocks[m_filling].m_bytes.clear(); // Finish was not called: drop it
    WriteTheRest();
}

bool WriteBehind::Write(const void* bytes, std::size_t count)
{
    if (!m_mayStart)
        return WriteNow(bytes, count);
    for (auto next = static_cast<const unsigned char*>(bytes); count != 0;)
    {
        std::vector<unsigned char>& filling = m_blocks[m_filling].m_bytes;
        filling.reserve(kBlockSize);
        const std::size_t taken = std::min(count, kBlockSize - filling.size());
        filling.insert(filling.end(), next, next + taken);
        next += taken;
        count -= taken;
        if (filling.size() < kBlockSize)
            break;
        HandOver();
        if (m_hasFailed.load())
            return false;
    }
    return true;
}

bool WriteBehind::Finish()
{
    WriteTheRest();
    return !m_hasFailed.load();
}

/// Passes the filled block on, and waits for the other one.
void WriteBehind::HandOver()
{
    std::atomic<std::uint32_t>& given = m_blocks[m_filling].m_state;
    given.store(kFull);
    platform::WakeAll(given);
    m_filling = 1 - m_filling;
    if (!m_writer)
        m_writer.emplace(
            1, [](void* self) { static_cast<WriteBehind*>(self)->WriteBlocks(); }, this);
    const std::atomic<std::uint32_t>& wanted = m_blocks[m_filling].m_state;
    while (wanted.load() == kFull)
    {
        if (m_writer->CloseIfUnused())
            WriteBlock(m_blocks[m_filling]);
        else
            platform::WaitWhile(wanted, kFull, kCheckEvery);
    }
}

// On the thread that writes. It leaves early where the caller is to be ended by force; what remains is then the caller's.
void WriteBehind::WriteBlocks()
{
    for (;;)
    {
        Block& block = m_blocks[m_writing];
        while (block.m_state.load() == kFree)
        {
            if (IsThreadAskedToEnd())
                return;
            platform::WaitWhile(block.m_state, kFree, kCheckEvery);
        }
        const bool isLast = block.m_state.load() == kLast;
        WriteBlock(block);
        if (isLast)
            return;
    }
}

bool WriteBehind::WriteNow(const void* bytes, std::size_t count)
{
    if (m_file.Write(bytes, count))
        return true;
    m_systemError.store(platform::LastSystemError());
    m_hasFailed.store(true);
    return false;
}

void WriteBehind::WriteBlock(Block& block)
{
    if (!m_hasFailed.load() && !block.m_bytes.empty())
        static_cast<void>(WriteNow(block.m_bytes.data(), block.m_bytes.size()));
    block.m_bytes.clear();
    m_writing = 1 - m_writing;
    block.m_state.store(kFree);
    platform::WakeAll(block.m_state);
}

/// Passes on the last block, and waits until all is written.
void WriteBehind::WriteTheRest()
{
    Block& last = m_blocks[m_filling];
    last.m_state.store(kLast);
    platform::WakeAll(last.m_state);
    if (m_writer && !m_writer->CloseAndWait())
        m_hasFailed.store(true);
    m_writer.reset();
    while (m_blocks[m_writing].m_state.load() != kFree)
        WriteBlock(m_blocks[m_writing]);
}
} // namespace tev
