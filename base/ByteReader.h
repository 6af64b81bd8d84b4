#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

namespace tev::platform
{
/// Reads numbers from untrusted input. A read past the end returns zero, and IsGood is false from then on.
class ByteReader
{
public:
    explicit ByteReader(std::string_view bytes) noexcept : m_bytes(bytes) {}

    bool IsGood() const noexcept { return m_isGood; }
    bool IsAtEnd() const noexcept { return m_at >= m_bytes.size() || !m_isGood; }
    std::size_t Position() const noexcept { return m_at; }
    void Skip(std::uint64_t count) noexcept
    {
        m_isGood = m_isGood && count <= m_bytes.size() - m_at;
        m_at = m_isGood ? m_at + static_cast<std::size_t>(count) : m_bytes.size();
    }
    template <class T>
    T Take() noexcept
    {
        T value{};
        if (!m_isGood || sizeof value > m_bytes.size() - m_at)
        {
            m_isGood = false;
            return value;
        }
        std::memcpy(&value, m_bytes.data() + m_at, sizeof value);
        m_at += sizeof value;
        return value;
    }
    std::string_view TakeBytes(std::uint64_t count) noexcept
    {
        const std::size_t from = m_at;
        Skip(count);
        return m_isGood ? m_bytes.substr(from, static_cast<std::size_t>(count)) : std::string_view();
    }
    std::string_view TakeText() noexcept
    {
        const std::size_t end = m_isGood ? m_bytes.find('\0', m_at) : m_bytes.npos;
        if (end == m_bytes.npos)
        {
            m_isGood = false;
            return {};
        }
        const std::string_view text = m_bytes.substr(m_at, end - m_at);
        m_at = end + 1;
        return text;
    }
    /// Variable-length numbers (LEB128): seven bits in each byte.
    std::uint64_t TakeUnsigned() noexcept
    {
        std::uint64_t value = 0;
        unsigned shift = 0;
        unsigned char byte = 0;
        do
        {
            byte = Take<unsigned char>();
            if (shift < 64)
                value |= std::uint64_t{byte & 0x7Fu} << shift;
            shift += 7;
        } while ((byte & 0x80) != 0 && m_isGood);
        m_lastShift = shift;
        m_lastByte = byte;
        return value;
    }
    std::int64_t TakeSigned() noexcept
    {
        std::uint64_t value = TakeUnsigned();
        if (m_lastShift < 64 && (m_lastByte & 0x40) != 0)
            value |= ~std::uint64_t{0} << m_lastShift;
        return static_cast<std::int64_t>(value);
    }

private:
    std::string_view m_bytes;
    std::size_t m_at = 0;
    bool m_isGood = true;
    unsigned m_lastShift = 0;
    unsigned char m_lastByte = 0;
};
} // namespace tev::platform
