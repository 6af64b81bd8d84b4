// Arbitrary gzip input, unpacked: every input that begins like one gives a file within the limits.

#include "fuzz/ExtractionFolder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace tev::fuzz;
    static const ExtractionFolder folder;
    const CXTString<wchar_t> input = folder.Write(data, size);
    CMiniZip zip;
    zip.SetLimits({kMostBytes, 100'000});
    const bool isDone = zip.ExtractGZip(input, folder.Wide("out/file"), false);
    Check(!isDone || CMiniZip::IsGZipFile(input));
    folder.CheckAndClean(zip, isDone);
    return 0;
}
