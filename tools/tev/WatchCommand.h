#pragma once

namespace CLI
{
class App;
}

namespace tev::tool
{

struct Session;

/// Adds `tev watch`: telling what changes in folders.
void AddWatchCommand(CLI::App& tool, Session& session);

} // namespace tev::tool
