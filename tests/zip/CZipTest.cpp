#include "zip/CZip.h"

#include "objects/LastFailure.h"
#include "services/FileTypeRegistry.h"
#include "services/Paths.h"
#include "tests/support/CZipFixture.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/FileFailure.h"
#include "tests/support/RawZip.h"

namespace
{
using namespace tev::test;

TEST_F(CZipArchive, ListsAndFinds)
{
    EXPECT_TRUE(Shell(m_folder.Path().string(), "unzip -t x.zip"));
    CZip zip;
    EXPECT_TRUE(zip.IsClosed());
    EXPECT_EQ(zip.GetCount(false), 0);
    Open(zip, zipOpenReadOnly);
    EXPECT_TRUE(zip.IsReadOnly());
    EXPECT_EQ(zip.GetArchivePath(), m_path.c_str());
    EXPECT_EQ(NamesOf(zip), L"a.txt|folder/|folder/b.bin");
    EXPECT_EQ(zip.GetCount(true), 2);
    CZipFileInfo info;
    ASSERT_TRUE(zip.GetFileInfo(info, 1));
    EXPECT_TRUE(info.IsDirectory());
    ASSERT_TRUE(zip.GetFileInfo(info, 2));
    EXPECT_FALSE(info.IsDirectory());
    EXPECT_EQ(info.GetUncompressedSize(), m_large.size());
    EXPECT_LT(info.GetCompressedSize(), 10000U);
    EXPECT_FALSE(zip.GetFileInfo(info, 3));
    EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kNotFound);

    EXPECT_EQ(zip.FindFile(L"folder/b.bin", true, false), 2U);
    EXPECT_EQ(zip.FindFile(L"folder\\b.bin", true, false), 2U);
    EXPECT_EQ(zip.FindFile(L"Folder\\B.BIN", true, false), xZipNoEntry);
    EXPECT_EQ(zip.FindFile(L"Folder\\B.BIN", false, false), 2U);
    EXPECT_EQ(zip.FindFile(L"b.bin", true, false), xZipNoEntry);
    EXPECT_EQ(zip.FindFile(L"b.bin", true, true), 2U);
    EXPECT_EQ(zip.FindFile(L"folder", true, false), 1U);

    CXArray<unsigned, unsigned> found;
    EXPECT_EQ(zip.FindMatchingFiles(found, L"*B*", false, false), 1);
    EXPECT_EQ(zip.FindMatchingFiles(found, L"*o*", true, false), 2);
    EXPECT_EQ(found[1], 2U);
    EXPECT_EQ(zip.FindMatchingFiles(found, L"?.*", true, true), 2);
    EXPECT_EQ(found[0], 0U);
    EXPECT_EQ(zip.FindMatchingFiles(found, L"*B*", true, false), 0);
    zip.Close(true);
    EXPECT_TRUE(zip.IsClosed() && zip.GetArchivePath().IsEmpty() && !zip.IsReadOnly());
    EXPECT_EQ(m_folder.ReadFile("x.zip"), m_bytes);
}

