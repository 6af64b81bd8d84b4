#pragma once

namespace CLI
{
class App;
}

namespace tev::tool
{

struct Session;

/// Adds `tev crash ...`: looking into crash reports.
void AddCrashCommands(CLI::App& tool, Session& session);

} // namespace tev::tool
