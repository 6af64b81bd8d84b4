#include "tools/tev/Progress.h"

#include "text/CXTString.h"
#include "tools/tev/System.h"
#include "tools/tev/Tool.h"

#include <algorithm>
#include <utility>

namespace tev::tool
{
namespace
{
constexpr std::chrono::seconds kQuietTime(1);
constexpr std::chrono::milliseconds kShowEvery(200);
constexpr double kMegabyte = 1e6;
} // namespace

Progress::Progress(const std::string& name, std::uint64_t total, Beside beside)
    : m_name(PrintableText(name)),
      m_total(total),
      m_wanted(IsTerminal(kStandardError) && !(beside == Beside::kOutput && IsTerminal(kStandardOutput))),
      m_start(Clock::now()),
      m_next(m_start + kQuietTime)
{
}

Progress::~Progress()
{
    if (m_shown)
        ShowErrorLine({});
}

void Progress::Show(std::uint64_t done)
{
    if (!m_wanted)
        return;
    const Clock::time_point now = Clock::now();
    if (now < m_next)
        return;
    m_next = now + kShowEvery;
    m_shown = true;

    const double megabytes = static_cast<double>(done) / kMegabyte;
    const double seconds = std::chrono::duration<double>(now - m_start).count();
    CXTString<char> line;
    line.Format("%s: %.0f MB, %.0f MB/s", m_name.c_str(), megabytes, megabytes / seconds);
    if (m_total != 0 && done != 0)
    {
        const double part = static_cast<double>(std::min(done, m_total)) / static_cast<double>(m_total);
        line.AppendFormat(", %d %%, %.0f s left", static_cast<int>(100.0 * part), seconds / part - seconds);
    }
    ShowErrorLine(line.GetConstBuffer());
}

} // namespace tev::tool