TEST_F(CZipArchive, ExtractsBeneathTheFolder)
{
    CZip zip;
    Open(zip, zipOpenReadOnly);
    EXPECT_EQ(zip.ExtractFile(2, m_out.c_str(), true, nullptr, true), zipExtracted);
    EXPECT_EQ(m_folder.ReadFile("out/folder/b.bin"), m_large);
    EXPECT_EQ(m_watcher.m_processed, m_large.size());
    EXPECT_EQ(m_watcher.m_total, m_large.size());
    EXPECT_TRUE(m_watcher.m_ended);
    EXPECT_EQ(m_watcher.m_target, m_folder.WidePath("out/folder/b.bin"));
    CXTime added;
    CXTime extracted;
    EXPECT_TRUE(fileGetLastWriteDate(m_folder.WidePath("folder/b.bin").c_str(), added));
    EXPECT_TRUE(fileGetLastWriteDate(m_folder.WidePath("out/folder/b.bin").c_str(), extracted));
    EXPECT_EQ(added.GetTime(), extracted.GetTime());
    EXPECT_EQ(zip.ExtractFile(2, m_out.c_str(), false, L"c.bin", true), zipExtracted);
    EXPECT_EQ(zip.ExtractFile(0, m_out.c_str(), false, L"sub\\d.txt", true), zipExtracted);
    EXPECT_EQ(m_folder.ReadFile("out/c.bin").size() + m_folder.ReadFile("out/sub/d.txt").size(), m_large.size() + 5);
    EXPECT_EQ(zip.ExtractFile(1, m_folder.WidePath("other").c_str(), true, nullptr, true), zipExtracted);
    EXPECT_TRUE(std::filesystem::is_directory(m_folder.Path("other/folder")));

    EXPECT_EQ(zip.ExtractFile(0, m_out.c_str(), false, L"..\\d.txt", true), zipSkipped);
    EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kUnsafeName);
    EXPECT_EQ(zip.ExtractFile(0, m_folder.WidePath("a.txt").c_str(), true, nullptr, false), zipFailed);
    EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kSystem);
    EXPECT_EQ(zip.ExtractFile(0, m_folder.WidePath().c_str(), true, L"x.zip", false), zipFailed)
        << "the archive itself";
    const auto failure = Caught([&] { zip.ExtractFile(3, m_out.c_str(), true, nullptr, true); });
    EXPECT_EQ(failure->GetCause(), fileGeneric);
    EXPECT_TRUE(failure->GetFileName().IsEmpty() && failure->GetMessageText().IsEmpty());
    EXPECT_EQ(m_folder.ReadFile("x.zip"), m_bytes);
}

TEST_F(CZipArchive, TheCallbackDecidesAndCancels)
{
    m_folder.WriteFile("out/b.bin", "old");
    CZip zip;
    Open(zip, zipOpenReadOnly);
    const auto extract = [&] { return zip.ExtractFile(2, m_out.c_str(), false, nullptr, true); };
    m_watcher.m_answer = 1;
    XClearLastFailure();
    EXPECT_EQ(extract(), zipSkipped);
    EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kSkipped);
    EXPECT_FALSE(XLastFailure()) << "what the callback skips is no failure";
    m_watcher.m_answer = 7;
    EXPECT_EQ(extract(), zipSkipped);
    EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kCancelled);
    m_watcher.m_answer = 0;
    m_watcher.m_cancelFrom = 500000;
    EXPECT_EQ(extract(), zipSkipped);
    EXPECT_EQ(zip.TestFile(2), zipSkipped);
    m_watcher.m_lacksMemory = true;
    EXPECT_EQ(zip.TestFile(2), zipFailed);
    EXPECT_EQ(zip.GetLastSystemError(), 8U);
    m_watcher.m_lacksMemory = false;
    m_watcher.m_throws = true;
    EXPECT_THROW(extract(), std::runtime_error);
    EXPECT_EQ(m_folder.ReadFile("out/b.bin"), "old");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_folder.Path("out")), {}), 1);
}

