#pragma once

namespace CLI
{
class App;
}

namespace tev::tool
{

struct Session;

/// Adds `tev archive ...`: what archives hold.
void AddArchiveCommands(CLI::App& tool, Session& session);

} // namespace tev::tool
