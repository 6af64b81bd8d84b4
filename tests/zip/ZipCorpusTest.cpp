#include "tests/support/ZipCorpus.h"
#include "tests/support/ZipTools.h"
#include "zip/CMiniZip.h"

namespace
{
using namespace tev::test;
using Files = std::map<std::string, std::string>;

constexpr const char* kCorpusPassword = "foofoofoo";

/// Intended differences.
struct Difference
{
    const char* m_archive;
    const char* m_reason;
};

constexpr const char* kDirectoryCounts = "what the directory says counts, and not the headers before the data";
constexpr const char* kCodePage437 = "the others write names of code page 437 in the terminal's";
constexpr Difference kFromOthers[] = {
    {"incons-central-compression-method.zip", kDirectoryCounts},
    {"incons-ef-local-dupe-zip64-v1.zip", kDirectoryCounts},
    {"incons-local-compression-method.zip", kDirectoryCounts},
    {"incons-local-compsize-smaller.zip", kDirectoryCounts},
    {"incons-filename-nul-byte.zip", "no file has such a name"},
    {"test-cp437.zip", kCodePage437},
    {"absolute path C xt.zip", "a drive is cut off"},
    {"test-cp437-comment-utf-8.zip", kCodePage437},
    {"testfile-cp437.zip", kCodePage437},
    {"unsupported compression method 1.zip", "shrinking is not supported"},
};
constexpr Difference kFromMiniZip[] = {
    {"filename_duplicate.zip", "the second one replaces the first one where each is extracted by itself"},
};

template <std::size_t size>
bool IsDifferent(const Difference (&differences)[size], const std::string& archive)
{
    return std::any_of(std::begin(differences), std::end(differences),
                       [&](const Difference& difference) { return archive == difference.m_archive; });
}

/// What two other programs make of an archive.
struct Peers
{
    Peers(const TempFolder& folder, const std::filesystem::path& archive)
    {
        const std::string name = "'" + archive.string() + "' </dev/null";
        const std::string root = folder.Path().string();
        EXPECT_TRUE(Shell(root, "mkdir unzip bsdtar"));
        const bool unzipDone =
            Shell(root + "/unzip", std::string("LC_ALL=C.UTF-8 unzip -q -o -P ") + kCorpusPassword + " " + name);
        const bool bsdtarDone = Shell(root + "/bsdtar", std::string("LC_ALL=C.UTF-8 bsdtar --passphrase ") +
                                                            kCorpusPassword + " -xf " + name);
        m_unzip = FilesBeneath(folder.Path("unzip"));
        m_bsdtar = FilesBeneath(folder.Path("bsdtar"));
        m_areSure = unzipDone && bsdtarDone && m_unzip == m_bsdtar;
    }

    bool Have(const Files::value_type& file) const
    {
        const auto unzip = m_unzip.find(file.first);
        const auto bsdtar = m_bsdtar.find(file.first);
        return (unzip != m_unzip.end() && unzip->second == file.second) ||
               (bsdtar != m_bsdtar.end() && bsdtar->second == file.second);
    }

    Files m_unzip;
    Files m_bsdtar;
    bool m_areSure; ///< both saw nothing wrong, and agree
};

Files ExtractedByCZip(const TempFolder& folder, const std::filesystem::path& archive)
{
    CZip zip;
    zip.SetPassword(CXTString<wchar_t>(kCorpusPassword));
    if (zip.Open(archive.wstring().c_str(), zipOpenReadOnly, false, nullptr))
    {
        for (int i = 0; i < zip.GetCount(false); ++i)
            zip.ExtractFile(static_cast<unsigned>(i), folder.WidePath("zip").c_str(), true, nullptr, false);
    }
    return FilesBeneath(folder.Path("zip"));
}

Files ExtractedByMiniZip(const TempFolder& folder, const std::filesystem::path& archive)
{
    CMiniZip zip;
    zip.SetPassword(CXTString<wchar_t>(kCorpusPassword));
    static_cast<void>(zip.ExtractZip(archive.wstring().c_str(), folder.WidePath("mini").c_str(),
                                     true)); // what is there afterwards counts
    return FilesBeneath(folder.Path("mini"));
}

TEST(ZipCorpus, PublicArchivesGiveWhatOtherProgramsGive)
{
    const std::vector<std::filesystem::path> corpus = ZipCorpus();
    if (corpus.empty())
        GTEST_SKIP() << "../shared/corpora is not there";
    for (const std::filesystem::path& archive : corpus)
    {
        const std::string name = archive.filename().string();
        SCOPED_TRACE(name);
        const TempFolder folder;
        const Peers peers(folder, archive);
        const Files ours = ExtractedByCZip(folder, archive);
        const bool isAsWithOthers =
            std::all_of(ours.begin(), ours.end(), [&](const auto& file) { return peers.Have(file); }) &&
            (!peers.m_areSure || ours == peers.m_unzip);
        EXPECT_EQ(isAsWithOthers, !IsDifferent(kFromOthers, name));
        EXPECT_EQ(ExtractedByMiniZip(folder, archive) == ours, !IsDifferent(kFromMiniZip, name));
    }
}
} // namespace
