// A settings round trip: fills a store with every kind of value, saves it to a preference file that another program
// uses too, loads it back, changes it from several threads, sends it through a memory file, and shows it.

#include "TevTools.h"

#include <cstdio>
#include <ctime>
#include <thread>
#include <vector>

namespace
{
constexpr CDataKey<int> kWidth{1, 800}; // 800 where there is no such value
constexpr CDataKey<CXTString<wchar_t>> kTitle{2, L"untitled"};

enum Setting : unsigned
{
    kRecentFiles = 3,
    kCamera,
    kLastUsed,
    kShortcuts,
    kStarts,
    kOthers = 100
};

constexpr unsigned kProgram = 0x50415754; // the two keys of a record are chosen by the program
constexpr unsigned kMainWindow = 1;

/// A class that saves itself in a store.
class Camera : public CCustomDataClass
{
public:
    void SaveTo(CCustomData& data) const override
    {
        data.SetFloat(1, m_distance);
        data.SetBool(2, m_perspective ? 1 : 0);
    }
    bool LoadFrom(const CCustomData& data) override
    {
        return data.GetFloat(1, m_distance, 10.0F) && data.GetBool(2, m_perspective, true);
    }

    float m_distance = 10.0F;
    bool m_perspective = true;
};

void FillWithOtherKinds(CCustomData& settings)
{
    const float matrix[] = {1, 0, 0, 1};
    std::tm year2000 = {};
    year2000.tm_mday = 1;
    year2000.tm_year = 100;
    year2000.tm_wday = 6;
    unsigned id = kOthers;
    settings.SetUInt(id++, 4000000000U);
    settings.SetLong(id++, -2);
    settings.SetULong(id++, 3);
    settings.SetLongInt(id++, -5000000000);
    settings.SetULongInt(id++, 5000000000);
    settings.SetSizet(id++, sizeof(matrix));
    settings.SetChar(id++, 'c');
    settings.SetUChar(id++, 200);
    settings.SetBool(id++, 1);
    settings.SetDouble(id++, 0.1);
    settings.SetPtr(id++, nullptr);
    settings.SetStringA(id++, "narrow");
    settings.SetUTCTime(id++, year2000);
    settings.SetBinary(id++, "\1\2\3", 3);
    settings.SetArray(id++, matrix, sizeof(float), 4);
}

void Remember(const CXTString<wchar_t>& file)
{
    CCustomData settings;
    settings.Set(kWidth, 1280);
    settings.Set(kTitle, L"Roof \u2013 north");
    settings.SetStringList(kRecentFiles, {L"roof.3d", L"walls.3d"});
    settings.SetXTime(kLastUsed, CXTime::GetTickCount());
    Camera camera;
    camera.m_distance = 41.5F;
    settings.SetCustomClass(kCamera, camera);
    FillWithOtherKinds(settings);
    if (!settings.SaveToPrefs(file, kProgram, kMainWindow))
        std::puts("the settings could not be saved");
}

int RestoreWidth(const CXTString<wchar_t>& file)
{
    CCustomData settings;
    settings.LoadFromPrefs(file, kProgram, kMainWindow, false);
    return settings.Get(kWidth);
}

/// Adds a shortcut while other threads may do the same.
void AddShortcut(CCustomData& settings, wchar_t key)
{
    const CXSingleLock lock(settings.GetThreadLock(), true);
    std::vector<CXTString<wchar_t>> shortcuts;
    settings.GetStringList(kShortcuts, shortcuts);
    shortcuts.emplace_back(key, 1);
    settings.SetStringList(kShortcuts, shortcuts);
}

bool GoesThroughMemory(CCustomData& settings)
{
    CXMemFile file;
    CXArchive storing(&file, xArchiveStore);
    settings.Serialize(storing);
    storing.Close();

    file.SeekToBegin();
    CXArchive loading(&file, xArchiveLoad);
    CCustomData received;
    received.Serialize(loading);
    return received.IsEqual(settings);
}

/// Counts in a store that other programs change at the same time.
bool CountStart(const CXTString<wchar_t>& file)
{
    return XUpdatePreferences(file, kProgram, kMainWindow, [](CCustomData& settings) {
        int starts = 0;
        settings.GetInt(kStarts, starts, 0);
        settings.SetInt(kStarts, starts + 1);
    });
}

/// A view that follows a setting.
bool FollowsTheWidth(CCustomData& settings)
{
    int shown = settings.Get(kWidth);
    const CXDataListener listener(settings, [&](const CXDataChange& change) {
        if (change.m_id == kWidth.GetID() || change.m_what == CXDataChange::kReplaced)
            shown = settings.Get(kWidth);
    });
    settings.Set(kWidth, 640);
    return shown == 640;
}
} // namespace

int main()
{
    const CXTString<wchar_t> file = L"settings.prefs";
    CCustomData neighbour;
    neighbour.SetInt(1, 1);
    if (!neighbour.SaveToPrefs(file, kProgram + 1, kMainWindow))
        return 1;
    Remember(file);
    CCustomData settings;
    if (!CountStart(file) || RestoreWidth(file) != 1280 || !settings.LoadFromPrefs(file, kProgram, kMainWindow, true))
        return 1;

    std::vector<std::thread> threads;
    for (const wchar_t key : {L'a', L'b', L'c', L'd'})
        threads.emplace_back([&settings, key] { AddShortcut(settings, key); });
    for (std::thread& thread : threads)
        thread.join();

    Camera camera;
    std::vector<CXTString<wchar_t>> shortcuts;
    if (!settings.GetCustomClass(kCamera, camera) || settings.GetStringList(kShortcuts, shortcuts) != 4)
        return 1;
    std::puts(CXTString<char>(settings.DumpCustomData(true, 0)));
    return camera.m_distance == 41.5F && GoesThroughMemory(settings) && FollowsTheWidth(settings) ? 0 : 1;
}
