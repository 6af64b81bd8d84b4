// Arbitrary gzip input, unpacked: every input that begins like one gives a file within the limits.

#include "fuzz/ExtractionFolder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto extract = [](CMiniZip& zip, const auto& input, const auto& output) {
        return zip.ExtractGZip(input, output, false);
    };
    tev::fuzz::UnpackFile(data, size, extract, CMiniZip::IsGZipFile);
    return 0;
}
