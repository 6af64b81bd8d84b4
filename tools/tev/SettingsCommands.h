#pragma once

namespace CLI
{
class App;
}

namespace tev::tool
{

struct Session;

/// Adds `tev settings ...`: the stores of preference files.
void AddSettingsCommands(CLI::App& tool, Session& session);

} // namespace tev::tool
