#pragma once

namespace CLI
{
class App;
}

namespace tev::tool
{

struct Session;

/// Adds `tev log ...`: looking into log files.
void AddLogCommands(CLI::App& tool, Session& session);

} // namespace tev::tool
