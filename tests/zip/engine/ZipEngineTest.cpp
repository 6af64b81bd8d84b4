#include "zip/engine/ZipEngine.h"

#include "tests/support/Testing.h"
#include "tests/support/ZipMemory.h"
#include "threads/WorkerCount.h"

#include <random>

namespace
{
using namespace tev::platform;
using namespace tev::test;

std::string Save(ZipEngine& engine, const ZipEngine::Progress& progress = nullptr)
{
    MemoryTarget target;
    ZipError error;
    EXPECT_TRUE(engine.Save(target, progress, error)) << static_cast<int>(error.failure);
    return target.m_saved;
}

std::string ArchiveOf(std::initializer_list<std::pair<const char*, std::string>> files)
{
    const std::unique_ptr<ZipEngine> engine = ZipEngine::Create();
    ZipError error;
    for (const auto& [name, contents] : files)
        EXPECT_TRUE(engine->Add(MemoryAddition(name, contents), error));
    return Save(*engine);
}

std::string NamesOf(const ZipEngine& engine)
{
    std::string names;
    for (std::uint64_t i = 0; i < engine.Count(); ++i)
        names += std::string(i == 0 ? "" : "|") + engine.Name(i);
    return names;
}

TEST(ZipEngine, WhatIsAddedComesBackWithItsDetails)
{
    const std::string large(3000000, 'x');
    const std::unique_ptr<ZipEngine> engine = ZipEngine::Create();
    ZipError error;
    ASSERT_TRUE(engine->Add(MemoryAddition("a/b.txt", "first"), error));
    ASSERT_TRUE(engine->Add(MemoryAddition("\xC3\xA9t\xC3\xA9/", ""), error));
    ASSERT_TRUE(engine->Add(MemoryAddition("large", large), error));
    EXPECT_FALSE(engine->Add(MemoryAddition("large", ""), error));
    EXPECT_EQ(error.failure, ZipFailure::Exists);
    EXPECT_EQ(ReadEntry(*engine, 0, "", error), "first"); // before it is saved, too
    EXPECT_EQ(engine->SaveSize(), 5 + large.size());

    std::uint64_t processed = 0;
    const std::string archive = Save(*engine, [&](std::uint64_t done) {
        EXPECT_GE(done, processed);
        processed = done;
        return true;
    });
    EXPECT_EQ(processed, 5 + large.size());
    EXPECT_LT(archive.size(), 10000U);

    const std::unique_ptr<ZipEngine> opened = OpenInMemory(archive, error);
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(NamesOf(*opened), "a/b.txt|\xC3\xA9t\xC3\xA9/|large");
    EXPECT_EQ(opened->Kind(1), ZipEntryKind::Folder);
    ZipEntry entry;
    ASSERT_TRUE(opened->Describe(2, entry, error));
    EXPECT_EQ(entry.size, large.size());
    EXPECT_LT(entry.compressedSize, 10000U);
    EXPECT_EQ(entry.times.lastWrite, 1600000001); // an odd second, which the old form of times cannot hold
    EXPECT_EQ(entry.attributes, 0U);
    EXPECT_EQ(ReadEntry(*opened, 2, "", error), large);
    EXPECT_EQ(error.failure, ZipFailure::None);
}

TEST(ZipEngine, DeletingAndRenamingMoveTheIndexes)
{
    ZipError error;
    const std::string archive = ArchiveOf({{"a", "1"}, {"b", "2"}, {"c", "3"}});
    const std::unique_ptr<ZipEngine> engine = OpenInMemory(archive, error);
    ASSERT_TRUE(engine->Add(MemoryAddition("d", "4"), error));
    ASSERT_TRUE(engine->Add(MemoryAddition("e", "5"), error));
    ASSERT_TRUE(engine->Delete(1, error));
    ASSERT_TRUE(engine->Delete(2, error));
    EXPECT_FALSE(engine->Rename(0, "c", error));
    EXPECT_EQ(error.failure, ZipFailure::Exists);
    ASSERT_TRUE(engine->Rename(0, "z", error));
    EXPECT_EQ(NamesOf(*engine), "z|c|e");
    EXPECT_EQ(ReadEntry(*engine, 0, "", error), "1");
    const std::unique_ptr<ZipEngine> saved = OpenInMemory(Save(*engine), error);
    EXPECT_EQ(NamesOf(*saved), "z|c|e");
    EXPECT_EQ(ReadEntry(*saved, 0, "", error) + ReadEntry(*saved, 1, "", error) + ReadEntry(*saved, 2, "", error),
              "135");

    while (saved->Count() != 0)
        ASSERT_TRUE(saved->Delete(0, error));
    const std::string empty = Save(*saved);
    EXPECT_EQ(empty.size(), 22U);
    EXPECT_EQ(OpenInMemory(empty, error)->Count(), 0U);
    EXPECT_EQ(Save(*ZipEngine::Create()), empty);
}

TEST(ZipEngine, ASaveThatIsCancelledOrFailsCommitsNothing)
{
    ZipError error;
    const std::string archive = ArchiveOf({{"a", std::string(100000, 'a')}});
    MemoryTarget target;
    target.m_saved = archive;
    const auto changed = [&] {
        std::unique_ptr<ZipEngine> engine = OpenInMemory(archive, error);
        EXPECT_TRUE(engine->Add(MemoryAddition("b", std::string(1000000, 'b')), error));
        return engine;
    };
    EXPECT_FALSE(changed()->Save(
        target, [](std::uint64_t done) { return done < 500000; }, error));
    EXPECT_EQ(error.failure, ZipFailure::Cancelled);
    EXPECT_THROW(static_cast<void>(changed()->Save(
                     target, [](std::uint64_t) -> bool { throw std::runtime_error("stop"); }, error)),
                 std::runtime_error);
    target.m_space = 200;
    EXPECT_FALSE(changed()->Save(target, nullptr, error));
    EXPECT_EQ(error.failure, ZipFailure::System);
    EXPECT_EQ(error.systemError, 112U);

    target.m_space = 1u << 30;
    std::unique_ptr<ZipEngine> engine = OpenInMemory(archive, error);
    ZipAddition missing = MemoryAddition("missing", "");
    missing.open = [] {
        errno = ENOENT;
        return std::unique_ptr<ZipBytes>();
    };
    ASSERT_TRUE(engine->Add(missing, error));
    EXPECT_FALSE(engine->Save(target, nullptr, error));
    EXPECT_EQ(error.failure, ZipFailure::System);
    EXPECT_EQ(error.systemError, 2U);
    EXPECT_EQ(target.m_saved, archive);
}

/// Repeats 20,000 random bytes: what is looked back at lies in the block before.
std::string Repeating(std::size_t size, unsigned seed)
{
    std::mt19937 random(seed);
    std::string text(20000, ' ');
    std::generate(text.begin(), text.end(), [&] { return static_cast<char>(random()); });
    while (text.size() < size)
        text += text.substr(0, std::min<std::size_t>(20000, size - text.size()));
    return text.substr(0, size);
}

/// Ends before its size, or fails there.
class EndingBytes final : public ZipBytes
{
public:
    EndingBytes(std::string bytes, std::size_t end, int error) : m_bytes(std::move(bytes)), m_end(end), m_error(error)
    {
    }
    std::uint64_t Size() const override { return m_bytes.size(); }
    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& delivered) override
    {
        delivered = std::min(count, m_end - std::min<std::size_t>(static_cast<std::size_t>(offset), m_end));
        std::memcpy(buffer, m_bytes.data() + offset, delivered);
        errno = m_error;
        return m_error == 0 || delivered == count;
    }

private:
    std::string m_bytes;
    std::size_t m_end;
    int m_error;
};

