#include "zip/CMiniZip.h"

#include "objects/LastFailure.h"
#include "tests/support/MiniZipFixture.h"

namespace
{
using namespace tev::test;

TEST_F(MiniZip, RecognisesStreamsByTheirFirstBytes)
{
    const std::tuple<std::string, bool, bool> cases[] = {
        {"", false, false},
        {"\x1F", false, false},
        {"\x1F\x8B", true, false},
        {"\x1F\x9D rest", false, false},
        {"\x28\xB5\x2F", false, false},
        {"\x28\xB5\x2F\xFD", false, true},
        {"\xFD\x2F\xB5\x28 rest", false, true},
        {"\xFD\x2F\xB5\xFD", false, false},
    };
    for (const auto& [bytes, isGZip, isZStd] : cases)
    {
        const Text path = m_folder.WriteFile("model.zip", bytes).c_str();
        EXPECT_EQ(CMiniZip::IsGZipFile(path), isGZip) << bytes;
        EXPECT_EQ(CMiniZip::IsZStdFile(path), isZStd) << bytes;
        EXPECT_EQ(CMiniZip::IsZFile(path), isGZip || isZStd) << bytes;
        CMiniZip zip;
        EXPECT_EQ(zip.ExtractZFile(path, Wide("out"), false), isGZip) << "a frame is needed";
        EXPECT_FALSE(!isZStd && zip.ExtractZStd(path, Wide("out"), false));
        EXPECT_FALSE(!isGZip && zip.ExtractGZip(path, Wide("out"), false));
    }
    EXPECT_FALSE(CMiniZip::IsZFile(Wide("none")));
    EXPECT_FALSE(CMiniZip::IsZFile(Wide("")));
}

TEST_F(MiniZip, AnyKindIsUnpackedIntoATemporaryFolder)
{
    UseOwnTemporaryFolder();
    const std::string text = Noise(5000);
    m_folder.WriteFile("wheel.obj", text);
    Shell("cd " + Path("") +
          " && gzip -k wheel.obj && zstd -q wheel.obj && cp wheel.obj.gz ...gz && cp wheel.obj.gz wheel");
    const std::string archive = RawZip({{"folder/wheel.obj", text}});
    m_folder.WriteFile("parts", archive);
    m_folder.WriteFile("behind", "a program" + archive);
    m_folder.WriteFile("empty", RawZip({}));
    m_folder.WriteFile("cut.gz", m_folder.ReadFile("wheel.obj.gz").substr(0, 12));
    const struct
    {
        const char* m_source;
        bool m_isPacked;
        const char* m_file; ///< beneath the temporary folder; null for a failure
        CXExtractionFailure m_failure = CXExtractionFailure::kNone;
    } rows[] = {
        {"wheel.obj.gz", true, "wheel.obj"},
        {"wheel.obj.zst", true, "wheel.obj"},
        {"wheel", true, "wheel"},
        {"...gz", true, "file"},
        {"parts", true, "folder/wheel.obj"},
        {"behind", false, "folder/wheel.obj"},
        {"empty", true, nullptr, CXExtractionFailure::kNothingInIt},
        {"cut.gz", true, nullptr, CXExtractionFailure::kDamaged},
        {"wheel.obj", false, nullptr, CXExtractionFailure::kNoArchive},
        {"none", false, nullptr, CXExtractionFailure::kNotFound},
    };
    CMiniZip zip;
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.m_source);
        EXPECT_EQ(CMiniZip::IsPackedFile(Wide(row.m_source)), row.m_isPacked);
        EXPECT_EQ(zip.ExtractAny(Wide(row.m_source)), row.m_file != nullptr);
        EXPECT_EQ(zip.GetFailure(), row.m_failure);
        const Contents files = Files("tmp");
        EXPECT_EQ(TemporaryCount(), row.m_file != nullptr ? 1 : 0) << "that of the last one is removed";
        ASSERT_EQ(files.size(), row.m_file != nullptr ? 1U : 0U);
        if (row.m_file == nullptr)
        {
            EXPECT_STREQ(XLastFailure().GetOperation(), "CMiniZip::ExtractAny");
            continue;
        }
        EXPECT_EQ(Listed(zip), std::vector<std::string>{"tmp/" + files.begin()->first});
        EXPECT_EQ(files.begin()->first.substr(files.begin()->first.find('/') + 1), row.m_file);
        EXPECT_TRUE(files.begin()->second == text);
    }
    ASSERT_TRUE(zip.ExtractAny(Wide("wheel")));
    zip.KeepFiles();
    zip.Clean();
    EXPECT_EQ(TemporaryCount(), 1);
}

