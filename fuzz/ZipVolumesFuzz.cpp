// Arbitrary split archives. The first bytes determine how the rest is cut into volumes: a number of volumes, and two bytes
// for the size of each but the last.

#include "tests/support/ZipMemory.h"
#include "zip/engine/ZipVolumes.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{
using namespace tev::platform;
using tev::test::MemoryBytes;

constexpr std::size_t kMostVolumes = 5;
constexpr std::uint64_t kMostEntries = 64;
constexpr std::uint64_t kMostBytes = 1u << 20;

void Check(bool holds)
{
    if (!holds)
        std::abort();
}

std::vector<std::string> Cut(const std::uint8_t* data, std::size_t size)
{
    std::vector<std::string> volumes;
    const std::size_t count = size == 0 ? 1 : 1 + data[0] % kMostVolumes;
    const std::size_t head = 1 + 2 * (count - 1);
    if (size < head)
        return {std::string()};
    std::string rest(reinterpret_cast<const char*>(data) + head, size - head);
    for (std::size_t i = 0; i + 1 < count; ++i)
    {
        const std::size_t length = std::min<std::size_t>(data[1 + 2 * i] | data[2 + 2 * i] << 8, rest.size());
        volumes.push_back(rest.substr(0, length));
        rest.erase(0, length);
    }
    volumes.push_back(rest);
    return volumes;
}

void ReadAll(ZipEngine& engine)
{
    std::uint64_t left = kMostBytes;
    for (std::uint64_t index = 0; index < std::min(engine.Count(), kMostEntries); ++index)
    {
        ZipEntry entry;
        ZipError error;
        if (!engine.Describe(index, entry, error))
            continue;
        const std::unique_ptr<ZipReader> reader = engine.OpenEntry(index, "key", error);
        std::uint64_t read = 0;
        char block[4096];
        std::size_t delivered = 1;
        while (reader != nullptr && left >= sizeof block && delivered != 0 &&
               reader->Read(block, sizeof block, delivered, error))
        {
            read += delivered;
            left -= delivered;
        }
        Check(read <= entry.size);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::vector<std::string> volumes = Cut(data, size);
    const auto open = [&volumes](std::uint32_t number) -> std::unique_ptr<ZipBytes> {
        errno = ENOENT;
        return number + 1 < volumes.size() ? std::make_unique<MemoryBytes>(volumes[number]) : nullptr;
    };
    std::unique_ptr<ZipBytes> bytes = std::make_unique<MemoryBytes>(volumes.back());
    bool isReadOnly = false;
    ZipError error;
    const std::unique_ptr<ZipEngine> engine = ZipEngine::Open(std::move(bytes), open, isReadOnly, error);
    Check(engine != nullptr || error.failure != ZipFailure::None);
    if (engine != nullptr)
        ReadAll(*engine);
    return 0;
}
