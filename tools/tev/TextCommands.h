#pragma once

namespace tev::tool
{

struct Session;
class ToolCommand;

/// Adds `tev text ...`: examining, printing and converting text files.
void AddTextCommands(const ToolCommand& tool, Session& session);

} // namespace tev::tool
