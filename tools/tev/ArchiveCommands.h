#pragma once

namespace tev::tool
{

struct Session;
class ToolCommand;

/// Adds `tev archive ...`: the contents of archives of objects.
void AddArchiveCommands(const ToolCommand& tool, Session& session);

} // namespace tev::tool
