// Arbitrary Zstandard input, unpacked: only complete files give a file.

#include "fuzz/ExtractionFolder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto extract = [](CMiniZip& zip, const auto& input, const auto& output) {
        return zip.ExtractZStd(input, output, false);
    };
    tev::fuzz::UnpackFile(data, size, extract, CMiniZip::IsZStdFile);
    return 0;
}
