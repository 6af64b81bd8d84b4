#pragma once

namespace tev::tool
{

struct Session;
class ToolCommand;

/// Adds `tev zip`.
void AddZipCommands(const ToolCommand& tool, Session& session);

} // namespace tev::tool
