#pragma once

#include "platform/ContainedFolder.h"
#include "zip/CXExtraction.h"
#include "zip/ExtractedFiles.h"
#include "zip/engine/PlainZipReader.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tev
{
/// Called on the thread that started the work; false ends it.
using ExtractionProgress = std::function<bool(std::uint64_t processed, std::uint64_t total)>;

/// The extraction of all entries of one archive beneath a folder. Files are unpacked on as many threads as parallel loops
/// have; the result and its order do not depend on that. Use once, on one thread.
class ZipExtraction
{
public:
    struct SkippedEntry
    {
        std::uint64_t m_index;
        std::string m_name; ///< as in the archive
        CXSkipReason m_reason;
    };

    ZipExtraction(platform::PlainZipReader& reader, platform::ContainedFolder& folder, const CXExtractionLimits& limits,
                  const ExtractionProgress& progress);

    /// kNone when every entry was handled; kCancelled, or why no further file could be written.
    CXExtractionFailure Run();
    /// Of that failure; 0 where the system had no part.
    unsigned SystemError() const noexcept { return m_systemError; }

    // In the order of the archive, also when the extraction ended early.
    std::vector<ExtractedFiles::File>& Written() noexcept { return m_written; }
    const std::vector<SkippedEntry>& Skipped() const noexcept { return m_skipped; }

private:
    enum class State : std::uint8_t
    {
        kWaiting,
        kWritten,
        kSkipped
    };
    struct File
    {
        std::uint64_t m_index = 0;
        std::string m_path;
        std::uint64_t m_size = 0;
        std::uint64_t m_compressedSize = 0;
        std::optional<std::int64_t> m_lastWrite;
        std::optional<unsigned> m_permissions;
        platform::FileIdentity m_identity;
        State m_state = State::kWaiting;
        CXSkipReason m_reason = CXSkipReason::kDamaged;
    };
    class Plan;
    class Work;

    void ReportResults() noexcept;

    platform::PlainZipReader& m_reader;
    platform::ContainedFolder& m_folder;
    const CXExtractionLimits m_limits;
    const ExtractionProgress& m_progress;
    std::vector<File> m_files;
    std::vector<ExtractedFiles::File> m_written;
    std::vector<SkippedEntry> m_skipped;
    unsigned m_systemError = 0;
};
} // namespace tev
