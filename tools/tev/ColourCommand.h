#pragma once

namespace CLI
{
class App;
}

namespace tev::tool
{
struct Session;

/// Adds `tev colour`.
void AddColourCommand(CLI::App& tool, Session& session);
} // namespace tev::tool
