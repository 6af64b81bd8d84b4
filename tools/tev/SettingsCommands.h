#pragma once

namespace tev::tool
{

struct Session;
class ToolCommand;

/// Adds `tev settings ...`: the stores of preference files.
void AddSettingsCommands(const ToolCommand& tool, Session& session);

} // namespace tev::tool
