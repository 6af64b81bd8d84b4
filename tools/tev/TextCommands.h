#pragma once

namespace tev::tool
{

struct Session;
class ToolCommand;

/// Adds `tev text ...`: what text files are, what they hold, and converting them.
void AddTextCommands(const ToolCommand& tool, Session& session);

} // namespace tev::tool