TEST_F(CZipArchive, ChangesAreSavedWhenItIsClosed)
{
    {
        CZip zip;
        Open(zip);
        EXPECT_TRUE(zip.AddNewFile(m_folder.WidePath("a.txt").c_str(), true, zipLevelStore));
        EXPECT_FALSE(zip.AddNewFile(m_folder.WidePath("a.txt").c_str(), L"/a.txt", zipLevelStore));
        EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kExists);
        const unsigned added = zip.FindFile(m_folder.WidePath("a.txt").c_str() + 1, true, false);
        EXPECT_EQ(added, 3U);
        EXPECT_EQ(zip.ExtractFile(added, m_out.c_str(), false, nullptr, true), zipExtracted);
        EXPECT_EQ(m_folder.ReadFile("out/a.txt"), "first");
        EXPECT_TRUE(zip.DeleteFiles(TextsOf({L"folder/"})));
        EXPECT_FALSE(zip.DeleteFiles(TextsOf({L"a.txt", L"A.TXT"})));
        EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kNotFound);
        Texts old = TextsOf({L"a.txt", L"folder/b.bin"});
        EXPECT_FALSE(zip.RenameFiles(old, TextsOf({L"same", L"same"})));
        EXPECT_FALSE(zip.RenameFiles(old, TextsOf({L"c", L"..\\d"})));
        EXPECT_TRUE(zip.RenameFiles(old, TextsOf({L"folder/b.bin", L"a.txt"})));
        EXPECT_EQ(m_folder.ReadFile("x.zip"), m_bytes);
    } // closes
    EXPECT_TRUE(Shell(m_folder.Path().string(), "unzip -t x.zip"));
    CZip zip;
    Open(zip);
    EXPECT_EQ(NamesOf(zip).substr(0, 19), L"folder/b.bin|a.txt|");
    EXPECT_EQ(zip.ExtractFile(1, m_out.c_str(), false, nullptr, true), zipExtracted);
    EXPECT_EQ(m_folder.ReadFile("out/a.txt"), m_large);
    Texts all;
    for (int i = 0; i < zip.GetCount(false); ++i)
    {
        CZipFileInfo info;
        zip.GetFileInfo(info, static_cast<unsigned>(i));
        all.Add(info.GetFileName());
    }
    EXPECT_TRUE(zip.DeleteFiles(all));
    zip.Close(true);
    Open(zip, zipOpenReadOnly);
    EXPECT_EQ(zip.GetCount(false), 0);
}

TEST_F(CZipArchive, StoresPermissions)
{
    using std::filesystem::perms;
    const auto modeOf = [&](const char* name) { return std::filesystem::status(m_folder.Path(name)).permissions(); };
    std::filesystem::permissions(m_folder.Path("a.txt"), perms(0600));
    std::filesystem::permissions(m_folder.Path("folder/b.bin"), perms(0755));
    std::filesystem::permissions(m_folder.Path("folder"), perms(0700));
    ASSERT_TRUE(ChangeArchive(m_folder.WidePath("modes.zip"), zipCreate, [&](CZip& zip) {
        return zip.AddNewFile(m_folder.WidePath("a.txt").c_str(), L"key", zipLevelDefault) &&
               zip.AddNewFile(m_folder.WidePath("folder").c_str(), L"bin", zipLevelDefault) &&
               zip.AddNewFile(m_folder.WidePath("folder/b.bin").c_str(), L"bin/program", zipLevelDefault);
    }));
    EXPECT_TRUE(Shell(m_folder.Path().string(), "unzip modes.zip -d modes"));
    EXPECT_EQ(modeOf("modes/key"), perms(0600));
    EXPECT_EQ(modeOf("modes/bin"), perms(0700));
    EXPECT_EQ(modeOf("modes/bin/program"), perms(0755));
}

TEST_F(CZipArchive, WhatCannotBeOpenedIsRefused)
{
    CZip zip;
    EXPECT_FALSE(zip.Open(m_folder.WidePath("none.zip").c_str(), zipOpenReadOnly, false, nullptr));
    EXPECT_EQ(zip.GetLastSystemError(), 2U);
    EXPECT_FALSE(zip.Open(m_folder.WidePath("folder").c_str(), zipOpenReadOnly, false, nullptr));
    EXPECT_FALSE(zip.Open(m_folder.WidePath("a.txt").c_str(), zipOpenReadOnly, false, nullptr));
    EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kNoArchive);
    EXPECT_FALSE(zip.Open(m_folder.WidePath("none/new.zip").c_str(), zipCreate, false, nullptr));
    EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kSystem);
    EXPECT_FALSE(zip.Open(nullptr, zipCreate, false, nullptr));
    EXPECT_EQ(Thrown([&] { zip.Open(m_folder.WidePath("folder").c_str(), zipCreate, true, nullptr); }), fileGeneric);
    Open(zip, zipOpenReadOnly);
    EXPECT_FALSE(zip.Open(m_path.c_str(), zipOpenReadOnly, false, nullptr));
    EXPECT_EQ(zip.GetCount(false), 3);
    EXPECT_FALSE(zip.DeleteFiles(TextsOf({L"a.txt"})));
    EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kReadOnly);
    zip.Close(true);
    Open(zip);
    EXPECT_FALSE(zip.AddNewFile(m_path.c_str(), false, zipLevelDefault)) << "an archive in itself";
    EXPECT_FALSE(zip.AddNewFile(m_folder.WidePath("a.txt").c_str(), L"../a", zipLevelDefault));
    EXPECT_FALSE(zip.AddNewFile(m_folder.WidePath("a.txt").c_str(), L"new", static_cast<ZipCompressionLevel>(10)));
    EXPECT_FALSE(zip.AddNewFile(m_folder.WidePath("none").c_str(), false, zipLevelDefault));
    zip.Close(true);
    EXPECT_EQ(m_folder.ReadFile("x.zip"), m_bytes);
}

