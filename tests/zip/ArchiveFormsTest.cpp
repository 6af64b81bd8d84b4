#include "tests/support/MiniZipFixture.h"
#include "tests/support/Places.h"
#include "tests/support/SplitZip.h"
#include "tests/support/ZipMemory.h"
#include "zip/CZip.h"

#include <sys/stat.h>

// Archives in forms that other programs write or read. Both classes give the same files.

namespace
{
using namespace tev::test;

constexpr wchar_t kPassword[] = L"secret";

class ArchiveForms : public MiniZip
{
protected:
    Contents ByMiniZip(const Text& archive)
    {
        CMiniZip zip;
        zip.SetPassword(kPassword);
        static_cast<void>(zip.ExtractZip(archive, Wide("mini"), false)); // what is there afterwards counts
        fs::create_directory(m_folder.Path("mini"));
        Contents files = Files("mini");
        m_skipped = SkippedBy(zip);
        return files;
    }
    Contents ByCZip(const Text& archive)
    {
        CZip zip;
        zip.SetPassword(kPassword);
        fs::remove_all(m_folder.Path("czip"));
        fs::create_directory(m_folder.Path("czip"));
        m_isOpened = zip.Open(archive, zipOpenReadWrite, false, nullptr);
        for (int i = 0; m_isOpened && i < zip.GetCount(false); ++i)
            zip.ExtractFile(static_cast<unsigned>(i), Wide("czip"), true, nullptr, false);
        zip.Discard();
        return Files("czip");
    }
    void ExpectInBoth(const std::string& bytes, const Contents& expected)
    {
        const Text archive = m_folder.WriteFile("form.zip", bytes).c_str();
        EXPECT_TRUE(ByMiniZip(archive) == expected);
        EXPECT_TRUE(ByCZip(archive) == expected);
    }
    std::string PackedBy(const std::string& command, const std::string& contents)
    {
        m_folder.WriteFile("contents", contents);
        Shell(command + " <" + Path("contents") + " >" + Path("packed"));
        return m_folder.ReadFile("packed");
    }

