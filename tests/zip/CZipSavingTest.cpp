#include "tests/support/CZipFixture.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/FileFailure.h"
#include "tests/support/RawZip.h"
#include "tests/support/Sanitized.h"
#include "tests/support/System.h"
#include "zip/Password.h"

#include <algorithm>
#include <random>

// What saving an archive leaves, on the disk and in memory.

namespace
{
using namespace tev::test;

TEST_F(CZipArchive, AFailedSaveLeavesTheOldArchive)
{
    const auto change = [&](CZip& zip) {
        Open(zip);
        ASSERT_TRUE(zip.AddNewFile(m_folder.WidePath("folder/b.bin").c_str(), L"c", zipLevelStore));
    };
    {
        CZip zip;
        change(zip);
        m_watcher.m_cancelFrom = 500000;
        EXPECT_EQ(Thrown([&] { zip.Close(true); }), fileGeneric);
        EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kCancelled);
        EXPECT_TRUE(zip.IsClosed());
        Open(zip);
        ASSERT_TRUE(zip.AddNewFile(m_folder.WidePath("a.txt").c_str(), L"small", zipLevelStore));
        m_watcher.m_cancelFrom = 1;
        zip.Close(false);
        EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kCancelled);
        change(zip);
        zip.Discard();
        EXPECT_TRUE(zip.IsClosed());
        change(zip);
        m_watcher.m_throws = true;
        EXPECT_THROW(zip.Close(false), std::runtime_error);
        m_watcher.m_throws = false;
        m_watcher.m_cancelFrom = ~0ull;
    }
    {
        CZip zip;
        change(zip);
        FailingFileSystem files;
        files.LimitSpace(300000);
        zip.Close(false);
        EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kSystem);
        EXPECT_EQ(zip.GetLastSystemError(), 112U);
    }
    EXPECT_EQ(m_folder.ReadFile("x.zip"), m_bytes);
    unsigned n = 0;
    for (std::string step = "none yet"; !step.empty();) // whatever goes wrong, and whenever
    {
        CZip zip;
        change(zip);
        {
            FailingFileSystem files;
            files.FailAt(++n, EIO);
            zip.Close(false);
            step = files.FailedStep();
        }
        SCOPED_TRACE(step);
        const bool isSaved = zip.GetLastFailure() == XZipFailure::kNone;
        EXPECT_TRUE(!isSaved || step.empty() || step == "close") << "of what is read";
        EXPECT_TRUE(isSaved || zip.GetLastFailure() == XZipFailure::kSystem);
        if (isSaved || step == "sync folder")
        {
            EXPECT_TRUE(Shell(m_folder.Path().string(), "unzip -t x.zip"));
            EXPECT_NE(m_folder.ReadFile("x.zip"), m_bytes);
            m_folder.WriteFile("x.zip", m_bytes);
        }
        EXPECT_EQ(m_folder.ReadFile("x.zip"), m_bytes);
    }
    std::string others = m_bytes;
    others[others.size() - 30] ^= 1; // as long as it was, and perhaps of the same second
    for (const bool byRename : {true, false})
    {
        CZip zip;
        change(zip);
        m_folder.WriteFile(byRename ? "y.zip" : "x.zip", others);
        if (byRename)
            std::filesystem::rename(m_folder.Path("y.zip"), m_folder.Path("x.zip"));
        zip.Close(false);
        EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kReplaced);
        EXPECT_EQ(m_folder.ReadFile("x.zip"), others);
        m_folder.WriteFile("x.zip", m_bytes);
    }
    CZip created;
    ASSERT_TRUE(created.Open(m_folder.WidePath("new.zip").c_str(), zipCreate, false, nullptr));
    m_folder.WriteFile("new.zip", others);
    created.Close(false);
    EXPECT_EQ(created.GetLastFailure(), XZipFailure::kReplaced) << "by one that appeared meanwhile";
    EXPECT_EQ(m_folder.ReadFile("new.zip"), others);
    EXPECT_FALSE(m_folder.Exists("x.zip.tmp"));
}