TEST_F(CZipArchive, LimitsHold)
{
    CZip zip;
    Open(zip, zipOpenReadOnly);
    const auto extract = [&] { return zip.ExtractFile(2, m_out.c_str(), false, nullptr, false); };
    zip.SetLimits({2500000, 100});
    EXPECT_EQ(extract(), zipFailed);
    EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kTooLarge);
    EXPECT_FALSE(m_folder.Exists("out/b.bin"));
    zip.SetLimits({2500000, 100000});
    EXPECT_EQ(extract(), zipExtracted);
    EXPECT_EQ(extract(), zipExtracted);
    EXPECT_EQ(extract(), zipFailed) << "all together";
}

TEST(CZip, HostileEntriesMakeNoFile)
{
    const TempFolder folder;
    std::vector<RawEntry> entries;
    for (const char* const name : {"../up", "/../root", "C:\\x", "a\\b", "a/../../b"})
        entries.push_back({name, "x"});
    const std::size_t unsafe = entries.size();
    entries.push_back({"link", "/etc", false, 0x0800, 0120777u << 16});
    RawEntry lie{"more than declared", std::string(100000, 'x'), true};
    lie.size = 10;
    entries.push_back(lie);
    RawEntry damaged{"damaged", "contents"};
    damaged.checksum = 1;
    entries.push_back(damaged);
    RawEntry fewer{"fewer than declared", std::string(1000, 'x'), true};
    fewer.size = 1001;
    entries.push_back(fewer);
    entries.push_back({"sound", "contents"});
    const std::wstring path = folder.WriteFile("x.zip", RawZip(entries));
    CZip zip;
    ASSERT_TRUE(zip.Open(path.c_str(), zipOpenReadOnly, false, nullptr));
    const auto extract = [&](std::size_t index) {
        return zip.ExtractFile(static_cast<unsigned>(index), folder.WidePath("out").c_str(), true, nullptr, false);
    };
    for (std::size_t index = 0; index < unsafe; ++index)
    {
        EXPECT_EQ(extract(index), zipSkipped) << index;
        EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kUnsafeName) << index;
    }
    EXPECT_EQ(extract(unsafe), zipSkipped);
    EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kSpecialFile);
    EXPECT_EQ(extract(unsafe + 1), zipFailed);
    EXPECT_EQ(extract(unsafe + 2), zipFailed);
    EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kDamaged);
    EXPECT_EQ(extract(unsafe + 3), zipFailed);
    EXPECT_EQ(extract(unsafe + 4), zipExtracted);
    EXPECT_EQ(std::distance(std::filesystem::recursive_directory_iterator(folder.Path()), {}), 3);
}

