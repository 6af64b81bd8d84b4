#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tev::tool
{

/// Tells a user at a terminal how far the work on one file is, once it takes longer than a second; the line is gone
/// when the object goes. Shows nothing where the error output is no terminal, nor beside an output that goes to a
/// terminal, because the line would get between the lines of text.
class Progress
{
public:
    enum class Beside
    {
        kNothing,
        kOutput
    };

    /// A total of 0 stands for an unknown one.
    Progress(std::string name, std::uint64_t total, Beside beside);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// For a total that is known only later.
    void SetTotal(std::uint64_t total) { m_total = total; }

    /// Cheap enough for every block of 64 KiB.
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
