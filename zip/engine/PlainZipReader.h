#pragma once

#include "zip/engine/ZipFields.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tev::platform
{
struct PlainZipEntry
{
    std::string name; ///< from ZipEntryName; untrusted
    ZipEntryKind kind = ZipEntryKind::File;
    bool isEncrypted = false;
    std::uint64_t size = 0; ///< as declared, and so the compressed size
    std::uint64_t compressedSize = 0;
    std::optional<std::uint64_t> offset; ///< position of its header in the file; empty when the reader does not know it
    std::optional<std::int64_t> lastWrite;
};

enum class ZipReadResult
{
    Done,
    Stopped, ///< by the sink
    Damaged, ///< also a wrong password that only the data reveals
    WrongPassword,
    Unsupported,
    SourceFailed ///< the archive itself could not be read
};

/// Takes the next bytes of an entry; returns false to stop.
using ZipSink = std::function<bool(const void* bytes, std::size_t count)>;

/// Reads the entries of a ZIP archive, in the order of its directory. Needs memory for the directory, but no more for
/// large entries than for small ones. One thread at a time; several threads take a reader each.
class PlainZipReader
{
public:
    /// Which library reads. Best: miniz for what it supports, and the engine of zip/engine/ZipEngine.h for the rest: other
    /// methods, encryption, split archives, what lies beyond miniz's limits, and everything where a build has no miniz.
    enum class By
    {
        Best,
        Miniz,
        Engine
    };
    /// Null when the file is no archive that the reader supports, or cannot be read. The password is UTF-8.
    static std::unique_ptr<PlainZipReader> Open(const wchar_t* path, const std::string& password, By by = By::Best);

    virtual ~PlainZipReader() = default;
    PlainZipReader(const PlainZipReader&) = delete;
    PlainZipReader& operator=(const PlainZipReader&) = delete;

    /// Another reader of the same archive, for another thread. Null when the archive can no longer be opened.
    virtual std::unique_ptr<PlainZipReader> Another() const = 0;

    /// The bytes of the archive, with all its volumes.
    virtual std::uint64_t Size() const = 0;
    virtual std::uint64_t Count() const = 0;
    /// False when the entry's header is damaged.
    [[nodiscard]] virtual bool GetEntry(std::uint64_t index, PlainZipEntry& entry) = 0;
    /// Passes the contents of a file to the sink, never more than the declared size. Only Done means that they were
    /// complete and matched their checksum. The sink may receive bytes before an error is found.
    virtual ZipReadResult Read(std::uint64_t index, const ZipSink& sink) = 0;

protected:
    PlainZipReader() = default;
};
} // namespace tev::platform
