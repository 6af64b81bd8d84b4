#include "zip/engine/ZipVolumes.h"

#include "tests/support/RawZip.h"
#include "tests/support/SplitZip.h"
#include "tests/support/TempFolder.h"
#include "tests/support/ZipMemory.h"
#include "tests/support/ZipTools.h"
#include "zip/CMiniZip.h"

namespace
{
using namespace tev::platform;
using namespace tev::test;

std::string Noise(std::size_t size)
{
    std::mt19937 random(7);
    std::string text(size, '\0');
    for (char& c : text)
        c = static_cast<char>(random());
    return text;
}

std::string PlainArchive(int files)
{
    const std::unique_ptr<ZipEngine> engine = ZipEngine::Create();
    ZipError error;
    for (int i = 0; i < files; ++i)
        EXPECT_TRUE(engine->Add(MemoryAddition("folder/file " + std::to_string(i), Noise(100u * i)), error));
    MemoryTarget target;
    EXPECT_TRUE(engine->Save(target, nullptr, error));
    return target.m_saved;
}

/// Opens the archive whose volumes these are.
std::unique_ptr<ZipEngine> Join(const std::vector<std::string>& volumes, ZipError& error)
{
    bool isReadOnly = false;
    std::unique_ptr<ZipBytes> bytes = std::make_unique<MemoryBytes>(volumes.back());
    const ZipVolumeOpener open = [&volumes](std::uint32_t number) -> std::unique_ptr<ZipBytes> {
        errno = ENOENT;
        return number + 1 < volumes.size() ? std::make_unique<MemoryBytes>(volumes[number]) : nullptr;
    };
    std::unique_ptr<ZipEngine> engine = ZipEngine::Open(std::move(bytes), open, isReadOnly, error);
    EXPECT_TRUE(isReadOnly || engine == nullptr);
    return engine;
}

TEST(ZipVolumes, EveryCutOfAnArchiveIsJoined)
{
    constexpr int kFiles = 9;
    const std::string archive = PlainArchive(kFiles);
    for (const bool zip64 : {false, true})
    {
        for (std::size_t volumeSize = 100; volumeSize < archive.size() + 400; volumeSize += 37)
        {
            SCOPED_TRACE(std::to_string(volumeSize) + (zip64 ? ", zip64" : ""));
            const std::vector<std::string> volumes = SplitZip(archive, volumeSize, zip64).Volumes();
            ZipError error;
            const std::unique_ptr<ZipEngine> engine = Join(volumes, error);
            ASSERT_NE(engine, nullptr) << static_cast<int>(error.failure);
            ASSERT_EQ(engine->Count(), 9U);
            for (int i = 0; i < kFiles; ++i)
            {
                EXPECT_EQ(ReadEntry(*engine, static_cast<unsigned>(i), "", error), Noise(100u * i));
                EXPECT_EQ(error.failure, ZipFailure::None);
            }
        }
    }
}

TEST(ZipVolumes, WhatDoesNotFitIsRefused)
{
    const std::string archive = PlainArchive(4);
    ZipError error;
    for (const bool zip64 : {false, true})
    {
        const std::vector<std::string> sound = SplitZip(archive, 300, zip64).Volumes();
        ASSERT_GT(sound.size(), 3U);
        std::vector<std::string> fewer = sound;
        fewer.erase(fewer.begin());
        EXPECT_EQ(Join(fewer, error), nullptr);
        EXPECT_EQ(error.failure, ZipFailure::MissingVolume);
        // Every bit of the directory and its end that is wrong is found, or harmless, or seen by what reads the entries.
        const std::size_t last = sound.size() - 1;
        for (const std::size_t volume : {last - 1, last})
        {
            for (std::size_t bit = 0; bit < sound[volume].size() * 8; ++bit)
            {
                std::vector<std::string> damaged = sound;
                damaged[volume][bit / 8] = static_cast<char>(damaged[volume][bit / 8] ^ 1 << bit % 8);
                bool isReadOnly = false;
                std::unique_ptr<ZipBytes> bytes = std::make_unique<MemoryBytes>(damaged.back());
                const auto open = [&](std::uint32_t number) -> std::unique_ptr<ZipBytes> {
                    errno = ENOENT;
                    return number < last ? std::make_unique<MemoryBytes>(damaged[number]) : nullptr;
                };
                const std::unique_ptr<ZipEngine> engine = ZipEngine::Open(std::move(bytes), open, isReadOnly, error);
                for (unsigned i = 0; engine != nullptr && i < engine->Count(); ++i)
                    EXPECT_LE(ReadEntry(*engine, i, "", error).size(), archive.size());
            }
        }
    }
}

TEST(ZipVolumes, ArchivesThatTheEngineRefusesAreAdapted)
{
    const std::string sound = RawZip({{"a", "first"}, {"b", "second"}});
    const std::string names = RawZip({{std::string("a\0.txt", 6), "first"}, {"b\xFF", "second"}});
    const std::string extra = RawZip({{"a", "first", false, 0, 0, std::string(3, '\xFF')}, {"b", "second"}});
    std::string cut = sound + "com";
    cut[sound.size() - 2] = 100;
    const struct
    {
        std::string m_archive;
        std::string m_names;
        bool m_isReadOnly;
    } cases[] = {
        {sound, "ab", false},
        {names, std::string("a\0.txtb\xFF", 8), false},
        {extra, "ab", false},
        {cut, "ab", false},
        {"a program" + sound, "ab", true},
        {sound + "trailing", "ab", false},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(&c - cases);
        std::unique_ptr<ZipBytes> bytes = std::make_unique<MemoryBytes>(c.m_archive);
        bool isReadOnly = false;
        ZipError error;
        const std::unique_ptr<ZipEngine> engine = ZipEngine::Open(std::move(bytes), nullptr, isReadOnly, error);
        ASSERT_NE(engine, nullptr);
        EXPECT_EQ(isReadOnly, c.m_isReadOnly);
        EXPECT_EQ(std::string(engine->Name(0)) + engine->Name(1), c.m_names);
        EXPECT_EQ(ReadEntry(*engine, 0, "", error) + ReadEntry(*engine, 1, "", error), "firstsecond");
    }
}

TEST(ZipVolumes, PlacesBeyond4GiBAreReached)
{
    std::string last = PlainArchive(3);
    const std::size_t end = last.rfind("PK\x05\x06");
    last[end + 4] = last[end + 6] = 1;
    for (std::size_t at = last.find("PK\x01\x02"); at != last.npos; at = last.find("PK\x01\x02", at + 1))
        last[at + 34] = 1;
    bool isReadOnly = false;
    std::unique_ptr<ZipBytes> bytes = std::make_unique<MemoryBytes>(last);
    ZipError error;
    const auto open = [](std::uint32_t) { return std::make_unique<ZeroBytes>(5ull << 30); };
    const std::unique_ptr<ZipEngine> engine = ZipEngine::Open(std::move(bytes), open, isReadOnly, error);
    ASSERT_NE(engine, nullptr);
    EXPECT_EQ(ReadEntry(*engine, 2, "", error), Noise(200));
}

TEST(ZipVolumes, CZipReadsSplitArchivesOfOtherPrograms)
{
    const TempFolder folder;
    const std::string contents = Noise(200000);
    folder.WriteFile("in/first", contents);
    folder.WriteFile("in/second", "small");
    folder.WriteFile("in/third", contents + contents);
    const std::string root = folder.Path().string();
    ASSERT_TRUE(Shell(root, "zip -q -r -s 64k split.zip in && zip -q -r -P key -s 64k secret.zip in"));
    CZip zip;
    for (const wchar_t* const name : {L"split.zip", L"secret.zip"})
    {
        ASSERT_TRUE(zip.Open(folder.WidePath().append(L"/").append(name).c_str(), zipOpenReadWrite, false, nullptr));
        EXPECT_TRUE(zip.IsReadOnly());
        zip.SetPassword(L"key");
        EXPECT_EQ(zip.GetCount(true), 3);
        for (int i = 0; i < zip.GetCount(false); ++i)
            EXPECT_EQ(zip.ExtractFile(static_cast<unsigned>(i), folder.WidePath("out").c_str(), true, nullptr, false),
                      zipExtracted);
        EXPECT_TRUE(Shell(root, "diff -r in out/in && rm -r out"));
        EXPECT_FALSE(zip.DeleteFiles(TextsOf({L"in/first"})));
        EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kReadOnly);
        zip.Close(true);
    }
    CMiniZip unpacked;
    EXPECT_TRUE(unpacked.ExtractZip(folder.WidePath("split.zip").c_str(), folder.WidePath("out").c_str(), true));
    EXPECT_TRUE(Shell(root, "diff -r in out/in"));
    std::filesystem::remove(folder.Path("split.z03"));
    EXPECT_FALSE(zip.Open(folder.WidePath("split.zip").c_str(), zipOpenReadOnly, false, nullptr));
    EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kMissingVolume);
}
} // namespace