TEST(CZip, NamesAndTimesAreReadFromTheirFields)
{
    const std::string cafe437 = "caf\x82";
    const auto checksum = crc32_z(0, reinterpret_cast<const Bytef*>(cafe437.data()), cafe437.size());
    const std::string path = "caf\xC3\xA9 Noir";
    const std::string unicode = LittleEndianText(0x7075, 2) + LittleEndianText(5 + path.size(), 2) + "\1" +
                                LittleEndianText(checksum, 4) + path;
    const auto times = [](std::uint64_t id, const std::string& contents) {
        return LittleEndianText(id, 2) + LittleEndianText(contents.size(), 2) + contents;
    };
    const std::string extended = times(0x5455, "\7" + LittleEndianText(1600000001, 4) +
                                                   LittleEndianText(1600000002, 4) + LittleEndianText(3, 4));
    const std::string ntfs =
        times(0x000A, LittleEndianText(0, 4) + LittleEndianText(1, 2) + LittleEndianText(24, 2) +
                          LittleEndianText(132445000010000000, 8) + LittleEndianText(132445000020000000, 8) +
                          LittleEndianText(132445000030000000, 8));
    const TempFolder folder;
    const std::wstring archive = folder.WriteFile("x.zip", RawZip({{cafe437, "", false, 0},
                                                                   {"caf\xC3\xA9", "", false, 0},
                                                                   {cafe437, "", false, 0, 0, unicode},
                                                                   {"extended", "", false, 0, 0, extended},
                                                                   {"ntfs", "", false, 0, 0, ntfs}}));
    CZip zip;
    ASSERT_TRUE(zip.Open(archive.c_str(), zipOpenReadOnly, false, nullptr));
    EXPECT_EQ(NamesOf(zip), L"caf\u00E9|caf\u00E9|caf\u00E9 Noir|extended|ntfs");
    EXPECT_EQ(zip.FindFile(L"CAF\u00C9 NOIR", false, false), 2U) << "case beyond ASCII";
    EXPECT_EQ(zip.FindFile(L"caf\u00E9", true, false), 0U);
    CZipFileInfo info;
    ASSERT_TRUE(zip.GetFileInfo(info, 3));
    EXPECT_EQ(info.GetModifiedTime(), 1600000001);
    EXPECT_EQ(info.GetLastAccessTime(), 1600000002);
    EXPECT_EQ(info.GetCreationTime(), 3);
    ASSERT_TRUE(zip.GetFileInfo(info, 4));
    EXPECT_EQ(info.GetModifiedTime(), 1600026401);
    EXPECT_EQ(info.GetLastAccessTime(), 1600026402);
    EXPECT_EQ(info.GetCreationTime(), 1600026403);
    zip.Close(true);
    EXPECT_TRUE(ChangeArchive(archive, zipOpenReadWrite,
                              [](CZip& changed) { return changed.DeleteFiles(TextsOf({L"caf\u00E9"})); }));
    ASSERT_TRUE(zip.Open(archive.c_str(), zipOpenReadOnly, false, nullptr));
    EXPECT_EQ(NamesOf(zip), L"caf\u00E9 Noir|extended|ntfs");
    ASSERT_TRUE(zip.GetFileInfo(info, 1));
    EXPECT_EQ(info.GetCreationTime(), 3) << "what is kept, is kept as it is";
}

TEST(CZip, RenamingIsDoneAsAWholeOrNotAtAll)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("x.zip", RawZip({{"a", "1"},
                                                                {"a", "2"},
                                                                {"b", "3"},
                                                                {"by attribute", "", false, 0x0800, 0x10},
                                                                {"link/", "", false, 0x0800, 0120777u << 16}}));
    CZip zip;
    ASSERT_TRUE(zip.Open(path.c_str(), zipOpenReadWrite, false, nullptr));
    Texts old = TextsOf({L"a", L"b"});
    EXPECT_FALSE(zip.RenameFiles(old, TextsOf({L"b", L"a"}))) << "the other one of that name keeps it";
    EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kExists);
    EXPECT_EQ(NamesOf(zip), L"a|a|b|by attribute|link/");
    old = TextsOf({L"b", L"by attribute", L"link"});
    EXPECT_TRUE(zip.RenameFiles(old, TextsOf({L"c", L"d", L"e"})));
    EXPECT_EQ(NamesOf(zip), L"a|a|c|d|e/");
    zip.Discard();
}

