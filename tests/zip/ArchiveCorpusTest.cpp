#include "tests/support/Places.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Testing.h"
#include "zip/CMiniZip.h"

#include <sys/wait.h>

// Valid and damaged archives from other projects, compared with the output of other programs.

namespace
{
using namespace tev::test;
using Files = std::map<std::string, std::string>;

fs::path Corpus(const char* kind)
{
    return fs::path(kSourceFolder) / "../shared/corpora" / kind;
}

struct Outcome
{
    int m_exitCode;
    Files m_files;
};

/// What a command, in which "@" is the file and which runs in an empty folder, makes of a file.
Outcome RunPeer(const std::string& command, const fs::path& file)
{
    TempFolder folder;
    std::string quoted = "'" + file.string() + "'"; // no name in the corpora has a quote
    std::string line = command;
    line.replace(line.find('@'), 1, quoted);
    const int status = std::system(
        ("export LC_ALL=C.UTF-8; cd " + folder.Path().string() + " && (" + line + ") </dev/null >/dev/null 2>&1")
            .c_str());
    return {WEXITSTATUS(status), FilesBeneath(folder.Path(), false)};
}

CXTString<wchar_t> Wide(const fs::path& path)
{
    const std::u32string text = path.u32string();
    return std::wstring(text.begin(), text.end()).c_str();
}

/// Where this library differs on purpose.
const std::map<std::string, const char*> kDifferences = {
    // Both peers are content, and give something else.
    {"filename_duplicate.zip", "of two entries of one name the first one counts, not the last one"},
    {"incons-central-compression-method.zip", "the directory counts, which does not fit the data"},
    {"incons-filename-nul-byte.zip", "a name with a NUL is not cut off"},
    {"testfile-cp437.zip", "code page 437 becomes UTF-8"},
    {"unsupported compression method 1.zip", "shrinking was given up in 1990"},
    // A peer complains, and neither gives what comes out here.
    {"incons-ef-local-dupe-zip64-v1.zip", "the directory counts, which fits the data"},
    {"incons-local-compression-method.zip", "the directory counts, which fits the data"},
    {"incons-local-compsize-smaller.zip", "the directory counts, which fits the data"},
    {"test-cp437.zip", "code page 437 becomes UTF-8"},
    {"test-cp437-comment-utf-8.zip", "code page 437 becomes UTF-8"},
    {"absolute path C xt.zip", "a drive is cut off"},
};

TEST(ArchiveCorpus, ZipArchivesGiveWhatUnzipAndBsdtarGive)
{
    if (!fs::exists(Corpus("zip")))
        GTEST_SKIP() << Corpus("zip") << " is not there";
    int archives = 0;
    for (const auto& entry : fs::recursive_directory_iterator(Corpus("zip")))
    {
        const std::string name = entry.path().filename().string();
        if (entry.path().extension() != ".zip")
            continue;
        ++archives;
        const Outcome unzip = RunPeer("unzip -o -qq -P x @", entry.path());
        const Outcome bsdtar = RunPeer("bsdtar -xf @ --passphrase x", entry.path());
        TempFolder folder;
        fs::create_directory(folder.Path("out"));
        CMiniZip zip;
        zip.SetPassword(L"x");
        const bool isDone = zip.ExtractZip(Wide(entry.path()), folder.WidePath("out").c_str(), true);
        const Files files = FilesBeneath(folder.Path("out"), false);
        EXPECT_EQ(isDone, !files.empty()) << name;
        EXPECT_EQ(std::distance(fs::directory_iterator(folder.Path()), {}), 1) << name;

        bool isAsExpected = true;
        if (unzip.m_exitCode == 0 && bsdtar.m_exitCode == 0)
            isAsExpected = files == unzip.m_files || files == bsdtar.m_files;
        else // damaged entries may be left out, but every file must be as one of the peers extracts it
        {
            for (const auto& [path, bytes] : files)
            {
                const auto gives = [&path = path, &bytes = bytes](const Outcome& peer) {
                    const auto found = peer.m_files.find(path);
                    return found != peer.m_files.end() && found->second == bytes;
                };
                isAsExpected = isAsExpected && (gives(unzip) || gives(bsdtar));
            }
        }
        const auto difference = kDifferences.find(name);
        EXPECT_EQ(isAsExpected, difference == kDifferences.end())
            << name << (difference != kDifferences.end() ? difference->second : "") << " " << files.size() << " files";
    }
    EXPECT_GT(archives, 200);
}

TEST(ArchiveCorpus, ZstandardFilesGiveWhatZstdGives)
{
    if (!fs::exists(Corpus("zstd")))
        GTEST_SKIP() << Corpus("zstd") << " is not there";
    for (const auto& entry : fs::directory_iterator(Corpus("zstd")))
    {
        const std::string name = entry.path().filename().string();
        const Outcome peer = RunPeer("zstd -q -d @ -o out", entry.path());
        TempFolder folder;
        CMiniZip zip;
        const bool isDone = zip.ExtractZStd(Wide(entry.path()), folder.WidePath("out").c_str(), true);
        EXPECT_EQ(isDone, peer.m_exitCode == 0) << name;
        if (isDone)
            EXPECT_TRUE(FilesBeneath(folder.Path(), false) == peer.m_files) << name;
        else
            EXPECT_TRUE(fs::is_empty(folder.Path())) << name;
    }
}
} // namespace
