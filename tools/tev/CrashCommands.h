#pragma once

namespace tev::tool
{

struct Session;
class ToolCommand;

/// Adds `tev crash ...`: looking into crash reports.
void AddCrashCommands(const ToolCommand& tool, Session& session);

} // namespace tev::tool
