#pragma once

namespace CLI
{
class App;
}

namespace tev::tool
{

struct Session;

/// Adds `tev types` and `tev match`: what the library knows of names of files.
void AddFileTypeCommands(CLI::App& tool, Session& session);

} // namespace tev::tool
