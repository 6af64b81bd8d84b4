#pragma once

namespace CLI
{
class App;
}

namespace tev::tool
{
struct Session;

/// tev unpack
void AddUnpackCommand(CLI::App& tool, Session& session);
} // namespace tev::tool
