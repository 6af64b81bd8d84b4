#pragma once

#include <string>
#include <vector>

namespace tev::tool
{

struct Session;

enum class InfoFormat
{
    kTable,
    kFields, ///< separated by tabs, one file a line
    kJson
};

void RunTextInfo(Session& session, const std::vector<std::string>& files, InfoFormat format);

} // namespace tev::tool
