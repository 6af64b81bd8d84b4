#pragma once

#include "settings/CRegUtil.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TempFolder.h"

#include <vector>

namespace tev::test
{
using BinaryData = std::vector<unsigned char>;

/// A registry of the test's own, which has no file yet. That of the machine has none either, so all roots are the user's.
struct TestRegistry
{
    TempFolder m_folder;
    EnvironmentVariable m_user{"TEVTOOLS_REGISTRY", m_folder.Path("user.db").string()};
    EnvironmentVariable m_machine{"TEVTOOLS_MACHINE_REGISTRY", m_folder.Path("machine.db").string()};
};

/// The error of an operation of the registry; -1 where it succeeded.
inline int ErrorOf(const CRegUtil& registry, bool isDone)
{
    return isDone ? -1 : registry.GetLastError();
}
} // namespace tev::test