/// What comes out of a stream of these bytes; nothing when that fails.
class MiniZipStream : public MiniZip
{
protected:
    std::optional<std::string> Unpack(const std::string& bytes)
    {
        const Text source = m_folder.WriteFile("source", bytes).c_str();
        CMiniZip zip;
        m_isDone = zip.ExtractZFile(source, Wide("target"), false);
        const bool isThere = m_folder.Exists("target");
        EXPECT_EQ(zip.GetExtractedFiles().GetSize(), isThere ? 1 : 0) << "nothing half is left over";
        m_damage = zip.GetDamage();
        EXPECT_EQ(zip.GetFailure() == CXExtractionFailure::kDamaged, m_damage != CXStreamDamage::kNone);
        return isThere ? std::optional(m_folder.ReadFile("target")) : std::nullopt;
    }
    bool m_isDone = false;
    CXStreamDamage m_damage = CXStreamDamage::kNone;

    std::string Packed(const std::string& command, const std::string& contents)
    {
        m_folder.WriteFile("contents", contents);
        Shell(command + " <" + Path("contents") + " >" + Path("packed"));
        return m_folder.ReadFile("packed");
    }
};

TEST_F(MiniZipStream, GzipMembersGarbageAndDamage)
{
    const std::string a = Noise(300000);
    const std::string b = "second";
    const std::string packedA = Packed("gzip", a);
    const std::string packedB = Packed("gzip -9 -N", b);
    EXPECT_TRUE(Unpack(packedA) == a);
    EXPECT_TRUE(Unpack(Packed("gzip", "")) == "");
    EXPECT_TRUE(Unpack(packedA + packedB + packedA) == a + b + a);
    EXPECT_TRUE(Unpack(packedA + packedB + "\x1F") == a + b);
    EXPECT_TRUE(Unpack(packedB + std::string(1000, '\0')) == b);
    EXPECT_TRUE(Unpack(packedB + "garbage") == b);
    EXPECT_TRUE(Unpack(packedB + "\x1F\x8Bgarbage") == b);
    // Cut off or damaged: what came before.
    const std::optional<std::string> half = Unpack(packedA.substr(0, packedA.size() / 2));
    ASSERT_TRUE(half);
    EXPECT_GT(half->size(), a.size() / 3);
    EXPECT_TRUE(*half == a.substr(0, half->size()));
    std::string wrongChecksum = packedB;
    wrongChecksum[wrongChecksum.size() - 8] ^= 1;
    EXPECT_TRUE(Unpack(wrongChecksum) == b);
    EXPECT_TRUE(Unpack(packedA + packedB.substr(0, 5)) == a);
    EXPECT_EQ(m_damage, CXStreamDamage::kTruncated);
}

