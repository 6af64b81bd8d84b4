// Arbitrary ZIP input, extracted: nothing outside the folder, nothing that is not listed, nothing left behind.

#include "fuzz/ExtractionFolder.h"

/// libzip 1.7 leaks the directory of some archives that it refuses.
extern "C" const char* __lsan_default_suppressions() // NOLINT(bugprone-reserved-identifier): the sanitizer's name
{
    return "leak:libzip.so";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace tev::fuzz;
    static const ExtractionFolder folder;
    const CXTString<wchar_t> input = folder.Write(data, size);
    CMiniZip zip;
    zip.SetLimits({kMostBytes, 100'000});
    zip.SetPassword(L"secret");
    folder.CheckAndClean(zip, zip.ExtractZip(input, folder.Wide("out"), false));
    return 0;
}
