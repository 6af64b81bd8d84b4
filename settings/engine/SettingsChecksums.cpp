#include "settings/engine/SettingsChecksums.h"

namespace tev
{
namespace
{
constexpr std::uint32_t kBasis = 0x811C9DC5;
constexpr std::uint32_t kPrime = 16777619;

class Checksum
{
public:
    explicit Checksum(std::uint32_t start) : m_sum(start) {}

    Checksum& Add(std::string_view bytes) noexcept
    {
        for (const char byte : bytes)
            AddByte(static_cast<unsigned char>(byte));
        return *this;
    }
    /// 8 bytes, the lowest first.
    Checksum& Add(std::int64_t number) noexcept
    {
        for (int shift = 0; shift < 64; shift += 8)
            AddByte(static_cast<unsigned char>(static_cast<std::uint64_t>(number) >> shift));
        return *this;
    }
    std::uint32_t Get() const noexcept { return m_sum; }

private:
    void AddByte(unsigned char byte) noexcept { m_sum = (m_sum ^ byte) * kPrime; }

    std::uint32_t m_sum;
};

std::uint32_t HeadChecksum(const SettingsValueHead& head) noexcept
{
    return Checksum(kBasis)
        .Add(head.key)
        .Add(static_cast<std::int64_t>(head.fold.size()))
        .Add(head.fold)
        .Add(head.name)
        .Add(head.type)
        .Add(head.size)
        .Get();
}
} // namespace

std::int64_t SettingsKeyChecksum(std::int64_t id, std::int64_t parent, std::string_view fold,
                                 std::string_view name) noexcept
{
    return Checksum(kBasis).Add(id).Add(parent).Add(static_cast<std::int64_t>(fold.size())).Add(fold).Add(name).Get();
}

std::int64_t SettingsValueChecksum(const SettingsValueHead& head, std::string_view data) noexcept
{
    const std::uint32_t high = HeadChecksum(head);
    const std::uint32_t low = Checksum(high).Add(data).Get();
    return static_cast<std::int64_t>(std::uint64_t{high} << 32 | low);
}

bool IsChecksumOfHead(std::int64_t checksum, const SettingsValueHead& head) noexcept
{
    return static_cast<std::uint64_t>(checksum) >> 32 == HeadChecksum(head);
}
} // namespace tev
