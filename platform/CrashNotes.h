#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tev::platform
{
/// What is known of a crash only when it happens: pairs of texts, each with its terminator. What does not fit is left out.
/// Safe in signal handlers.
class CrashNotes
{
public:
    void Add(const char* key, const char* value) noexcept;
    void Add(const char* key, std::uint64_t number) noexcept;
    std::string_view Bytes() const noexcept { return {m_bytes, m_size}; }
    void Clear() noexcept { m_size = 0; }

private:
    static constexpr std::size_t kCapacity = 8192;

    std::size_t m_size = 0;
    char m_bytes[kCapacity];
};
} // namespace tev::platform
