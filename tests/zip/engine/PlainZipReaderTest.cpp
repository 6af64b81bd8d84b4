#include "zip/engine/PlainZipReader.h"

#include "tests/support/MiniZipFixture.h"

namespace
{
using namespace tev::test;
using tev::Password;
using tev::platform::PlainZipEntry;
using tev::platform::PlainZipReader;
using tev::platform::ZipEntryKind;
using tev::platform::ZipError;
using tev::platform::ZipFailure;

/// Both ways to the data of plain entries.
class PlainZip : public MiniZip, public testing::WithParamInterface<PlainZipReader::By>
{
protected:
    std::unique_ptr<PlainZipReader> Open(const wchar_t* password, const Text& path)
    {
        ZipError error;
        return PlainZipReader::Open(path, Password(password), error, GetParam());
    }
    static std::string Read(PlainZipReader& reader, std::uint64_t index, ZipFailure expected = ZipFailure::None)
    {
        std::string contents;
        const auto append = [&](const void* bytes, std::size_t count, std::uint64_t) {
            contents.append(static_cast<const char*>(bytes), count);
            return true;
        };
        EXPECT_EQ(reader.Read(index, append).failure, expected) << index;
        return contents;
    }
};

INSTANTIATE_TEST_SUITE_P(Readers, PlainZip, testing::Values(PlainZipReader::By::Miniz, PlainZipReader::By::Ourselves),
                         [](const auto& by) { return by.param == PlainZipReader::By::Miniz ? "Miniz" : "Ourselves"; });

TEST_P(PlainZip, ReadsWhatOtherProgramsMade)
{
    const std::string large = Noise(1'000'000) + std::string(3'000'000, 'x');
    m_folder.WriteFile("in/text.txt", "text");
    m_folder.WriteFile("in/sub/\xC3\xA9\xE2\x98\x83.bin", large);
    m_folder.WriteFile("in/empty", "");
    fs::create_symlink("text.txt", m_folder.Path("in/link"));
    Shell("touch -d '2001-09-09 01:46:40 UTC' " + Path("in/text.txt"));
    Shell("cd " + Path("in") +
          " && LC_ALL=C.UTF-8 zip -r -y ../zip.zip . && LC_ALL=C.UTF-8 bsdtar --format zip -cf ../bsd.zip *");
    for (const char* archive : {"zip.zip", "bsd.zip"})
    {
        const auto first = Open(L"", Wide(archive));
        ASSERT_NE(first, nullptr) << archive;
        const auto reader = first->Another();
        Contents files;
        for (std::uint64_t i = 0; i < reader->Count(); ++i)
        {
            PlainZipEntry entry;
            ASSERT_TRUE(reader->GetEntry(i, entry)) << i;
            EXPECT_EQ(entry.kind == ZipEntryKind::Folder, entry.name.back() == '/');
            EXPECT_EQ(entry.kind == ZipEntryKind::Special, entry.name == "link");
            if (entry.kind == ZipEntryKind::File)
            {
                files[entry.name] = Read(*reader, i);
                EXPECT_EQ(files[entry.name].size(), entry.size);
                EXPECT_TRUE(entry.isReadable);
            }
            EXPECT_EQ(entry.lastWrite == 1000000000, entry.name == "text.txt") << entry.name;
        }
        EXPECT_THAT(files, testing::Contains(testing::Key("sub/\xC3\xA9\xE2\x98\x83.bin"))) << archive;
        EXPECT_TRUE((files == Contents{{"text.txt", "text"}, {"sub/\xC3\xA9\xE2\x98\x83.bin", large}, {"empty", ""}}));
    }
}

TEST_P(PlainZip, ReportsWhatIsWrong)
{
    const std::string text(100000, 'x');
    RawEntry damaged{"a", text, true};
    damaged.checksum = 1;
    RawEntry unknown{"b", text};
    unknown.method = 77;
    const auto reader = Open(L"", WriteZip({damaged, unknown, {"c", text, true}}));
    ASSERT_NE(reader, nullptr);
    Read(*reader, 0, ZipFailure::Damaged);
    EXPECT_EQ(Read(*reader, 1, ZipFailure::Unsupported), "");
    std::size_t taken = 0;
    const auto stop = [&](const void*, std::size_t count, std::uint64_t) {
        taken += count;
        return false;
    };
    EXPECT_EQ(reader->Read(2, stop).failure, ZipFailure::Cancelled);
    EXPECT_LE(taken, text.size());
    const auto fail = [](const void*, std::size_t, std::uint64_t) -> bool { throw std::runtime_error("mine"); };
    EXPECT_THROW(static_cast<void>(reader->Read(2, fail)), std::runtime_error);
    EXPECT_TRUE(Read(*reader, 2) == text) << "begins anew";
    EXPECT_EQ(Open(L"", Wide("none")), nullptr);
    EXPECT_EQ(Open(L"", Wide("")), nullptr);
    const std::string archive = RawZip({{"a", text, true}, {"b", text}});
    for (const std::size_t size : {std::size_t{0}, std::size_t{10}, archive.size() / 2, archive.size() - 1})
        EXPECT_EQ(Open(L"", m_folder.WriteFile("cut", archive.substr(0, size)).c_str()), nullptr) << size;
}

TEST_P(PlainZip, EncryptedEntriesNeedThePassword)
{
    m_folder.WriteFile("in/secret", Noise(5000));
    m_folder.WriteFile("in/plain", "plain");
    Shell("cd " + Path("in") + " && zip -P right ../secret.zip secret && zip ../secret.zip plain");
    const auto reader = Open(L"right", Wide("secret.zip"));
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(Read(*reader, 0), Noise(5000));
    EXPECT_EQ(Read(*reader, 1), "plain");
    Read(*Open(L"", Wide("secret.zip")), 0, ZipFailure::PasswordNeeded);
    // One byte of the header checks the password: one of 256 wrong ones passes there.
    const auto ignore = [](const void*, std::size_t, std::uint64_t) { return true; };
    EXPECT_THAT(Open(L"wrong", Wide("secret.zip"))->Read(0, ignore).failure,
                testing::AnyOf(ZipFailure::WrongPassword, ZipFailure::WrongPasswordOrDamaged));

    CMiniZip zip;
    EXPECT_TRUE(zip.ExtractZip(Wide("secret.zip"), Wide("out"), false));
    ASSERT_EQ(zip.GetSkippedEntries().size(), 1u);
    EXPECT_EQ(zip.GetSkippedEntries()[0].m_reason, CXSkipReason::kWrongPassword);
    zip.SetPassword(L"right");
    EXPECT_TRUE(zip.ExtractZip(Wide("secret.zip"), Wide("out"), false));
    EXPECT_TRUE((Files("out") == Contents{{"secret", Noise(5000)}, {"plain", "plain"}}));
}

TEST_P(PlainZip, ManyEntriesNeedTheLongForm)
{
    // More than the 16-bit count can hold, written by another program.
    Shell("python3 -c \"import zipfile; z = zipfile.ZipFile('" + Path("many.zip") +
          "', 'w'); [z.writestr(str(i), str(i)) for i in range(70000)]; z.close()\"");
    const auto reader = Open(L"", Wide("many.zip"));
    ASSERT_NE(reader, nullptr);
    ASSERT_EQ(reader->Count(), 70000u);
    PlainZipEntry entry;
    EXPECT_TRUE(reader->GetEntry(69999, entry));
    EXPECT_EQ(entry.name, "69999");
    EXPECT_EQ(Read(*reader, 69999), "69999");
}

/// An archive with a hole: a stored entry of 5 GiB of zeros, and a small one behind it.
Text WriteSparseZip(const TempFolder& folder)
{
    constexpr std::uint64_t kLarge = std::uint64_t{5} << 30;
    const auto n = [](std::uint64_t value, int size) { return LittleEndianText(value, size); };
    const std::uint32_t checksum = crc32_z(0, reinterpret_cast<const Bytef*>("small"), 5);
    const auto fields = [&](const std::string& sizes, const std::string& name, std::uint64_t extraSize) {
        return n(45, 2) + n(0x0800, 2) + n(0, 2) + n(0x5A210000, 4) + sizes + n(name.size(), 2) + n(extraSize, 2);
    };
    const std::string unknown = n(0xFFFFFFFF, 4);
    const std::string small = n(checksum, 4) + n(5, 4) + n(5, 4);
    const std::string first = "PK\3\4" + fields(n(0, 4) + unknown + unknown, "large", 20) + "large" + n(1, 2) +
                              n(16, 2) + n(kLarge, 8) + n(kLarge, 8);
    const std::uint64_t secondAt = first.size() + kLarge;
    const std::string second = "PK\3\4" + fields(small, "small", 0) + "small" + "small";
    const auto central = [&](const std::string& start, const std::string& offset) {
        return "PK\1\2" + n(0x032D, 2) + start + std::string(10, '\0') + offset;
    };
    const std::string directory = central(fields(n(0, 4) + unknown + unknown, "large", 20), n(0, 4)) + "large" +
                                  n(1, 2) + n(16, 2) + n(kLarge, 8) + n(kLarge, 8) +
                                  central(fields(small, "small", 12), unknown) + "small" + n(1, 2) + n(8, 2) +
                                  n(secondAt, 8);
    const std::uint64_t directoryAt = secondAt + second.size();
    const std::string end = "PK\6\6" + n(44, 8) + n(45, 2) + n(45, 2) + n(0, 8) + n(2, 8) + n(2, 8) +
                            n(directory.size(), 8) + n(directoryAt, 8) + "PK\6\7" + n(0, 4) +
                            n(directoryAt + directory.size(), 8) + n(1, 4) + "PK\5\6" + n(0, 4) + n(2, 2) + n(2, 2) +
                            unknown + unknown + n(0, 2);
    const std::wstring path = folder.WriteFile("sparse.zip", first);
    std::ofstream file(folder.Path("sparse.zip"), std::ios::binary | std::ios::in);
    file.seekp(static_cast<std::streamoff>(secondAt));
    file << second << directory << end;
    return path.c_str();
}

TEST_P(PlainZip, EntriesAboveFourGigabytes)
{
    const Text archive = WriteSparseZip(m_folder);
    const auto reader = Open(L"", archive);
    ASSERT_NE(reader, nullptr);
    ASSERT_EQ(reader->Count(), 2u);
    PlainZipEntry entry;
    ASSERT_TRUE(reader->GetEntry(0, entry));
    EXPECT_EQ(entry.size, std::uint64_t{5} << 30);
    const auto stop = [](const void* bytes, std::size_t count, std::uint64_t) {
        EXPECT_TRUE(count > 0 && *static_cast<const char*>(bytes) == 0);
        return false;
    };
    EXPECT_EQ(reader->Read(0, stop).failure, ZipFailure::Cancelled);
    EXPECT_EQ(Read(*reader, 1), "small");

    CMiniZip zip;
    zip.SetLimits({std::uint64_t{1} << 30, 100});
    EXPECT_TRUE(zip.ExtractZip(archive, Wide("out"), false));
    EXPECT_EQ(Files("out"), (Contents{{"small", "small"}}));
    ASSERT_EQ(zip.GetSkippedEntries().size(), 1u);
    EXPECT_EQ(zip.GetSkippedEntries()[0].m_reason, CXSkipReason::kTooLarge);
}
} // namespace