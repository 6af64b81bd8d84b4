#pragma once

namespace tev::test
{
// Where the source tree and programs of the build lie.
extern const char* const kSourceFolder;
extern const char* const kTool;
extern const char* const kCrashWays;
} // namespace tev::test