TEST(ZipEngine, EntriesAreDeflatedAlikeByAnyNumberOfThreads)
{
    constexpr std::size_t kBlock = 256 * 1024;
    std::vector<std::pair<int, std::string>> files; // levels and contents
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{1}, kBlock - 1, kBlock, kBlock + 1, 4 * kBlock, 3 * kBlock + 777})
        files.emplace_back(static_cast<int>(files.size()) - 1, Repeating(size, static_cast<unsigned>(size)));
    for (unsigned i = 0; i < 90; ++i)
        files.emplace_back(1 + static_cast<int>(i % 9), Repeating(i * 297, i));
    const unsigned before = OMPGetMaxThreadCount();
    std::string first;
    for (const unsigned threads : {1U, 2U, 5U})
    {
        OMPSetMaxThreadCount(threads);
        const std::unique_ptr<ZipEngine> engine = ZipEngine::Create();
        ZipError error;
        for (std::size_t i = 0; i < files.size(); ++i)
        {
            ZipAddition addition = MemoryAddition(std::to_string(i), files[i].second);
            addition.level = files[i].first;
            ASSERT_TRUE(engine->Add(std::move(addition), error));
        }
        const std::string archive = Save(*engine);
        first = first.empty() ? archive : first;
        EXPECT_TRUE(archive == first) << threads << " threads";
    }
    OMPSetMaxThreadCount(before);

    ZipError error;
    const std::unique_ptr<ZipEngine> opened = OpenInMemory(first, error);
    for (std::size_t i = 0; i < files.size(); ++i)
    {
        EXPECT_TRUE(ReadEntry(*opened, i, "", error) == files[i].second) << i;
        ZipEntry entry;
        ASSERT_TRUE(opened->Describe(i, entry, error));
        EXPECT_EQ(entry.method, files[i].first == 0 ? 0 : 8) << i;
        const std::size_t most = files[i].first != 0 ? 24000 + files[i].second.size() / 100 : files[i].second.size();
        EXPECT_LE(entry.compressedSize, most) << i << ": the joints cost too much";
    }
}

