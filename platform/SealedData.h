#pragma once

#include <cstddef>
#include <utility>

namespace tev::platform
{
constexpr std::size_t kSealedPage = 4096;

/// Lets these pages be written to, or only read. Does nothing on a system with pages of another size. Safe in signal handlers.
void LetWrite(void* pages, std::size_t size, bool isWritable) noexcept;

/// What the handling of a crash relies on: a wild write of the program faults there instead of changing it. An object of
/// static storage duration, on pages of its own that can be written to only while Change is under way.
/// Read by any thread at any time, so DATA has atomic members where that matters; changed by one at a time.
template <class DATA>
class alignas(kSealedPage) SealedData // NOLINT(clang-analyzer-optin.performance.Padding): pages of its own are meant
{
public:
    constexpr SealedData() noexcept = default;
    SealedData(const SealedData&) = delete;
    SealedData& operator=(const SealedData&) = delete;

    const DATA& Get() const noexcept { return m_data; }
    const DATA* operator->() const noexcept { return &m_data; }

    /// Calls `change(DATA&)`, which throws nothing.
    template <class CHANGE>
    void Change(CHANGE&& change) noexcept
    {
        Open();
        std::forward<CHANGE>(change)(m_data);
        Seal();
    }
    /// To be called once where there is no Change.
    void Seal() noexcept { LetWrite(this, kSize, false); }
    /// For the end of the process: the data stays writable.
    DATA& Open() noexcept
    {
        LetWrite(this, kSize, true);
        return m_data;
    }

private:
    static constexpr std::size_t kSize = (sizeof(DATA) + kSealedPage - 1) / kSealedPage * kSealedPage;

    DATA m_data{};
    // A page between this object and the next, so that the system never has to divide a range to open one of them, for which
    // it may have no room.
    [[maybe_unused]] alignas(kSealedPage) char m_gap = 0;
};
} // namespace tev::platform
