// Arbitrary data of one entry in an archive that is valid around it. The first byte selects the method, the second one the
// encryption and the form of the archive, the next two are the declared size.

#include "tests/support/RawZip.h"
#include "tests/support/ZipMemory.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace
{
using namespace tev::platform;
using namespace tev::test;

constexpr std::uint16_t kMethods[] = {14, 95, 93, 8, 0, 12};
constexpr std::uint16_t kEncrypted = 1;
constexpr std::uint16_t kAes = 99;

enum Form : unsigned
{
    kStrength = 3, ///< 0 for no encryption
    kSecondAesForm = 4,
    kTraditional = 8,
    kHasPrefix = 16,
    kIsSigned = 32,
    kEndMarked = 64,
    kCountsMore = 128
};

void Check(bool holds)
{
    if (!holds)
        std::abort();
}

std::string ArchiveOf(const std::uint8_t* data, std::size_t size)
{
    const std::uint16_t method = kMethods[data[0] % std::size(kMethods)];
    const unsigned form = data[1];
    RawEntry entry{"entry", ""};
    entry.size = data[2] | data[3] << 8;
    entry.packed = std::string(reinterpret_cast<const char*>(data) + 4, size - 4);
    entry.method = method;
    entry.flags = static_cast<std::uint16_t>(entry.flags | ((form & kEndMarked) != 0 ? 2 : 0));
    if ((form & kStrength) != 0)
    {
        entry.flags |= kEncrypted;
        entry.method = kAes;
        entry.extra = std::string("\x01\x99\x07\x00", 4) + ((form & kSecondAesForm) != 0 ? "\x02" : "\x01") +
                      std::string("\0AE", 3) + static_cast<char>(form & kStrength) + LittleEndianText(method, 2);
    }
    else if ((form & kTraditional) != 0)
        entry.flags |= kEncrypted;
    std::string archive = RawZip({entry, {"sound", "contents"}});
    if ((form & kCountsMore) != 0)
        archive[archive.size() - 12] = archive[archive.size() - 14] = 3;
    if ((form & kIsSigned) != 0)
        archive.insert(archive.size() - 22, std::string("PK\5\5\4\0sign", 10));
    return (form & kHasPrefix) != 0 ? "prefix" + archive : archive;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 4)
        return 0;
    ZipError error;
    const std::unique_ptr<ZipEngine> engine = OpenInMemory(ArchiveOf(data, size), error);
    Check(engine != nullptr && engine->Count() == 2);
    ZipEntry entry;
    Check(engine->Describe(0, entry, error));
    const std::string contents = ReadEntry(*engine, 0, "secret", error);
    Check(contents.size() <= entry.size && ReadEntry(*engine, 0, "secret", error) == contents);
    error = {};
    Check(ReadEntry(*engine, 1, "", error) == "contents" && error.failure == ZipFailure::None);
    return 0;
}
