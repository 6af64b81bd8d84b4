#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace tev::platform
{
enum class UnpackResult
{
    Done,
    Stopped,     ///< the sink said so
    Damaged,     ///< or cut off; the sink got what comes before
    SourceFailed ///< the file cannot be opened or read, or there is not enough memory
};

/// Takes the next bytes that were unpacked; `consumed` is the number of bytes of the file that were read for them and all before.
/// Answers false when it wants no more.
using UnpackSink = std::function<bool(const void* bytes, std::size_t count, std::uint64_t consumed)>;

/// Unpacks a gzip file of one or more members one after the other. What stands behind the last one is left out.
/// Memory does not depend on the file. Safe from several threads at once, as the next one is.
UnpackResult UnpackGzip(const wchar_t* path, const UnpackSink& sink);

/// Unpacks a file of Zstandard frames one after the other; skippable ones are skipped. A frame that asks for a window of
/// more than 128 MiB counts as damaged, as does anything that is no frame.
UnpackResult UnpackZstd(const wchar_t* path, const UnpackSink& sink);
} // namespace tev::platform
