#pragma once

namespace tev::tool
{

struct Session;
class ToolCommand;

/// Adds `tev registry`.
void AddRegistryCommands(const ToolCommand& tool, Session& session);

} // namespace tev::tool