/// What stays as it is at the start of an archive is copied by the system, or read and written: the result is the same.
TEST_F(CZipArchive, SavingKeepsTheStartOfTheArchiveAsItIs)
{
    constexpr int kEntries = 6;
    std::minstd_rand random(3);
    std::string bytes(400000, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    m_folder.WriteFile("part", bytes);
    ASSERT_TRUE(ChangeArchive(m_path, zipCreate, [&](CZip& zip) {
        bool good = true;
        for (int i = 0; i < kEntries && good; ++i)
            good = zip.AddNewFile(m_folder.WidePath("part").c_str(), std::to_wstring(i).c_str(), zipLevelStore);
        return good;
    }));
    const std::string old = m_folder.ReadFile("x.zip");
    for (int round = 0; round < 8; ++round)
    {
        const unsigned changed = random() % kEntries;
        const unsigned what = round == 0 ? 2 : random() % 3;
        const auto change = [&](CZip& zip) {
            CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&> names;
            CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&> newNames;
            names.Add(std::to_wstring(changed).c_str());
            newNames.Add(L"renamed");
            return (what != 0 || zip.DeleteFiles(names)) && (what != 1 || zip.RenameFiles(names, newNames)) &&
                   zip.AddNewFile(m_folder.WidePath("a.txt").c_str(), L"small", zipLevelStore);
        };
        std::string made[2];
        for (const bool copies : {true, false})
        {
            m_folder.WriteFile("x.zip", old);
            CZip zip;
            Open(zip);
            ASSERT_TRUE(change(zip));
            FailingFileSystem files;
            if (!copies)
                files.FailEach("copy", ENOTSUP);
            zip.Close(true);
            made[copies ? 1 : 0] = m_folder.ReadFile("x.zip");
            // 1 MB and more of what stays is copied at once, and only the rest is written.
            EXPECT_EQ(!files.Steps({"copy"}).empty(), what == 2 || changed >= 3) << changed;
            EXPECT_TRUE(what != 2 || (files.Steps({"write"}).size() < 6) == copies);
        }
        EXPECT_TRUE(made[0] == made[1]) << what << " of " << changed;
        EXPECT_TRUE(Shell(m_folder.Path().string(), "unzip -tq x.zip"));
    }
    CZip zip;
    Open(zip);
    ASSERT_TRUE(zip.AddNewFile(m_folder.WidePath("a.txt").c_str(), L"small2", zipLevelStore));
    m_watcher.m_cancelFrom = 1;
    const std::string before = m_folder.ReadFile("x.zip");
    zip.Close(false);
    EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kCancelled);
    EXPECT_TRUE(m_folder.ReadFile("x.zip") == before);
}

TEST_F(CZipArchive, SavingReachesTheDiskBeforeItReplaces)
{
    m_folder.WriteFile("x.zip.tmp", "the user's");
    CZip zip;
    Open(zip);
    ASSERT_TRUE(zip.AddNewFile(m_folder.WidePath("folder/b.bin").c_str(), L"c", zipLevelStore));
    zip.Discard();
    Open(zip);
    ASSERT_TRUE(zip.AddNewFile(m_folder.WidePath("folder/b.bin").c_str(), L"c", zipLevelStore));
    {
        const FailingFileSystem files;
        zip.Close(true);
        EXPECT_EQ(files.Steps({"sync", "rename", "sync folder"}),
                  (std::vector<std::string>{"sync", "rename", "sync folder"}));
    }
    EXPECT_EQ(m_watcher.m_action, XZipAction::kSaving);
    EXPECT_GE(m_watcher.m_total, m_large.size());
    EXPECT_EQ(m_watcher.m_processed, m_watcher.m_total);
    EXPECT_EQ(m_folder.ReadFile("x.zip.tmp"), "the user's");
    Open(zip);
    ASSERT_TRUE(zip.DeleteFiles(TextsOf({L"a.txt"})));
    zip.Close(true);
    EXPECT_EQ(m_watcher.m_processed, m_watcher.m_total);
}

TEST(CZip, AChangeThatIsHalfDoneIsNotSaved)
{
    const TempFolder folder;
    const std::string bytes = RawZip({{"a", "1"}, {"b", "2"}, {"c", "3"}});
    const std::wstring path = folder.WidePath("x.zip");
    Texts names = TextsOf({L"a", L"b", L"c"});
    const Texts newNames = TextsOf({L"b", L"c", L"d"});
    unsigned refused = 0;
    FailEachAllocation([&](FailingAllocations& failing) {
        folder.WriteFile("x.zip", bytes);
        CZip zip;
        ASSERT_TRUE(zip.Open(path.c_str(), zipOpenReadWrite, false, nullptr));
        bool isDone = false;
        EXPECT_TRUE(failing.Run([&] { isDone = zip.RenameFiles(names, newNames); }));
        const bool isDeleted = !isDone && zip.DeleteFiles(TextsOf({L"c"}));
        zip.Close(false);
        const bool isRefused = zip.GetLastFailure() != XZipFailure::kNone;
        EXPECT_FALSE((isDone || isDeleted) && isRefused);
        refused += isRefused ? 1 : 0;
        ASSERT_TRUE(zip.Open(path.c_str(), zipOpenReadOnly, false, nullptr));
        EXPECT_EQ(NamesOf(zip), isDone ? L"b|c|d" : isDeleted ? L"a|b" : L"a|b|c");
    });
    EXPECT_GT(refused, 0U);
}

