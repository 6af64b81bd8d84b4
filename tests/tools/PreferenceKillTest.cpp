// Preference files while the programs that save into them are killed, or save at the same time. The programs are the tool.

#include "settings/CCustomData.h"
#include "settings/PreferenceFile.h"
#include "tests/support/TempFolder.h"
#include "tests/tools/TevRunner.h"

namespace
{
using namespace std::chrono_literals;
using namespace tev::test;
using Clock = std::chrono::steady_clock;

constexpr unsigned kKey = 7;
constexpr unsigned kId = 3;

class PreferenceKill : public testing::Test
{
protected:
    TevProcess StartSaving(unsigned key, int value) const
    {
        return TevProcess({"settings", "set", m_folder.Path("prefs"), std::to_string(key), std::to_string(kKey),
                           std::to_string(kId), "int", std::to_string(value)},
                          -1, -1, -1);
    }

    bool IsSound() const
    {
        std::vector<XPreferenceRecord> records;
        return XListPreferences(m_path.c_str(), records);
    }

    int Saved(unsigned key) const
    {
        CCustomData store;
        int value = -1;
        if (store.LoadFromPrefs(m_path.c_str(), key, kKey, true))
            store.GetInt(kId, value, -1);
        return value;
    }

    TempFolder m_folder;
    std::wstring m_path = m_folder.WidePath("prefs");
};

TEST_F(PreferenceKill, AKilledSaveLeavesTheOldStoreOrTheNewOne)
{
    constexpr int kKills = 300;
    constexpr int kFewest = 20; // of a slow machine, on which time ends the test
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);

    // So large that the kills meet the writing.
    const std::string bytes(1 << 20, 'x');
    CCustomData bystander;
    bystander.SetBinary(kId, bytes.data(), static_cast<unsigned>(bytes.size()));
    ASSERT_TRUE(bystander.SaveToPrefs(m_path.c_str(), 99, kKey));

    std::vector<int> values = {-1, -1, -1};
    Clock::duration life = 0s;
    for (unsigned key = 0; key < values.size(); ++key)
    {
        const auto start = Clock::now();
        ASSERT_EQ(StartSaving(key, values[key] = static_cast<int>(key)).Wait(), 0);
        life = std::max(life, Clock::now() - start);
    }
    std::uniform_int_distribution<Clock::rep> moment(0, life.count() * 5 / 4);
    const auto end = Clock::now() + 4s;
    int interrupted = 0;
    int saved = 0;
    int round = 0;
    for (; round < kKills && (round < kFewest || Clock::now() < end); ++round)
    {
        const unsigned key = static_cast<unsigned>(round) % values.size();
        const int value = 100 + round;
        {
            const TevProcess process = StartSaving(key, value);
            std::this_thread::sleep_for(Clock::duration(moment(random)));
        }
        ASSERT_TRUE(IsSound()) << "round " << round;
        for (unsigned i = 0; i < values.size(); ++i)
        {
            const int now = Saved(i);
            ASSERT_TRUE(now == values[i] || (i == key && now == value)) << "round " << round << ": " << now;
            saved += now != values[i] ? 1 : 0;
            values[i] = now;
        }
        if (!m_folder.Exists("prefs.tmp"))
            continue;
        ++interrupted;
        ASSERT_TRUE(bystander.SaveToPrefs(m_path.c_str(), 99, kKey)) << "round " << round;
        ASSERT_FALSE(m_folder.Exists("prefs.tmp"));
    }
    CCustomData now;
    EXPECT_TRUE(now.LoadFromPrefs(m_path.c_str(), 99, kKey, true) && now.IsEqual(bystander));
    EXPECT_FALSE(m_folder.Exists("prefs.damaged"));
    EXPECT_TRUE(interrupted > 0 || round < kKills) << "no kill met a save";
    RecordProperty("kills", round);
    RecordProperty("saves_interrupted", interrupted);
    RecordProperty("saves_done", saved);
}

TEST_F(PreferenceKill, ProcessesThatSaveAtOnceLoseNothing)
{
    constexpr int kRounds = 10;
    for (int value = 0; value < kRounds; ++value)
    {
        TevProcess one = StartSaving(1, value);
        TevProcess two = StartSaving(2, value);
        const auto end = Clock::now() + 100s;
        while (Saved(1) != value || Saved(2) != value)
        {
            ASSERT_TRUE(!m_folder.Exists("prefs") || IsSound()) << "a reader sees the old file or the new one";
            ASSERT_LT(Clock::now(), end);
        }
        EXPECT_EQ(one.Wait(), 0);
        EXPECT_EQ(two.Wait(), 0);
    }
    std::vector<XPreferenceRecord> records;
    EXPECT_TRUE(XListPreferences(m_path.c_str(), records));
    EXPECT_EQ(records.size(), 2U);
}

TEST_F(PreferenceKill, ProcessesThatSetValuesOfOneStoreAtOnceLoseNone)
{
    std::vector<std::unique_ptr<TevProcess>> processes;
    constexpr unsigned kValues = 12;
    for (unsigned id = 0; id < kValues; ++id)
        processes.push_back(
            std::make_unique<TevProcess>(std::vector<std::string>{"settings", "set", m_folder.Path("prefs"), "1", "2",
                                                                  std::to_string(id), "int", "5"},
                                         -1, -1, -1));
    for (const auto& process : processes)
        EXPECT_EQ(process->Wait(), 0);
    CCustomData store;
    EXPECT_TRUE(store.LoadFromPrefs(m_path.c_str(), 1, 2, true));
    EXPECT_EQ(store.GetIDCount(), kValues);
}
} // namespace
