#pragma once

namespace tev::tool
{

struct Session;
class ToolCommand;

/// Adds `tev types` and `tev match`: file types and search lists.
void AddFileTypeCommands(const ToolCommand& tool, Session& session);

} // namespace tev::tool
