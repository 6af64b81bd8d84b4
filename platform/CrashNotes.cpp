#include "platform/CrashNotes.h"

#include <charconv>
#include <cstring>

namespace tev::platform
{
void CrashNotes::Add(const char* key, const char* value) noexcept
{
    if (value == nullptr || *value == '\0')
        return;
    const std::size_t keySize = std::strlen(key) + 1;
    const std::size_t valueSize = std::strlen(value) + 1;
    if (valueSize > kCapacity || keySize + valueSize > kCapacity - m_size)
        return;
    std::memcpy(m_bytes + m_size, key, keySize);
    std::memcpy(m_bytes + m_size + keySize, value, valueSize);
    m_size += keySize + valueSize;
}

void CrashNotes::Add(const char* key, std::uint64_t number) noexcept
{
    char text[24] = {};
    std::to_chars(text, text + sizeof text - 1, number);
    Add(key, text);
}
} // namespace tev::platform
