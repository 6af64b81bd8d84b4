#pragma once

#include "zip/Password.h"
#include "zip/engine/ZipEngine.h"
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
    std::string name; ///< untrusted
    ZipEntryKind kind = ZipEntryKind::File;
    bool isReadable = true;   ///< else Read fails, for its method, its encryption or the lack of a password
    bool sharesBytes = false; ///< with another entry
    std::uint64_t size = 0;   ///< as declared, and so the compressed size
    std::uint64_t compressedSize = 0;
    std::optional<std::int64_t> lastWrite;
    std::optional<unsigned> permissions; ///< the nine bits, where the entry was made on Unix
};

/// Takes the next bytes of an entry; returns false to stop. `consumed`: the compressed bytes that they and those before
/// took.
using ZipSink = std::function<bool(const void* bytes, std::size_t count, std::uint64_t consumed)>;

/// Reads the entries of a ZIP archive, in the order of its directory. Needs memory for the directory, but no more for
/// large entries than for small ones. One thread at a time; several threads take a reader each.
class PlainZipReader
{
public:
    /// Who delivers the data of entries that are stored or deflated and not encrypted.
    enum class By
    {
        Miniz, ///< where the build has it and it finds the same entries
        Ourselves
    };
    /// Null with the error when the file is no archive that can be read.
    static std::unique_ptr<PlainZipReader> Open(const wchar_t* path, const Password& password, ZipError& error,
                                                By by = By::Miniz);

    virtual ~PlainZipReader() = default;
    PlainZipReader(const PlainZipReader&) = delete;
    PlainZipReader& operator=(const PlainZipReader&) = delete;

    /// Another reader of the same archive, for another thread. Null when the archive can no longer be opened.
    virtual std::unique_ptr<PlainZipReader> Another() const = 0;

    virtual std::uint64_t Count() const = 0;
    /// False when the entry's header is damaged; the name is valid all the same.
    [[nodiscard]] virtual bool GetEntry(std::uint64_t index, PlainZipEntry& entry) const = 0;
    /// Passes the contents of a file to the sink, never more than the declared size. Only ZipFailure::None means that they
    /// were complete and matched their checksum; Cancelled, that the sink stopped. The sink may receive bytes before an
    /// error is found.
    virtual ZipError Read(std::uint64_t index, const ZipSink& sink) = 0;

protected:
    PlainZipReader() = default;
};
} // namespace tev::platform
