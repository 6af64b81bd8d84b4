#pragma once

#include "tests/support/TempFolder.h"

#include <cstdlib>
#include <optional>
#include <string>

namespace tev::test
{
/// Sets a variable of the environment until the end of the scope; nothing removes it.
class EnvironmentVariable
{
public:
    EnvironmentVariable(const char* name, const std::optional<std::string>& value) : m_name(name)
    {
        if (const char* const before = std::getenv(name))
            m_before = before;
        Set(value);
    }
    ~EnvironmentVariable() { Set(m_before); }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

private:
    void Set(const std::optional<std::string>& value) const
    {
        if (value)
            setenv(m_name, value->c_str(), 1);
        else
            unsetenv(m_name);
    }

    const char* m_name;
    std::optional<std::string> m_before;
};

/// A registry of the test's own, which has no file yet. That of the machine has none either, so all roots are the user's.
struct TestRegistry
{
    TempFolder m_folder;
    EnvironmentVariable m_user{"TEVTOOLS_REGISTRY", m_folder.Path("user.db").string()};
    EnvironmentVariable m_machine{"TEVTOOLS_MACHINE_REGISTRY", m_folder.Path("machine.db").string()};
};
} // namespace tev::test