TEST_F(MiniZipStream, DamageOfAGzipFileIsReported)
{
    const std::string packed = Packed("gzip", "contents");
    std::string noData = packed;
    noData[10] = '\x07'; // a block of a kind that does not exist
    const auto changed = [&](std::size_t fromEnd) {
        std::string bytes = packed;
        bytes[bytes.size() - fromEnd] ^= 1;
        return bytes;
    };
    using D = CXStreamDamage;
    const struct
    {
        std::string m_bytes;
        D m_damage;
        const char* m_contents; ///< what stands in the destination afterwards
    } cases[] = {
        {packed, D::kNone, "contents"},
        {Packed("gzip", ""), D::kNone, ""}, // a valid file of nothing replaces
        {changed(8), D::kChecksum, "contents"},
        {changed(4), D::kLength, "contents"},
        {packed.substr(0, packed.size() - 3), D::kTruncated, "contents"},
        {packed.substr(0, 9), D::kTruncated, "old"}, // nothing comes out of these
        {"\x1F\x8B"s, D::kTruncated, "old"},
        {"\x1F\x8B\x09rest and more"s, D::kMethod, "old"},
        {"\x1F\x8B\x08\xE0rest and more"s, D::kHeader, "old"},
        {noData, D::kData, "old"},
    };
    for (const auto& [bytes, damage, contents] : cases)
    {
        SCOPED_TRACE(&bytes - &cases[0].m_bytes);
        const Text source = m_folder.WriteFile("source", bytes).c_str();
        m_folder.WriteFile("target", "old");
        CMiniZip zip;
        EXPECT_TRUE(zip.ExtractGZip(source, Wide("target"), true)) << "also when it is damaged";
        EXPECT_EQ(zip.GetDamage(), damage);
        EXPECT_EQ(zip.GetFailure(), damage == D::kNone ? CXExtractionFailure::kNone : CXExtractionFailure::kDamaged);
        EXPECT_EQ(m_folder.ReadFile("target"), contents);
        EXPECT_EQ(zip.GetExtractedFiles().IsEmpty(), contents == "old"s);
    }
}

TEST_F(MiniZipStream, ZstdFramesSkippableOnesAndDamage)
{
    const std::string a = Noise(500000);
    const std::string text(1'000'000, 'x');
    const std::string packedA = Packed("zstd -c --check", a);
    const std::string packedText = Packed("zstd -19 -c", text);
    const std::string skippable = "\x50\x2A\x4D\x18\x03\x00\x00\x00"
                                  "abc"s;
    EXPECT_TRUE(Unpack(packedA) == a);
    EXPECT_TRUE(Unpack(Packed("zstd -c", "")) == "");
    EXPECT_TRUE(Unpack(packedText + skippable + packedA + packedText + skippable) == text + a + text);
    EXPECT_TRUE(Unpack(packedA + "garbage") == std::nullopt);
    EXPECT_EQ(Unpack(packedA.substr(0, packedA.size() - 1)), std::nullopt);
    EXPECT_TRUE(Unpack(packedText + packedA.substr(0, 5)) == std::nullopt);
    std::string damaged = packedA;
    damaged[damaged.size() - 1] ^= 1; // the checksum
    EXPECT_TRUE(Unpack(damaged) == std::nullopt);
    EXPECT_TRUE(Unpack("\xFD\x2F\xB5\x28" + packedA.substr(4)) == std::nullopt);
    // A frame without data whose header asks for a window of 2 GiB, and one of 128 MiB.
    EXPECT_TRUE(Unpack("\x28\xB5\x2F\xFD\x00\xA8\x01\x00\x00"s) == std::nullopt);
    EXPECT_TRUE(Unpack("\x28\xB5\x2F\xFD\x00\x88\x01\x00\x00"s) == "");
}

TEST_F(MiniZipStream, DestinationIsReplacedOnlyByACompleteFile)
{
    const std::string packed = Packed("zstd -c", "new");
    m_folder.WriteFile("whole", packed);
    m_folder.WriteFile("cut", packed.substr(0, packed.size() - 2));
    m_folder.WriteFile("real", "old");
    fs::create_symlink("real", m_folder.Path("link"));
    CMiniZip zip;
    EXPECT_FALSE(zip.ExtractZStd(Wide("cut"), Wide("link"), false));
    EXPECT_EQ(m_folder.ReadFile("real"), "old");
    EXPECT_TRUE(zip.ExtractZStd(Wide("whole"), Wide("link"), false));
    EXPECT_EQ(m_folder.ReadFile("real"), "new") << "the link leads to it as before";
    EXPECT_EQ(zip.GetExtractedFiles()[0], Wide("link"));
    EXPECT_FALSE(zip.ExtractZStd(Wide("cut"), Wide("link"), true)) << "cleans first";
    EXPECT_FALSE(m_folder.Exists("real"));
    EXPECT_FALSE(zip.ExtractZStd(Wide("whole"), Wide("whole"), false));
    EXPECT_EQ(m_folder.ReadFile("whole"), packed);
}
} // namespace
