#pragma once

namespace CLI
{
class App;
}

namespace tev::tool
{

struct Session;

/// Adds `tev registry`.
void AddRegistryCommands(CLI::App& tool, Session& session);

} // namespace tev::tool
