#pragma once

#include <string>
#include <vector>

namespace tev::tool
{

struct ListForm;
struct Session;

void RunTextInfo(Session& session, const std::vector<std::string>& files, const ListForm& form);

} // namespace tev::tool
