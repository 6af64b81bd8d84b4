#include "crash/UntrustedBytes.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tev
{
namespace
{
constexpr std::size_t kWindowSize = 16 * 1024;
constexpr std::size_t kTextStep = 256;
} // namespace

UntrustedBytes::UntrustedBytes(std::vector<unsigned char> block) : m_size(block.size())
{
    m_windows[0].m_size = block.size();
    m_windows[0].m_bytes = std::move(block);
}

UntrustedBytes::UntrustedBytes(std::shared_ptr<const platform::InputFile> file)
    : m_file(std::move(file)), m_size(m_file->Size())
{
    for (Window& window : m_windows)
        window.m_bytes.resize(kWindowSize);
}

bool UntrustedBytes::Read(std::uint64_t offset, void* target, std::size_t size) const noexcept
{
    if (!Has(offset, size) || size == 0)
        return size == 0;
    const Window* window = Find(offset, size);
    if (window == nullptr && size <= kWindowSize)
    {
        Window& refilled = m_windows[m_next];
        int error = 0;
        refilled.m_start = offset;
        refilled.m_size = m_file->ReadAt(offset, refilled.m_bytes.data(), kWindowSize, error);
        m_error = m_error != 0 ? m_error : error;
        window = Find(offset, size);
        if (window == nullptr)
            return false;
    }
    if (window == nullptr)
    {
        int error = 0;
        const bool isRead = m_file->ReadAt(offset, target, size, error) == size;
        m_error = m_error != 0 ? m_error : error;
        return isRead;
    }
    std::memcpy(target, window->m_bytes.data() + static_cast<std::size_t>(offset - window->m_start), size);
    return true;
}

const UntrustedBytes::Window* UntrustedBytes::Find(std::uint64_t offset, std::size_t size) const noexcept
{
    for (std::size_t i = 0; i < m_windows.size(); ++i)
    {
        const Window& window = m_windows[i];
        if (offset < window.m_start || offset - window.m_start > window.m_size ||
            size > window.m_size - (offset - window.m_start))
            continue;
        m_next = 1 - i;
        return &window;
    }
    return nullptr;
}

bool UntrustedBytes::ReadText(const ByteRange& range, std::size_t longest, std::string& text) const
{
    text.clear();
    const std::uint64_t most = std::min<std::uint64_t>(range.size, longest + 1);
    for (std::uint64_t done = 0; done < most; done = text.size())
    {
        char bytes[kTextStep];
        const auto step = static_cast<std::size_t>(std::min<std::uint64_t>(most - done, sizeof bytes));
        if (!Read(range.offset + done, bytes, step))
            return false;
        const void* const end = std::memchr(bytes, 0, step);
        const std::size_t count =
            end == nullptr ? step : static_cast<std::size_t>(static_cast<const char*>(end) - bytes);
        text.append(bytes, count);
        if (end != nullptr)
            return true;
    }
    return false;
}
} // namespace tev
