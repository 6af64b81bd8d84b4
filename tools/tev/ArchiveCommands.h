#pragma once

namespace tev::tool
{

struct Session;
class ToolCommand;

/// Adds `tev archive ...`: what archives hold.
void AddArchiveCommands(const ToolCommand& tool, Session& session);

} // namespace tev::tool
