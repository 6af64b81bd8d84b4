#pragma once

namespace tev::tool
{

struct Session;
class ToolCommand;

/// Adds `tev log ...`: printing log files.
void AddLogCommands(const ToolCommand& tool, Session& session);

} // namespace tev::tool
