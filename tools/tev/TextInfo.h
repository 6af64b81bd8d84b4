#pragma once

#include "tools/tev/Encodings.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tev::tool
{

struct Session;

/// Counts of each kind of line end. A CR followed by LF is one CRLF.
struct LineEnds
{
    std::uint64_t m_lf = 0;
    std::uint64_t m_crLf = 0;
    std::uint64_t m_cr = 0;

    std::uint64_t Total() const noexcept { return m_lf + m_crLf + m_cr; }
};

/// Counts the line ends of a text that is given in blocks of complete characters.
class LineEndCounter
{
public:
    explicit LineEndCounter(xStringEncoding encoding) : m_encoding(encoding) {}

    void Add(std::string_view bytes);
    const LineEnds& Ends() const noexcept { return m_ends; }
    /// Includes a last line without an end.
    std::uint64_t Lines() const noexcept { return m_ends.Total() + (m_inLine ? 1 : 0); }

private:
    template <class UnitAt>
    void AddUnits(std::size_t count, UnitAt unitAt);

    xStringEncoding m_encoding;
    LineEnds m_ends;
    bool m_afterReturn = false;
    bool m_inLine = false;
};

enum class InfoFormat
{
    kTable,
    kFields, ///< separated by tabs, one file a line
    kJson
};

void RunTextInfo(Session& session, const std::vector<std::string>& files, InfoFormat format);

} // namespace tev::tool
