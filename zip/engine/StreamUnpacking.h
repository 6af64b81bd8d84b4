#pragma once

#include "zip/CXExtraction.h"

#include <cstddef>
#include <cstdint>
#include <functional>

namespace tev::platform
{
enum class UnpackResult
{
    Done,
    Stopped,      ///< by the sink
    Damaged,      ///< the sink got what comes before
    SourceFailed, ///< the file cannot be opened or read; the reason is in errno
    NoMemory
};

struct UnpackEnding
{
    UnpackResult result = UnpackResult::Done;
    CXStreamDamage damage = CXStreamDamage::kNone; ///< of UnpackResult::Damaged
};

/// Takes the next bytes that were unpacked; `consumed` is the number of bytes of the file that were read for them and all before.
/// Returns false to stop.
using UnpackSink = std::function<bool(const void* bytes, std::size_t count, std::uint64_t consumed)>;

/// Unpacks a gzip file of one or more members one after the other. Trailing bytes behind the last one are ignored.
/// Memory does not depend on the file. Safe from several threads at once, as the next one is.
UnpackEnding UnpackGzip(const wchar_t* path, const UnpackSink& sink);

/// Unpacks a file of Zstandard frames one after the other; skippable ones are skipped. A frame that asks for a window of
/// more than 128 MiB counts as damaged, as does anything that is no frame.
UnpackEnding UnpackZstd(const wchar_t* path, const UnpackSink& sink);
} // namespace tev::platform
