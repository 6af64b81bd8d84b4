#include "examples/host/window/Preferences.h"

#include <algorithm>

namespace host
{
namespace
{
constexpr unsigned kProgram = XFourCharacterCode("HOST");
constexpr unsigned kSettings = 1;
constexpr CDataKey<std::vector<CXTString<wchar_t>>> kRecentFiles{1};
constexpr unsigned kWindowPlace = 2;
constexpr CDataKey<bool> kAsWires{3};
constexpr std::size_t kMostRecentFiles = 10;

CCustomData Load(const CPathString& path)
{
    CCustomData settings;
    settings.LoadFromPrefs(path, kProgram, kSettings, false);
    return settings;
}
} // namespace

template <class Change>
void Preferences::Update(const Change& change) const
{
    if (!XUpdatePreferences(m_path, kProgram, kSettings, change))
        WriteToLogFile(1, L"the settings cannot be saved: %s\n", XLastFailure().GetText());
}

std::vector<CXTString<wchar_t>> Preferences::GetRecentFiles() const
{
    return Load(m_path).Get(kRecentFiles);
}

void Preferences::AddRecentFile(const CXTString<wchar_t>& path) const
{
    Update([&](CCustomData& settings) {
        std::vector<CXTString<wchar_t>> files = settings.Get(kRecentFiles);
        files.erase(std::remove(files.begin(), files.end(), path), files.end());
        files.insert(files.begin(), path);
        files.resize(std::min(files.size(), kMostRecentFiles));
        settings.Set(kRecentFiles, files);
    });
}

std::vector<unsigned char> Preferences::GetWindowPlace() const
{
    const CCustomData settings = Load(m_path);
    unsigned size = 0;
    const auto* bytes = static_cast<const unsigned char*>(settings.GetCustomPtr(kWindowPlace, size));
    return bytes == nullptr ? std::vector<unsigned char>() : std::vector<unsigned char>(bytes, bytes + size);
}

void Preferences::SetWindowPlace(const void* place, unsigned size) const
{
    Update([&](CCustomData& settings) { settings.SetBinary(kWindowPlace, place, size); });
}

bool Preferences::GetAsWires() const
{
    return Load(m_path).Get(kAsWires);
}

void Preferences::SetAsWires(bool asWires) const
{
    Update([&](CCustomData& settings) { settings.Set(kAsWires, asWires); });
}
} // namespace host
