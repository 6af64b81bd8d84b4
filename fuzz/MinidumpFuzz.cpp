#include "crash/CrashPackage.h"
#include "crash/ModuleFile.h"
#include "crash/Processor.h"
#include "crash/XMinidump.h"
#include "objects/CXException.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace
{
void ReadDump(const std::vector<unsigned char>& bytes)
{
    XMinidump dump;
    if (!dump.Parse(bytes))
        return;
    constexpr int kMostThreads = 8;
    const int count = static_cast<int>(dump.GetThreads().size());
    if (dump.GetFaultThread() >= count)
        __builtin_trap();
    for (int i = -1; i < count && i < kMostThreads; ++i)
        dump.GetStack(i);
}

void WalkBy(const std::vector<unsigned char>& bytes)
{
    const auto file = tev::ModuleFile::Read(tev::UntrustedBytes(bytes));
    if (file == nullptr)
        return;
    constexpr std::uint64_t kStep = 16;
    constexpr std::uint64_t kLast = 256;
    for (std::uint64_t offset = 0; offset < kLast; offset += kStep)
    {
        tev::FrameState state(tev::kProcessorX64);
        std::string name;
        std::uint64_t offsetInFunction = 0;
        static_cast<void>(file->FindFunction(offset, name, offsetInFunction));
        const auto read = [](std::uint64_t address, std::uint64_t& value) {
            value = address;
            return true;
        };
        static_cast<void>(file->LeaveFrame(offset, state, read));
    }
}

// A record may be incomplete after a power failure.
void ReadRecord(std::string_view bytes)
{
    tev::CrashRecord record;
    if (tev::ParseRecord(bytes, record))
        tev::ComposeDetails(record);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::vector<unsigned char> bytes(data, data + size);
    ReadDump(bytes);
    WalkBy(bytes);
    ReadRecord({reinterpret_cast<const char*>(data), size});
    return 0;
}