TEST(CZip, LackOfMemoryThrowsNothing)
{
    const TempFolder folder;
    folder.WriteFile("x.zip",
                     RawZip({{"with a name that takes memory/", ""}, {"with another one that takes memory", "2"}}));
    const std::wstring path = folder.WidePath("x.zip");
    const std::wstring file = folder.WriteFile("a file whose name is too long for a text to hold without memory", "1");
    const auto fails = [](const CZip& zip) {
        return zip.GetLastFailure() == XZipFailure::kSystem && zip.GetLastSystemError() == 8;
    };
    FailEachAllocation([&](FailingAllocations& failing) {
        CZip zip;
        bool isOpen = false;
        int files = -1;
        bool areCounted = false;
        bool isAdded = false;
        EXPECT_TRUE(failing.Run([&] {
            isOpen = zip.Open(path.c_str(), zipOpenReadWrite, false, nullptr);
            if (!isOpen)
                return;
            files = zip.GetCount(true);
            areCounted = files == 1 || !fails(zip);
            zip.SetPassword(L"a password that a text has no room for in itself");
            isAdded = zip.AddNewFile(file.c_str(), false, zipLevelDefault);
        }));
        CZipFileInfo info;
        EXPECT_TRUE(!isAdded || (zip.GetFileInfo(info, 2) && info.GetEncryption() == XZipEncryption::kAes256));
        EXPECT_TRUE(isAdded || fails(zip))
            << isOpen << areCounted << static_cast<int>(zip.GetLastFailure()) << " " << zip.GetLastSystemError();
        EXPECT_TRUE(!isOpen || files == (areCounted ? 1 : 0));
        EXPECT_EQ(zip.IsClosed(), !isOpen);
        EXPECT_EQ(zip.GetArchivePath(), isOpen ? path.c_str() : L"");
        zip.Discard();
    });
}

/// How often the bytes stand in this process's memory. They are given with every bit inverted, as not to be found there.
unsigned CopiesInMemory(const std::string& inverted)
{
    std::ifstream maps("/proc/self/maps");
    const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    unsigned copies = 0;
    for (std::string line; std::getline(maps, line);)
    {
        unsigned long long start = 0;
        unsigned long long end = 0;
        char rights[5] = {};
        if (std::sscanf(line.c_str(), "%llx-%llx %4s", &start, &end, rights) != 3 || std::string(rights, 2) != "rw")
            continue;
        std::vector<char> bytes(static_cast<std::size_t>(end - start));
        const ssize_t got = pread(memory, bytes.data(), bytes.size(), static_cast<off_t>(start));
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        for (auto& byte : bytes)
            byte = static_cast<char>(~byte);
        const auto isFound = [&](auto from) {
            return std::search(from, bytes.end(), inverted.begin(), inverted.end());
        };
        for (auto at = isFound(bytes.begin()); at != bytes.end(); at = isFound(at + 1))
            ++copies;
        tev::Overwrite(bytes.data(), bytes.size());
    }
    close(memory);
    return copies;
}

TEST(CZip, PasswordsAreOverwritten)
{
    if (kIsSanitized)
        GTEST_SKIP() << "the memory is too large to be searched";
    const std::string inverted = "\x9e\x8f\x9e\x8c\x8c\x88\x90\x8d\x9b\xd2\xc8\xce"; // of 12 characters
    std::string invertedWide;
    wchar_t password[13] = {};
    for (std::size_t i = 0; i < inverted.size(); ++i)
    {
        password[i] = static_cast<unsigned char>(~inverted[i]);
        invertedWide += inverted[i] + std::string(sizeof(wchar_t) - 1, '\xFF');
    }
    EXPECT_GT(CopiesInMemory(invertedWide), 0U);
    const TempFolder folder;
    const std::wstring file = folder.WriteFile("a.txt", "contents");
    const std::wstring path = folder.WidePath("x.zip");
    for (const XZipEncryption encryption : {XZipEncryption::kAes256, XZipEncryption::kTraditional})
    {
        ASSERT_TRUE(ChangeArchive(path, zipCreate, [&](CZip& zip) {
            zip.SetPassword(password, encryption);
            return zip.AddNewFile(file.c_str(), L"a", zipLevelDefault);
        }));
        CZip zip;
        ASSERT_TRUE(zip.Open(path.c_str(), zipOpenReadOnly, false, nullptr));
        zip.SetPassword(password);
        EXPECT_EQ(zip.ExtractFile(0, folder.WidePath("out").c_str(), true, nullptr, false), zipExtracted);
        zip.SetPassword(L"x");
        zip.SetPassword(password);
        EXPECT_EQ(zip.TestFile(0), zipExtracted);
    }
    CXTString<wchar_t> text; // longer than what a string has room for in itself
    for (int i = 0; i < 4; ++i)
        text += password;
    const unsigned allocations = FailEachAllocation([&](FailingAllocations& failing) {
        failing.Run([&] { tev::Password made(text); });
        EXPECT_EQ(CopiesInMemory(inverted), 0U);
    });
    EXPECT_GT(allocations, 1U);
    tev::OverwriteText(text);
    tev::Overwrite(password, sizeof password);
    EXPECT_EQ(CopiesInMemory(inverted), 0U);
    EXPECT_EQ(CopiesInMemory(invertedWide), 0U);
}
} // namespace