TEST(CZip, ASearchLooksOnlyAtEntriesOfTheName)
{
    const TempFolder folder;
    std::vector<RawEntry> entries;
    for (unsigned i = 0; i < 2000; ++i)
        entries.push_back({"a folder whose name takes memory " + std::to_string(i) + "/Model", ""});
    CZip zip;
    ASSERT_TRUE(zip.Open(folder.WriteFile("x.zip", RawZip(entries)).c_str(), zipOpenReadOnly, false, nullptr));
    for (const bool isCaseSensitive : {false, true})
    {
        for (const unsigned wanted : {0u, 1999u})
        {
            const std::wstring name = L"a folder whose name takes memory " + std::to_wstring(wanted) + L"/Model";
            EXPECT_EQ(zip.FindFile(name.c_str(), isCaseSensitive, false), wanted);
            FailingAllocations few(50); // a comparison takes some
            few.Run([&] { EXPECT_EQ(zip.FindFile(name.c_str(), isCaseSensitive, false), wanted); });
            EXPECT_FALSE(few.HasFailed());
        }
        EXPECT_EQ(zip.FindFile(L"MODEL", isCaseSensitive, true), isCaseSensitive ? xZipNoEntry : 0u);
        EXPECT_EQ(zip.FindFile(L"model/", isCaseSensitive, true), isCaseSensitive ? xZipNoEntry : 0u);
        EXPECT_EQ(zip.FindFile(L"Model", isCaseSensitive, true), 0u);
        EXPECT_EQ(zip.FindFile(L"Model", isCaseSensitive, false), xZipNoEntry);
    }
}