TEST(ZipEngine, WhatIsReadAheadFailsAsItWouldInItsTurn)
{
    constexpr std::size_t kEnd = 600000;
    const std::string contents = Repeating(1000000, 1);
    const auto save = [&](std::function<std::unique_ptr<ZipBytes>()> open, MemoryTarget& target, ZipError& error) {
        const std::unique_ptr<ZipEngine> engine = ZipEngine::Create();
        ZipAddition addition = MemoryAddition("b", contents);
        addition.open = std::move(open);
        EXPECT_TRUE(engine->Add(MemoryAddition("a", "first"), error) && engine->Add(std::move(addition), error) &&
                    engine->Add(MemoryAddition("c", "last"), error));
        return engine->Save(target, nullptr, error);
    };
    MemoryTarget target;
    ZipError error;
    EXPECT_FALSE(save([&] { return std::make_unique<EndingBytes>(contents, kEnd, EIO); }, target, error));
    EXPECT_EQ(std::make_pair(error.failure, error.systemError), std::make_pair(ZipFailure::System, 23U));
    const auto noFile = [] {
        errno = ENOENT;
        return std::unique_ptr<ZipBytes>();
    };
    EXPECT_FALSE(save(noFile, target, error));
    EXPECT_EQ(std::make_pair(error.failure, error.systemError), std::make_pair(ZipFailure::System, 2U));
    EXPECT_TRUE(target.m_saved.empty());

    // A file that has become shorter is saved as it is now.
    ASSERT_TRUE(save([&] { return std::make_unique<EndingBytes>(contents, kEnd, 0); }, target, error));
    const std::unique_ptr<ZipEngine> opened = OpenInMemory(target.m_saved, error);
    EXPECT_TRUE(ReadEntry(*opened, 1, "", error) == contents.substr(0, kEnd));
    EXPECT_EQ(ReadEntry(*opened, 0, "", error) + ReadEntry(*opened, 2, "", error), "firstlast");
}

TEST(ZipEngine, MoreEntriesThan16BitsCount)
{
    constexpr unsigned kEntries = 66000;
    const std::unique_ptr<ZipEngine> engine = ZipEngine::Create();
    ZipError error;
    for (unsigned i = 0; i < kEntries; ++i)
        ASSERT_TRUE(engine->Add(MemoryAddition(std::to_string(i), "x"), error));
    const std::unique_ptr<ZipEngine> opened = OpenInMemory(Save(*engine), error);
    ASSERT_EQ(opened->Count(), kEntries);
    EXPECT_EQ(opened->Name(kEntries - 1), "65999");
    EXPECT_EQ(ReadEntry(*opened, kEntries - 1, "", error), "x");
}

/// Remembers where an archive holds anything but zeros.
class SparseTarget final : public ZipTarget
{
public:
    bool Begin() override { return true; }
    bool WriteAt(std::uint64_t offset, const void* bytes, std::size_t count) override
    {
        const std::string_view block(static_cast<const char*>(bytes), count);
        // Each byte is the one before it, and the first is zero: 4 GiB of single bytes take long in a sanitized test.
        if (count != 0 && (block[0] != '\0' || block.substr(1) != block.substr(0, count - 1)))
            m_blocks[offset] = block;
        m_size = std::max(m_size, offset + count);
        return true;
    }
    bool Commit() override { return true; }

