#pragma once

namespace tev::tool
{

struct Session;
class ToolCommand;

/// Adds `tev types` and `tev match`: what the library knows of names of files.
void AddFileTypeCommands(const ToolCommand& tool, Session& session);

} // namespace tev::tool
