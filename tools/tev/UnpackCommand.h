#pragma once

namespace tev::tool
{
struct Session;
class ToolCommand;

/// tev unpack
void AddUnpackCommand(const ToolCommand& tool, Session& session);
} // namespace tev::tool
