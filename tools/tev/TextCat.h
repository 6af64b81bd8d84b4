#pragma once

#include "text/TextEncoding.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tev::tool
{

struct Session;

/// A range of line numbers, from 1, both ends included.
struct LineRange
{
    std::uint64_t m_first = 1;
    std::uint64_t m_last = UINT64_MAX;
};

/// "A-B", "A-", "-B" or "A"; nothing for any other text.
std::optional<LineRange> ParseLineRange(const std::string& text);

/// `from` is the encoding of files without a mark.
void RunTextCat(Session& session, const std::vector<std::string>& files, xStringEncoding from, LineRange lines);

} // namespace tev::tool
