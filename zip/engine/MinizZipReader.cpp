#include "zip/engine/MinizZipReader.h"

#ifdef TEVTOOLS_MINIZ

#include "zip/engine/InputFile.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <vector>

#include <miniz.h>
#include <zlib.h>

namespace tev::platform
{
namespace
{
constexpr std::size_t kWindowSize = 64 * 1024;
constexpr std::size_t kInputSize = 64 * 1024;
constexpr std::size_t kOutputSize = 128 * 1024;
constexpr int kRawDeflate = -MAX_WBITS;

constexpr unsigned kEncrypted = 0x0001;
constexpr unsigned kPatched = 0x0020;
constexpr unsigned kUtf8 = 0x0800;
constexpr unsigned kStored = 0;
constexpr unsigned kDeflated = 8;

// Offsets in a header of the central directory of fields that miniz does not expose.
constexpr std::size_t kTimeAt = 12;
constexpr std::size_t kDateAt = 14;
constexpr std::size_t kNameSizeAt = 28;
constexpr std::size_t kExtraSizeAt = 30;
constexpr std::size_t kHeaderSize = 46;

std::uint16_t Short(const unsigned char* bytes)
{
    return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

/// Buffers reads of miniz, which are small.
class Window
{
public:
    explicit Window(std::shared_ptr<const InputFile> file) : m_file(std::move(file)) {}

    const InputFile& File() const { return *m_file; }
    const std::shared_ptr<const InputFile>& SharedFile() const { return m_file; }
    bool HasFailed() const { return m_error != 0; }

    std::size_t Read(std::uint64_t position, void* bytes, std::size_t count)
    {
        if (count > kWindowSize)
            return ReadFile(position, bytes, count);
        if (position < m_start || position - m_start > m_size || m_size - (position - m_start) < count)
        {
            m_bytes.resize(kWindowSize);
            m_start = position;
            m_size = ReadFile(position, m_bytes.data(), kWindowSize);
        }
        const std::size_t at = static_cast<std::size_t>(position - m_start);
        const std::size_t delivered = std::min(count, m_size - at);
        std::memcpy(bytes, m_bytes.data() + at, delivered);
        return delivered;
    }

private:
    std::size_t ReadFile(std::uint64_t position, void* bytes, std::size_t count)
    {
        int error = 0;
        const std::size_t delivered = m_file->ReadAt(position, bytes, count, error);
        m_error = error != 0 ? error : m_error;
        return delivered;
    }

    std::shared_ptr<const InputFile> m_file;
    std::vector<char> m_bytes;
    std::uint64_t m_start = 0;
    std::size_t m_size = 0;
    int m_error = 0;
};

std::size_t ReadThroughWindow(void* window, mz_uint64 position, void* bytes, std::size_t count) noexcept
{
    try
    {
        return static_cast<Window*>(window)->Read(position, bytes, count);
    }
    catch (...) // not enough memory, in the form in which this process reports it
    {
        return 0;
    }
}

// miniz multiplies an untrusted number of entries without checking for overflow. What it needs is never more than the
// archive itself takes, and a little for its own records.

constexpr std::uint64_t kOwnRecords = 64 * 1024;

bool IsAllowed(const void* limit, std::size_t items, std::size_t size) noexcept
{
    return items != 0 && size != 0 && items <= *static_cast<const std::uint64_t*>(limit) / size;
}

void* Allocate(void* limit, std::size_t items, std::size_t size) noexcept
{
    return IsAllowed(limit, items, size) ? std::malloc(items * size) : nullptr;
}

void* Reallocate(void* limit, void* block, std::size_t items, std::size_t size) noexcept
{
    return IsAllowed(limit, items, size) ? std::realloc(block, items * size) : nullptr;
}

void Free(void*, void* block) noexcept
{
    std::free(block);
}

/// The opened archive, whose records nothing changes any more.
struct Archive
{
    explicit Archive(std::shared_ptr<const InputFile> file) : limit(file->Size() + kOwnRecords), window(std::move(file))
    {
        mz_zip_zero_struct(&zip);
        zip.m_pAlloc = Allocate;
        zip.m_pRealloc = Reallocate;
        zip.m_pFree = Free;
        zip.m_pAlloc_opaque = &limit;
        zip.m_pRead = ReadThroughWindow;
        zip.m_pIO_opaque = &window;
    }
    ~Archive() { mz_zip_reader_end(&zip); }
    Archive(const Archive&) = delete;
    Archive& operator=(const Archive&) = delete;

    std::uint64_t limit;
    Window window;
    mz_zip_archive zip;
};

/// Buffers reused from entry to entry.
struct Buffers
{
    std::vector<unsigned char> input;
    std::vector<unsigned char> output;
    z_stream inflater = {};
};

/// Unpacks the compressed bytes of an entry with zlib, which is twice as fast as miniz. miniz delivers small pieces, which
/// are gathered first.
class Unpacking
{
public:
    Unpacking(const mz_zip_archive_file_stat& entry, Buffers& buffers, const ZipSink& sink)
        : m_isDeflated(entry.m_method == kDeflated),
          m_size(entry.m_uncomp_size),
          m_expectedChecksum(entry.m_crc32),
          m_buffers(buffers),
          m_sink(sink)
    {
    }

    bool Take(const void* bytes, std::size_t count)
    {
        for (auto next = static_cast<const unsigned char*>(bytes); count != 0;)
        {
            const std::size_t taken = std::min(count, m_buffers.input.size() - m_gathered);
            std::memcpy(m_buffers.input.data() + m_gathered, next, taken);
            m_gathered += taken;
            next += taken;
            count -= taken;
            if (m_gathered == m_buffers.input.size() && !UnpackGathered())
                return false;
        }
        return true;
    }

    /// After all was taken, or as much as could be read.
    ZipReadResult Finish()
    {
        if (m_result == ZipReadResult::Done)
            UnpackGathered();
        if (m_result != ZipReadResult::Done)
            return m_result;
        const bool isComplete = m_produced == m_size && m_checksum == m_expectedChecksum;
        return isComplete ? ZipReadResult::Done : ZipReadResult::Damaged;
    }

private:
    bool Fail(ZipReadResult result)
    {
        m_result = result;
        return false;
    }

    bool UnpackGathered()
    {
        const std::size_t gathered = m_gathered;
        m_gathered = 0;
        return m_isDeflated ? Inflate(gathered) : Pass(m_buffers.input.data(), gathered);
    }

    bool Inflate(std::size_t count)
    {
        z_stream& inflater = m_buffers.inflater;
        std::vector<unsigned char>& output = m_buffers.output;
        inflater.next_in = m_buffers.input.data();
        inflater.avail_in = static_cast<uInt>(count);
        while (!m_isAtEnd)
        {
            inflater.next_out = output.data() + m_filled;
            inflater.avail_out = static_cast<uInt>(output.size() - m_filled);
            const int state = inflate(&inflater, Z_NO_FLUSH);
            m_filled = output.size() - inflater.avail_out;
            if (state != Z_OK && state != Z_STREAM_END && state != Z_BUF_ERROR)
                return Fail(ZipReadResult::Damaged);
            m_isAtEnd = state == Z_STREAM_END;
            const bool isFull = inflater.avail_out == 0;
            // A damaged stream may have no end: flush once all declared bytes are there.
            if ((isFull || m_isAtEnd || m_filled >= m_size - m_produced) && !Flush())
                return false;
            if (!isFull && inflater.avail_in == 0)
                break;
        }
        return true; // bytes behind the end of the stream are ignored
    }

    bool Flush()
    {
        const std::size_t filled = m_filled;
        m_filled = 0;
        return Pass(m_buffers.output.data(), filled);
    }

    bool Pass(const void* bytes, std::size_t count)
    {
        if (count > m_size - m_produced)
            return Fail(ZipReadResult::Damaged);
        if (count == 0)
            return true;
        m_checksum = static_cast<std::uint32_t>(crc32_z(m_checksum, static_cast<const Bytef*>(bytes), count));
        m_produced += count;
        return m_sink(bytes, count) || Fail(ZipReadResult::Stopped);
    }

    const bool m_isDeflated;
    const std::uint64_t m_size;
    const std::uint32_t m_expectedChecksum;
    Buffers& m_buffers;
    const ZipSink& m_sink;
    std::size_t m_gathered = 0;
    std::size_t m_filled = 0;
    std::uint64_t m_produced = 0;
    std::uint32_t m_checksum = 0;
    bool m_isAtEnd = false;
    ZipReadResult m_result = ZipReadResult::Done;
};

/// miniz is C: no exception may pass through it. What the sink throws is kept and rethrown after miniz returns.
struct Taking
{
    Unpacking& unpacking;
    std::exception_ptr thrown;
};

std::size_t TakeCompressed(void* taking, mz_uint64, const void* bytes, std::size_t count) noexcept
{
    auto& mine = *static_cast<Taking*>(taking);
    try
    {
        return mine.unpacking.Take(bytes, count) ? count : 0;
    }
    catch (...)
    {
        mine.thrown = std::current_exception();
        return 0;
    }
}

class MinizZipReader final : public PlainZipReader
{
public:
    /// The copy of the archive's record is for the one field that reading changes, the last error.
    explicit MinizZipReader(std::shared_ptr<const Archive> archive)
        : m_archive(std::move(archive)), m_window(m_archive->window.SharedFile()), m_zip(m_archive->zip)
    {
        m_zip.m_pIO_opaque = &m_window;
    }
    ~MinizZipReader() override
    {
        if (!m_buffers.input.empty())
            inflateEnd(&m_buffers.inflater);
    }

    std::unique_ptr<PlainZipReader> Another() const override { return std::make_unique<MinizZipReader>(m_archive); }

    std::uint64_t Size() const override { return m_window.File().Size(); }
    std::uint64_t Count() const override { return m_zip.m_total_files; }

    bool GetEntry(std::uint64_t index, PlainZipEntry& entry) override
    {
        mz_zip_archive_file_stat found;
        if (!Find(index, found))
            return false;
        unsigned char header[kHeaderSize];
        const std::uint64_t at = m_zip.m_central_directory_file_ofs + found.m_central_dir_ofs;
        if (m_window.Read(at, header, kHeaderSize) != kHeaderSize)
            return false;
        const std::size_t nameSize = Short(header + kNameSizeAt);
        m_text.resize(nameSize + Short(header + kExtraSizeAt));
        if (m_window.Read(at + kHeaderSize, m_text.data(), m_text.size()) != m_text.size())
            return false;
        const std::string_view name = std::string_view(m_text).substr(0, nameSize);
        const std::string_view extra = std::string_view(m_text).substr(nameSize);

        entry.name = ZipEntryName(name, (found.m_bit_flag & kUtf8) != 0, extra);
        entry.kind = ZipKindOf(entry.name, found.m_external_attr);
        entry.isEncrypted = (found.m_bit_flag & kEncrypted) != 0;
        entry.size = found.m_uncomp_size;
        entry.compressedSize = found.m_comp_size;
        entry.offset = found.m_local_header_ofs;
        entry.lastWrite = ZipEntryTimes(extra).lastWrite;
        if (!entry.lastWrite)
            entry.lastWrite = ZipDosTime(Short(header + kDateAt), Short(header + kTimeAt));
        return true;
    }

    ZipReadResult Read(std::uint64_t index, const ZipSink& sink) override
    {
        mz_zip_archive_file_stat entry;
        if (!Find(index, entry))
            return ZipReadResult::Damaged;
        const bool isKnown = entry.m_method == kStored || entry.m_method == kDeflated;
        if (!isKnown || (entry.m_bit_flag & (kEncrypted | kPatched)) != 0)
            return ZipReadResult::Unsupported;
        if (!PrepareBuffers())
            return ZipReadResult::SourceFailed;
        Unpacking unpacking(entry, m_buffers, sink);
        Taking taking{unpacking, nullptr};
        const bool isRead = mz_zip_reader_extract_to_callback(&m_zip, static_cast<mz_uint>(index), TakeCompressed,
                                                              &taking, MZ_ZIP_FLAG_COMPRESSED_DATA) != 0;
        if (taking.thrown != nullptr)
            std::rethrow_exception(taking.thrown);
        const ZipReadResult result = unpacking.Finish();
        if (m_window.HasFailed())
            return ZipReadResult::SourceFailed;
        return isRead || result != ZipReadResult::Done ? result : ZipReadResult::Damaged;
    }

private:
    bool Find(std::uint64_t index, mz_zip_archive_file_stat& entry)
    {
        return index < Count() && mz_zip_reader_file_stat(&m_zip, static_cast<mz_uint>(index), &entry) != 0;
    }

    bool PrepareBuffers()
    {
        if (!m_buffers.input.empty())
            return inflateReset(&m_buffers.inflater) == Z_OK;
        std::vector<unsigned char> input(kInputSize);
        m_buffers.output.resize(kOutputSize);
        if (inflateInit2(&m_buffers.inflater, kRawDeflate) != Z_OK)
            return false;
        m_buffers.input = std::move(input);
        return true;
    }

    std::shared_ptr<const Archive> m_archive;
    Window m_window;
    mz_zip_archive m_zip;
    std::string m_text;
    Buffers m_buffers; ///< the input is empty until there is an inflater
};
} // namespace

std::unique_ptr<PlainZipReader> OpenWithMiniz(const wchar_t* path)
{
    std::shared_ptr<const InputFile> file = InputFile::Open(path);
    if (file == nullptr)
        return nullptr;
    const std::uint64_t size = file->Size();
    const auto archive = std::make_shared<Archive>(std::move(file));
    if (!mz_zip_reader_init(&archive->zip, size, MZ_ZIP_FLAG_DO_NOT_SORT_CENTRAL_DIRECTORY))
        return nullptr;
    return std::make_unique<MinizZipReader>(archive);
}
} // namespace tev::platform

#else

std::unique_ptr<tev::platform::PlainZipReader> tev::platform::OpenWithMiniz(const wchar_t*)
{
    return nullptr;
}

#endif
