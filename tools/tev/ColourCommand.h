#pragma once

namespace tev::tool
{
struct Session;
class ToolCommand;

/// Adds `tev colour`.
void AddColourCommand(const ToolCommand& tool, Session& session);
} // namespace tev::tool
