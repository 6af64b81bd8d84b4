#pragma once

namespace CLI
{
class App;
}

namespace tev::tool
{

struct Session;

/// Adds `tev zip`.
void AddZipCommands(CLI::App& tool, Session& session);

} // namespace tev::tool
