#pragma once

#include "platform/InputFile.h"
#include "zip/engine/ZipCompressedBytes.h"

#include <memory>

namespace tev::platform
{
/// An archive opened by miniz, which gives the data of entries that are stored or deflated and not encrypted. One thread
/// at a time; several threads take one each.
class MinizArchive
{
public:
    /// Null where miniz does not find the same entries as the directory, and in a build without miniz.
    static std::shared_ptr<MinizArchive> Open(std::shared_ptr<const InputFile> file, const ZipDirectory& directory);

    virtual ~MinizArchive() = default;
    MinizArchive(const MinizArchive&) = delete;
    MinizArchive& operator=(const MinizArchive&) = delete;

    virtual std::shared_ptr<MinizArchive> Another() const = 0;
    /// Null with the error where the local header is damaged.
    virtual std::unique_ptr<ZipCompressedBytes> OpenEntry(std::uint64_t index, ZipError& error) = 0;

protected:
    MinizArchive() = default;
};
} // namespace tev::platform