    std::map<std::uint64_t, std::string> m_blocks;
    std::uint64_t m_size = 0;
};

class SparseBytes final : public ZipBytes
{
public:
    explicit SparseBytes(const SparseTarget& target) : m_target(target) {}
    std::uint64_t Size() const override { return m_target.m_size; }
    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& delivered) override
    {
        delivered = static_cast<std::size_t>(std::min<std::uint64_t>(count, m_target.m_size - offset));
        std::memset(buffer, 0, delivered);
        for (auto block = m_target.m_blocks.begin();
             block != m_target.m_blocks.end() && block->first < offset + delivered; ++block)
        {
            for (std::size_t i = 0; i < block->second.size(); ++i)
            {
                const std::uint64_t at = block->first + i;
                if (at >= offset && at < offset + delivered)
                    static_cast<char*>(buffer)[at - offset] = block->second[i];
            }
        }
        return true;
    }

private:
    const SparseTarget& m_target;
};

TEST(ZipEngine, EntriesAndPlacesBeyond4GiB)
{
    constexpr std::uint64_t kLarge = (4ull << 30) + 100;
    const std::unique_ptr<ZipEngine> engine = ZipEngine::Create();
    ZipError error;
    ZipAddition large = MemoryAddition("large", "");
    large.size = kLarge;
    large.level = 0;
    large.open = [size = kLarge] { return std::make_unique<ZeroBytes>(size); };
    ASSERT_TRUE(engine->Add(large, error));
    ASSERT_TRUE(engine->Add(MemoryAddition("behind", "reached"), error));
    SparseTarget target;
    ASSERT_TRUE(engine->Save(target, nullptr, error));
    ASSERT_GT(target.m_size, kLarge);

    bool isReadOnly = false;
    const auto opened = ZipEngine::Open(std::make_unique<SparseBytes>(target), nullptr, isReadOnly, error);
    ASSERT_NE(opened, nullptr);
    ZipEntry entry;
    ASSERT_TRUE(opened->Describe(0, entry, error));
    EXPECT_EQ(entry.size, kLarge);
    EXPECT_EQ(ReadEntry(*opened, 1, "", error), "reached");
    char first[100] = "unwritten";
    std::size_t delivered = 0;
    const std::unique_ptr<ZipReader> reader = opened->OpenEntry(0, "", error);
    ASSERT_TRUE(reader != nullptr && reader->Read(first, sizeof first, delivered, error));
    EXPECT_EQ(std::string(first, delivered), std::string(sizeof first, '\0'));
}

TEST(ZipEngine, EncryptedEntriesAskForTheirPassword)
{
    const std::string secret(5000, 's');
    for (const ZipEncryption encryption :
         {ZipEncryption::Traditional, ZipEncryption::Aes128, ZipEncryption::Aes192, ZipEncryption::Aes256})
    {
        SCOPED_TRACE(static_cast<int>(encryption));
        const std::unique_ptr<ZipEngine> engine = ZipEngine::Create();
        ZipError error;
        ZipAddition addition = MemoryAddition("secret", secret);
        addition.level = 0;
        addition.encryption = encryption;
        addition.password = tev::Password(L"p\u00E4ssword");
        ASSERT_TRUE(engine->Add(addition, error));
        std::string archive = Save(*engine);
        std::unique_ptr<ZipEngine> opened = OpenInMemory(archive, error);
        ZipEntry entry;
        ASSERT_TRUE(opened->Describe(0, entry, error));
        EXPECT_EQ(entry.encryption, encryption);
        EXPECT_EQ(ReadEntry(*opened, 0, addition.password.Utf8(), error), secret);
        ReadEntry(*opened, 0, "", error);
        EXPECT_EQ(error.failure, ZipFailure::PasswordNeeded);
        ReadEntry(*opened, 0, "wrong", error);
        EXPECT_TRUE(error.failure == ZipFailure::WrongPassword || error.failure == ZipFailure::WrongPasswordOrDamaged);
        archive[archive.find("secret") + 60] ^= 1;
        opened = OpenInMemory(archive, error);
        ReadEntry(*opened, 0, addition.password.Utf8(), error);
        EXPECT_EQ(error.failure, ZipFailure::WrongPasswordOrDamaged);
    }
}
} // namespace
