#pragma once

#include "tests/support/TempFolder.h"
#include "tests/support/Testing.h"

#include <clocale>

namespace tev::test
{
/// A UTF-8 locale ("fr_FR") that a test makes from the system's sources and is in as long as this exists.
class MadeLocale
{
public:
    explicit MadeLocale(const std::string& name)
    {
        const std::string full = name + ".UTF-8";
        const std::string make =
            "localedef -i " + name + " -f UTF-8 " + m_folder.Path(full).string() + " >/dev/null 2>&1";
        setenv("LOCPATH", m_folder.Path().c_str(), 1);
        m_isSet = std::system(make.c_str()) == 0 && std::setlocale(LC_ALL, full.c_str()) != nullptr;
        unsetenv("LOCPATH");
    }
    ~MadeLocale() { std::setlocale(LC_ALL, "C"); }
    MadeLocale(const MadeLocale&) = delete;
    MadeLocale& operator=(const MadeLocale&) = delete;

    /// False where this system cannot make it.
    bool IsSet() const noexcept { return m_isSet; }

private:
    TempFolder m_folder;
    bool m_isSet = false;
};
} // namespace tev::test
