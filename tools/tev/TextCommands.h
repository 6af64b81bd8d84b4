#pragma once

namespace CLI
{
class App;
}

namespace tev::tool
{

struct Session;

/// Adds `tev text ...`: what text files are, what they hold, and converting them.
void AddTextCommands(CLI::App& tool, Session& session);

} // namespace tev::tool
