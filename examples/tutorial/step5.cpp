// Step 5: the files that were opened last are remembered, also by two copies of the program that run at once.

#include <TevTools.h>

#include <algorithm>
#include <cstdio>

namespace
{
constexpr unsigned kProgram = XFourCharacterCode("VIEW"); // the two keys of the record are the program's choice
constexpr unsigned kSettings = 1;
constexpr CDataKey<std::vector<CXTString<wchar_t>>> kRecentFiles{1};

bool Remember(const CPathString& preferences, const CXTString<wchar_t>& opened)
{
    return XUpdatePreferences(preferences, kProgram, kSettings, [&](CCustomData& settings) {
        std::vector<CXTString<wchar_t>> files = settings.Get(kRecentFiles);
        files.erase(std::remove(files.begin(), files.end(), opened), files.end());
        files.insert(files.begin(), opened);
        settings.Set(kRecentFiles, files);
    });
}

std::vector<CXTString<wchar_t>> RecentFiles(const CPathString& preferences)
{
    CCustomData settings;
    settings.LoadFromPrefs(preferences, kProgram, kSettings, false);
    return settings.Get(kRecentFiles);
}
} // namespace

int main()
{
    InitFerngateApplication();
    XSetApplicationName(L"viewer");
    const CPathString preferences = GetUserApplicationDataPath() / L"viewer.prefs";
    for (const wchar_t* opened : {L"roof.obj", L"walls.obj", L"roof.obj"})
    {
        if (!Remember(preferences, opened))
        {
            std::fprintf(stderr, "%s\n", CXTString<char>(XLastFailure().GetText()).GetConstBuffer());
            return 1;
        }
    }
    const std::vector<CXTString<wchar_t>> files = RecentFiles(preferences);
    for (const CXTString<wchar_t>& file : files)
        std::puts(CXTString<char>(file));
    return files.size() == 2 && files[0] == L"roof.obj" ? 0 : 1;
}
