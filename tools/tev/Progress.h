#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tev::tool
{

/// Shows the progress of the work on one file on a terminal, once it takes longer than a second; the destructor removes
/// the line. Shows nothing where the error output is no terminal, and with Beside::kOutput nothing where the standard
/// output is one, because the line would mix with the printed text.
class Progress
{
public:
    enum class Beside
    {
        kNothing,
        kOutput
    };

    /// A total of 0 stands for an unknown one.
    Progress(const std::string& name, std::uint64_t total, Beside beside);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// For a total that is not known at first.
    void SetTotal(std::uint64_t total) { m_total = total; }

    /// Cheap enough to be called for every block of 64 KiB.
    void Show(std::uint64_t done);

private:
    using Clock = std::chrono::steady_clock;

    std::string m_name;
    std::uint64_t m_total;
    bool m_wanted;
    bool m_shown = false;
    Clock::time_point m_start;
    Clock::time_point m_next;
};

} // namespace tev::tool
