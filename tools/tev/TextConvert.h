#pragma once

#include "text/TextEncoding.h"

#include <optional>
#include <string>

namespace tev::tool
{

struct Session;

struct ConvertOptions
{
    std::string m_in;
    std::string m_out;
    xStringEncoding m_from = xEncodingUtf8; ///< of a source without a mark
    xStringEncoding m_to = xEncodingUtf8;
    bool m_writeMark = false;
    bool m_strict = false; ///< a character that would be lost is a failure
    bool m_verbose = false;
};

void RunTextConvert(Session& session, const ConvertOptions& options);

} // namespace tev::tool
