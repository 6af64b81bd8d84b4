#include "zip/WriteBehind.h"

#include "platform/AddressWait.h"

#include <algorithm>

namespace tev
{
namespace
{
constexpr std::size_t kBlockSize = 256 * 1024;
constexpr unsigned kWaitMs = 1000;
} // namespace

WriteBehind::WriteBehind(platform::ContainedFile& file, Threads threads)
    : m_file(file), m_mayStart(threads == Threads::kItsOwn)
{
}

WriteBehind::~WriteBehind()
{
    m_blocks[m_filling].m_bytes.clear(); // Finish was not called: drop it
    Stop();
}

bool WriteBehind::Write(const void* bytes, std::size_t count)
{
    if (!m_mayStart)
        return m_file.Write(bytes, count);
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
        if (Start())
            HandOver(kFull);
        else if (!m_file.Write(filling.data(), filling.size()))
            m_hasFailed.store(true);
        else
            filling.clear();
        if (m_hasFailed.load())
            return false;
    }
    return true;
}

bool WriteBehind::Finish()
{
    std::vector<unsigned char>& rest = m_blocks[m_filling].m_bytes;
    if (m_thread != nullptr)
        Stop();
    else if (!rest.empty() && !m_file.Write(rest.data(), rest.size()))
        m_hasFailed.store(true);
    rest.clear();
    return !m_hasFailed.load();
}

bool WriteBehind::Start()
{
    if (m_thread != nullptr)
        return true;
    const auto run = [](void* self) noexcept {
        static_cast<WriteBehind*>(self)->WriteBlocks();
        return 0u;
    };
    m_thread = platform::StartThread({run, [](void*) noexcept {}}, this, 0);
    if (m_thread == nullptr)
        return false;
    platform::ResumeThread(m_thread);
    return true;
}

/// Passes the filled block to the thread, and waits for the other one.
void WriteBehind::HandOver(State state)
{
    std::atomic<std::uint32_t>& given = m_blocks[m_filling].m_state;
    given.store(state);
    platform::WakeAll(given);
    m_filling = 1 - m_filling;
    const std::atomic<std::uint32_t>& wanted = m_blocks[m_filling].m_state;
    while (wanted.load() == kFull)
        platform::WaitWhile(wanted, kFull);
}

void WriteBehind::WriteBlocks() noexcept
{
    for (std::size_t i = 0;; i = 1 - i)
    {
        Block& block = m_blocks[i];
        while (block.m_state.load() == kFree)
            platform::WaitWhile(block.m_state, kFree);
        const bool isLast = block.m_state.load() == kLast;
        if (!m_hasFailed.load() && !m_file.Write(block.m_bytes.data(), block.m_bytes.size()))
            m_hasFailed.store(true);
        block.m_bytes.clear();
        if (isLast)
            return;
        block.m_state.store(kFree);
        platform::WakeAll(block.m_state);
    }
}

/// Passes on the last block, and waits for the thread to end.
void WriteBehind::Stop()
{
    if (m_thread == nullptr)
        return;
    HandOver(kLast);
    while (!platform::WaitForThread(m_thread, kWaitMs))
        continue;
    platform::ReleaseThread(m_thread);
    m_thread = nullptr;
}
} // namespace tev
