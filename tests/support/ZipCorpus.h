#pragma once

#include "tests/support/Places.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Testing.h"

namespace tev::test
{

/// Archives from the test suites of other projects, sorted; none where they are not next to the checkout.
inline std::vector<std::filesystem::path> ZipCorpus()
{
    const std::filesystem::path root = std::filesystem::path(kSourceFolder) / "../shared/corpora/zip";
    std::vector<std::filesystem::path> archives;
    if (!std::filesystem::is_directory(root))
        return archives;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
    {
        if (entry.path().extension() == ".zip")
            archives.push_back(std::filesystem::canonical(entry.path()));
    }
    std::sort(archives.begin(), archives.end());
    return archives;
}

} // namespace tev::test
