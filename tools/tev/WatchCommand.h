#pragma once

namespace tev::tool
{

struct Session;
class ToolCommand;

/// Adds `tev watch`: printing what changes in folders.
void AddWatchCommand(const ToolCommand& tool, Session& session);

} // namespace tev::tool
