#include "tests/support/Places.h"

namespace tev::test
{
const char* const kSourceFolder = TEVTOOLS_SOURCE_DIR;
const char* const kTool = TEVTOOLS_TEV;
const char* const kCrashWays = TEVTOOLS_CRASH_WAYS;
} // namespace tev::test
