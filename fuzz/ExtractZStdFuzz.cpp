// Arbitrary Zstandard input, unpacked: only complete files give a file.

#include "fuzz/ExtractionFolder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace tev::fuzz;
    static const ExtractionFolder folder;
    const CXTString<wchar_t> input = folder.Write(data, size);
    CMiniZip zip;
    zip.SetLimits({kMostBytes, 100'000});
    const bool isDone = zip.ExtractZStd(input, folder.Wide("out/file"), false);
    Check(!isDone || CMiniZip::IsZStdFile(input));
    folder.CheckAndClean(zip, isDone);
    return 0;
}
