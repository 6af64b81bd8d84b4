#pragma once

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
} // namespace tev::test