TEST(CZip, NamesThatFloodATableMakeAnArchiveReadOnly)
{
    const TempFolder folder;
    for (const bool isChosen : {false, true})
    {
        std::vector<RawEntry> entries;
        for (unsigned i = 0; i < 20'000; ++i)
        {
            std::string name = std::to_string(i);
            for (unsigned bit = 0; isChosen && bit < 15; ++bit)
                name.replace(bit == 0 ? 0 : name.size(), bit == 0 ? name.size() : 0, (i >> bit & 1) == 0 ? "Aa" : "B@");
            entries.push_back({name, ""});
        }
        CZip zip;
        ASSERT_TRUE(zip.Open(folder.WriteFile("x.zip", RawZip(entries)).c_str(), zipOpenReadWrite, false, nullptr));
        EXPECT_EQ(zip.IsReadOnly(), isChosen);
        EXPECT_EQ(zip.GetCount(true), 20'000);
        zip.Discard();
    }
}

const unsigned char* BytesAt(const std::string& bytes, std::size_t at)
{
    return reinterpret_cast<const unsigned char*>(bytes.data()) + at;
}

TEST(CZip, EncryptedEntriesNeedTheirPassword)
{
    const TempFolder folder;
    const std::wstring file = folder.WriteFile("a.txt", "secret");
    const std::wstring path = folder.WidePath("x.zip");
    ASSERT_TRUE(ChangeArchive(path, zipCreate, [&](CZip& zip) {
        zip.SetPassword(L"p\u00E4ss");
        const bool isAdded = zip.AddNewFile(file.c_str(), L"aes", zipLevelDefault);
        zip.SetPassword(L"p\u00E4ss", XZipEncryption::kTraditional);
        return isAdded && zip.AddNewFile(file.c_str(), L"old", zipLevelDefault);
    }));
    EXPECT_TRUE(Shell(folder.Path().string(), "unzip -P 'p\xC3\xA4ss' -t x.zip old"));
    EXPECT_TRUE(Shell(folder.Path().string(), "bsdtar --passphrase 'p\xC3\xA4ss' -xOf x.zip aes | cmp - a.txt"));
    CZip zip;
    ASSERT_TRUE(zip.Open(path.c_str(), zipOpenReadOnly, false, nullptr));
    CZipFileInfo info;
    EXPECT_TRUE(zip.GetFileInfo(info, 0) && info.GetEncryption() == XZipEncryption::kAes256);
    const std::string bytes = folder.ReadFile("x.zip");
    const auto numberAt = [&](std::size_t at) { return tev::LoadLittleEndian<std::uint32_t>(BytesAt(bytes, at)); };
    EXPECT_EQ(numberAt(bytes.find("PK\3\4") + 14), 0U) << "no checksum that tells what is encrypted";
    EXPECT_EQ(numberAt(bytes.find("PK\1\2") + 16), 0U);
    EXPECT_NE(numberAt(bytes.rfind("PK\1\2") + 16), 0U) << "which the traditional encryption has";
    for (const unsigned index : {0U, 1U})
    {
        zip.SetPassword(nullptr);
        EXPECT_EQ(zip.ExtractFile(index, folder.WidePath("out").c_str(), true, nullptr, false), zipFailed);
        EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kPasswordNeeded);
        zip.SetPassword(L"wrong");
        EXPECT_EQ(zip.TestFile(index), zipFailed);
        EXPECT_TRUE(zip.GetLastFailure() == XZipFailure::kWrongPassword ||
                    zip.GetLastFailure() == XZipFailure::kWrongPasswordOrDamaged);
        zip.SetPassword(L"p\u00E4ss");
        EXPECT_EQ(zip.ExtractFile(index, folder.WidePath("out").c_str(), true, nullptr, false), zipExtracted);
    }
    EXPECT_EQ(folder.ReadFile("out/aes") + folder.ReadFile("out/old"), "secretsecret");
}

TEST(CZip, PathsThroughArchivesAreSplit)
{
    const TempFolder folder;
    folder.WriteFile("a.ZIP", "");
    folder.WriteFile("folder.zip/b.zip", "");
    const struct
    {
        const wchar_t* m_path;
        int m_n;
        const wchar_t* m_archive; // null: none
        const wchar_t* m_inner;
    } cases[] = {
        {L"/a.ZIP/x/y", 0, L"/a.ZIP", L"x\\y\\"},
        {L"/a.ZIP", 0, L"/a.ZIP", L""},
        {L"/a.ZIP\\", 0, L"/a.ZIP", L""},
        {L"/a.ZIP/x\\in.zip/z", 0, L"/a.ZIP", L"x\\in.zip\\z\\"},
        {L"/a.ZIP/x\\in.zip/z", 1, L"/a.ZIP/x\\in.zip", L"z\\"},
        {L"/a.ZIP/x\\in.zip/z", 2, nullptr, nullptr},
        {L"/a.ZIP/x", -1, nullptr, nullptr},
        {L"/folder.zip/b.zip/x", 0, L"/folder.zip/b.zip", L"x\\"},
        {L"/folder.zip/c", 0, nullptr, nullptr},
        {L"/missing.zip/x", 0, nullptr, nullptr},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(std::string(c.m_path, c.m_path + std::wcslen(c.m_path)) + " " + std::to_string(c.m_n));
        CXTString<wchar_t> path((folder.WidePath() + c.m_path).c_str());
        CXTString<wchar_t> inner(L"as it was");
        const CXTString<wchar_t> given = path;
        EXPECT_EQ(CZip::ExtractDirInfo(path, inner, c.m_n), c.m_archive != nullptr);
        EXPECT_EQ(path, c.m_archive != nullptr ? (folder.WidePath() + c.m_archive).c_str() : given.GetConstBuffer());
        EXPECT_STREQ(inner, c.m_archive != nullptr ? c.m_inner : L"as it was");
    }
    CXTString<wchar_t> path;
    CXTString<wchar_t> inner;
    EXPECT_FALSE(CZip::ExtractDirInfo(path, inner, 0));

    // Another type may be preferred for an extension of archives.
    CFileExt other(L"Other", L".zip", XFourCharacterCode("othr"), xFilePreferred);
    fileRegisterFile(other);
    path = (folder.WidePath() + L"/a.ZIP/x").c_str();
    EXPECT_TRUE(CZip::ExtractDirInfo(path, inner, 0));
    fileUnregisterFile(other.GetClass(), 3);
}
} // namespace