    std::vector<std::pair<std::wstring, CXSkipReason>> m_skipped;
    bool m_isOpened = false;
};

RawEntry Packed(const char* name, const std::string& contents, std::uint16_t method, const std::string& packed)
{
    RawEntry entry{name, contents};
    entry.method = method;
    entry.packed = packed;
    return entry;
}

TEST_F(ArchiveForms, MethodsOfOtherPrograms)
{
    const std::string text = Noise(70'000) + std::string(300'000, 'x');
    const std::string xz = PackedBy("xz -c", text);
    const std::string zstd = PackedBy("zstd -c", text);
    ExpectInBoth(
        RawZip({Packed("xz", text, 95, xz),
                Packed("zstd", text, 93, zstd),
                Packed("old zstd", text, 20, zstd),
                {"deflated", text, true},
                {"stored", text},
                Packed("bzip2", text, 12, PackedBy("bzip2 -c", text)),
                Packed("cut", text, 95, xz.substr(0, xz.size() / 2)),
                Packed("wrong", text, 93, xz),
                Packed("unknown", text, 77, text)}),
        {{"xz", text}, {"zstd", text}, {"old zstd", text}, {"deflated", text}, {"stored", text}, {"bzip2", text}});
    using R = CXSkipReason;
    EXPECT_THAT(m_skipped, testing::ElementsAre(std::pair(L"cut"s, R::kDamaged), std::pair(L"wrong"s, R::kDamaged),
                                                std::pair(L"unknown"s, R::kUnsupported)));
    // LZMA with a mark at its end, as another program writes it, and without one.
    Shell("python3 -c \"import zipfile; z = zipfile.ZipFile('" + Path("lzma.zip") +
          "', 'w', zipfile.ZIP_LZMA); z.write('" + Path("contents") +
          "', 'lzma'); z.writestr('empty', ''); z.close()\"");
    ExpectInBoth(m_folder.ReadFile("lzma.zip"), {{"lzma", text}, {"empty", ""}});
    std::string alone = PackedBy("xz --format=lzma -c", text);
    std::string lzma = "\x10\x02\x05\0"s + alone.substr(0, 5) + alone.substr(13);
    RawEntry marked = Packed("marked", text, 14, lzma);
    marked.flags |= 2;
    ExpectInBoth(RawZip({marked}), {{"marked", text}});
    lzma[8] = '\x7F'; // a window of 2 GB is not allocated for a small file
    marked.packed = lzma;
    ExpectInBoth(RawZip({marked}), {{"marked", text}});
}

/// Makes entries encrypted by AES those of the second form, which have no checksum, or of the first one with a wrong one.
std::string WithAesForm(std::string archive, char form)
{
    for (const auto& [mark, checksumAt] : {std::pair("PK\3\4"s, 14u), std::pair("PK\1\2"s, 16u)})
    {
        for (std::size_t at = archive.find(mark); at != archive.npos; at = archive.find(mark, at + 1))
        {
            archive.replace(at + checksumAt, 4, std::string(4, '\0'));
            archive[archive.find("\x01\x99\x07\x00"s, at) + 4] = form;
        }
    }
    return archive;
}

TEST_F(ArchiveForms, AesOfBothForms)
{
    const std::string small = "12345";
    const std::string large = Noise(100'000);
    for (const auto encryption : {tev::platform::ZipEncryption::Aes128, tev::platform::ZipEncryption::Aes256})
    {
        const auto engine = tev::platform::ZipEngine::Create();
        tev::platform::ZipError error;
        for (const auto& [name, contents, level] : {std::tuple("small", small, 0), std::tuple("large", large, 9)})
        {
            tev::platform::ZipAddition addition = MemoryAddition(name, contents);
            addition.level = level;
            addition.encryption = encryption;
            addition.password = tev::Password(kPassword);
            ASSERT_TRUE(engine->Add(addition, error));
        }
        MemoryTarget target;
        ASSERT_TRUE(engine->Save(target, nullptr, error));
        const std::string second = WithAesForm(target.m_saved, 2);
        ExpectInBoth(target.m_saved, {{"small", small}, {"large", large}});
        ExpectInBoth(second, {{"small", small}, {"large", large}});
        ExpectInBoth(WithAesForm(target.m_saved, 1), {}); // has a checksum, which is wrong
        std::string changed = second;
        changed[changed.find("PK\1\2") - 12] ^= 4; // of the last data; nothing but the code behind it shows that
        EXPECT_TRUE((ByMiniZip(m_folder.WriteFile("form.zip", changed).c_str()) == Contents{{"small", small}}));
    }
}

TEST_F(ArchiveForms, Bzip2EncryptedByAnotherProgram)
{
    std::string text;
    for (int i = 0; i < 1000; ++i)
        text += "packed by bzip2\n";
    fs::copy(fs::path(kSourceFolder) / "fuzz/corpus/ExtractZip/bzip2_aes.zip", m_folder.Path("7z.zip"));
    const std::string archive = m_folder.ReadFile("7z.zip");
    ExpectInBoth(archive, {{"text", text}, {"noise", Noise(3000)}});
    std::string changed = archive;
    changed[archive.find("text", 2000) + 80] ^= 1; // in its data
    ExpectInBoth(changed, {{"noise", Noise(3000)}});
}

TEST_F(ArchiveForms, DataThatReachesIntoTheDirectoryIsDamaged)
{
    RawEntry last{"last", "12345PK", false, 0x0800, 0, std::string(4, '\0')};
    last.packed = "12345";
    for (const unsigned beyond : {1u, 2u, 7u, 8u}) // no further than the name and the extra field are long
    {
        last.contents.resize(5);
        last.contents += std::string("PK\1\2\x14\3\x14\0", 8).substr(0, beyond);
        last.packedSize = 5 + beyond;
        ExpectInBoth(RawZip({{"first", "1"}, last}), {{"first", "1"}});
        EXPECT_THAT(m_skipped, testing::ElementsAre(std::pair(L"last"s, CXSkipReason::kDamaged)));
    }
}

TEST_F(ArchiveForms, DirectoriesThatDifferFromTheirEnd)
{
    const Contents both = {{"a", "first"}, {"b", "second"}};
    const std::string plain = RawZip({{"a", "first"}, {"b", "second"}});
    const std::string zip64 = SplitZip(plain, 1 << 20, true).Volumes().front();
    const std::size_t end = plain.size() - 22;
    const std::size_t directory = plain.find("PK\1\2");
    const std::string signature = "PK\5\5\5\0sign!"s;
    const auto with = [&](std::size_t at, std::uint64_t value, int size) {
        std::string bytes = plain;
        return bytes.replace(end + at, static_cast<std::size_t>(size), LittleEndianText(value, size));
    };
    const auto number = [](std::uint64_t value) { return LittleEndianText(value, 8); };
    const std::string end64 = "PK\6\6" + number(44) + std::string(12, '\0') + number(2) + number(2) +
                              number(end - directory) + number(directory) + "PK\6\7" + LittleEndianText(0, 4) +
                              number(end) + LittleEndianText(1, 4);
    std::string inBoth = plain;
    std::string signedPlain = plain;
    std::string cut = plain + "com";
    cut[plain.size() - 2] = 100;
    const std::string cases[] = {
        plain,
        "a program" + plain,
        zip64,
        "a program" + zip64,
        inBoth.insert(end, end64), // though the numbers fit
        signedPlain.insert(end, signature),
        with(8, 0x00010001, 4),           // counts one
        with(8, 0x00030003, 4),           // counts three
        with(12, end - directory + 5, 4), // is longer
        with(12, end - directory - 5, 4), // is shorter
        plain + "trailing",
        plain + "PK\5\6" + std::string(30, 'x'), // what looks like an end behind the end
        cut,
    };
    for (const std::string& bytes : cases)
    {
        SCOPED_TRACE(&bytes - cases);
        ExpectInBoth(bytes, both);
    }
    std::string damaged = plain; // a header that is none
    damaged[plain.rfind("PK\1\2")] ^= 1;
    ExpectInBoth(damaged, {});
    EXPECT_FALSE(m_isOpened);
}

TEST_F(ArchiveForms, OneEntryThatIsWrongDoesNotHideTheOthers)
{
    RawEntry overlapping{"overlapping", "first"};
    overlapping.shares = 0;
    RawEntry beyond{"beyond", "x"};
    beyond.packedSize = 1'000'000;
    RawEntry onDos{"folder\\file", "dos"};
    onDos.host = 0;
    ExpectInBoth(RawZip({{"a", "first"},
                         {"", "no name"},
                         overlapping,
                         beyond,
                         {"con", "2"},
                         {"/abs", "3"},
                         {"A", "4"},
                         {"back\\slash", "unix"},
                         {"n\0l"s, "5"},
                         onDos}),
                 {{"a", "first"}, {"con", "2"}, {"abs", "3"}, {"A", "4"}, {"folder/file", "dos"}});
    using R = CXSkipReason;
    EXPECT_THAT(m_skipped,
                testing::ElementsAre(std::pair(L""s, R::kUnsafeName), std::pair(L"overlapping"s, R::kDamaged),
                                     std::pair(L"beyond"s, R::kDamaged), std::pair(L"back\\slash"s, R::kUnsafeName),
                                     std::pair(L"n\xFFFDl"s, R::kUnsafeName)));
}

TEST_F(ArchiveForms, RatioIsOfTheBytesThatWereNeeded)
{
    const std::string zeros(1'000'000, '\0');
    const Text archive =
        WriteZip({Packed("padded", zeros, 8, RawDeflate(zeros) + Noise(100'000)), {"honest", Noise(5000), true}});
    CMiniZip mini;
    mini.SetLimits({1ull << 40, 100});
    EXPECT_TRUE(mini.ExtractZip(archive, Wide("mini"), true));
    EXPECT_THAT(SkippedBy(mini), testing::ElementsAre(std::pair(L"padded"s, CXSkipReason::kTooLarge)));
    CZip zip;
    ASSERT_TRUE(zip.Open(archive, zipOpenReadOnly, false, nullptr));
    zip.SetLimits({1ull << 40, 100});
    EXPECT_EQ(zip.ExtractFile(0, Wide("czip"), true, nullptr, false), zipFailed);
    EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kTooLarge);
    EXPECT_FALSE(m_folder.Exists("mini/padded") || m_folder.Exists("czip/padded"));
    mini.SetLimits({1ull << 40, 1100});
    EXPECT_TRUE(mini.ExtractZip(archive, Wide("mini"), true));
    EXPECT_TRUE(mini.GetSkippedEntries().empty());
}

TEST_F(ArchiveForms, PermissionsAreThoseOfTheEntryLessTheUmask)
{
    const auto entry = [](const char* name, std::uint32_t mode, std::uint8_t host) {
        RawEntry made{name, "x"};
        made.attributes = mode << 16;
        made.host = host;
        return made;
    };
    const Text archive = WriteZip({entry("program", 0100755, 3), entry("key", 0100600, 3), entry("set", 0106755, 3),
                                   entry("none", 0100000, 3), entry("open", 0777, 19), entry("unknown", 0, 3),
                                   entry("dos", 0100755, 0)});
    const std::map<std::string, unsigned> expected = {{"program", 0750}, {"key", 0600},  {"set", 0750},
                                                      {"none", 0600},    {"open", 0750}, {"unknown", 0640},
                                                      {"dos", 0640}};
    const mode_t before = umask(027);
    for (const bool isNew : {true, false})
    {
        CMiniZip mini;
        EXPECT_TRUE(mini.ExtractZip(archive, Wide("mini"), true)) << isNew;
        ByCZip(archive);
        for (const char* const folder : {"mini", "czip"})
        {
            std::map<std::string, unsigned> modes;
            for (const auto& file : fs::directory_iterator(m_folder.Path(folder)))
            {
                struct stat status = {};
                stat(file.path().c_str(), &status);
                modes[file.path().filename().string()] = status.st_mode & 07777;
            }
            EXPECT_EQ(modes, expected) << folder;
        }
    }
    umask(before);
}
} // namespace
