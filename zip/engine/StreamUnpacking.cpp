#include "zip/engine/StreamUnpacking.h"

#include "platform/InputFile.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include <zlib.h>
#include <zstd.h>
#include <zstd_errors.h>

namespace tev::platform
{
namespace
{
// What libzstd recommends for streams: one block with its header, and one block unpacked.
constexpr std::size_t kZstdInputSize = 0x20003;
constexpr std::size_t kZstdOutputSize = 0x20000;
constexpr std::size_t kGzipBufferSize = 0x20000;
constexpr int kAnyGzip = MAX_WBITS + 16;
constexpr UnpackEnding kTruncated = {UnpackResult::Damaged, CXStreamDamage::kTruncated};

/// Takes a file from its start to its end, a buffer at a time.
class Input
{
public:
    Input(const wchar_t* path, std::size_t bufferSize) : m_file(InputFile::Open(path)), m_bytes(bufferSize) {}

    bool IsOpen() const { return m_file != nullptr; }
    bool HasFailed() const { return m_error != 0; }
    /// How reading ended after a failure.
    UnpackEnding Failure() const
    {
        errno = m_error;
        return {m_error == ENOMEM ? UnpackResult::NoMemory : UnpackResult::SourceFailed};
    }
    unsigned char* Bytes() { return m_bytes.data(); }
    /// Of the file, behind the buffer.
    std::uint64_t Position() const { return m_position; }

    /// Fills the buffer behind its first `kept` bytes; returns how many bytes it holds then.
    std::size_t Fill(std::size_t kept = 0)
    {
        const std::size_t got = m_file->ReadAt(m_position, m_bytes.data() + kept, m_bytes.size() - kept, m_error);
        m_position += got;
        return kept + got;
    }

private:
    std::shared_ptr<const InputFile> m_file;
    std::vector<unsigned char> m_bytes;
    std::uint64_t m_position = 0;
    int m_error = 0;
};

class GzipUnpacking
{
public:
    GzipUnpacking(const wchar_t* path, const UnpackSink& sink)
        : m_input(path, kGzipBufferSize), m_output(kGzipBufferSize), m_sink(sink)
    {
    }
    ~GzipUnpacking() { inflateEnd(&m_stream); }
    GzipUnpacking(const GzipUnpacking&) = delete;
    GzipUnpacking& operator=(const GzipUnpacking&) = delete;

    UnpackEnding Run()
    {
        if (!m_input.IsOpen())
            return {UnpackResult::SourceFailed};
        if (inflateInit2(&m_stream, kAnyGzip) != Z_OK)
            return {UnpackResult::NoMemory};
        StartOutput();
        for (;;)
        {
            if (m_stream.avail_in == 0 && !Refill())
                return Finish(m_input.HasFailed() ? m_input.Failure() : kTruncated);
            const int state = inflate(&m_stream, Z_NO_FLUSH);
            if (m_stream.avail_out == 0 && !Flush())
                return {UnpackResult::Stopped};
            if (state == Z_STREAM_END)
            {
                if (!FindMember())
                    return Finish(m_input.HasFailed() ? m_input.Failure() : UnpackEnding());
                inflateReset(&m_stream);
            }
            else if (state == Z_MEM_ERROR)
                return {UnpackResult::NoMemory};
            else if (state != Z_OK && state != Z_BUF_ERROR)
                return Finish({UnpackResult::Damaged, Damage()});
        }
    }

private:
    void StartOutput()
    {
        m_stream.next_out = m_output.data();
        m_stream.avail_out = static_cast<uInt>(m_output.size());
    }

    bool Refill()
    {
        const std::size_t kept = m_stream.avail_in;
        if (kept != 0)
            std::memmove(m_input.Bytes(), m_stream.next_in, kept);
        m_stream.next_in = m_input.Bytes();
        m_stream.avail_in = static_cast<uInt>(m_input.Fill(kept));
        return m_stream.avail_in > kept;
    }

    /// Whether another member follows; other trailing bytes are ignored.
    bool FindMember()
    {
        if (m_stream.avail_in < 2)
            Refill();
        return m_stream.avail_in >= 2 && m_stream.next_in[0] == 0x1F && m_stream.next_in[1] == 0x8B;
    }

    bool Flush()
    {
        const std::size_t count = m_output.size() - m_stream.avail_out;
        StartOutput();
        return count == 0 || m_sink(m_output.data(), count, m_input.Position() - m_stream.avail_in);
    }

    /// Passes on the bytes unpacked before the end, or before the damage.
    UnpackEnding Finish(UnpackEnding ending)
    {
        const int error = errno;
        const bool isFlushed = Flush();
        errno = error;
        return isFlushed ? ending : UnpackEnding{UnpackResult::Stopped};
    }

    /// zlib tells what is wrong by its texts only.
    CXStreamDamage Damage() const
    {
        constexpr std::pair<std::string_view, CXStreamDamage> kTexts[] = {
            {"incorrect data check", CXStreamDamage::kChecksum},
            {"incorrect length check", CXStreamDamage::kLength},
            {"unknown compression method", CXStreamDamage::kMethod},
            {"incorrect header check", CXStreamDamage::kHeader},
            {"unknown header flags set", CXStreamDamage::kHeader},
            {"header crc mismatch", CXStreamDamage::kHeader},
        };
        const std::string_view text = m_stream.msg != nullptr ? m_stream.msg : "";
        for (const auto& [known, damage] : kTexts)
        {
            if (text == known)
                return damage;
        }
        return CXStreamDamage::kData;
    }

    Input m_input;
    std::vector<unsigned char> m_output;
    const UnpackSink& m_sink;
    z_stream m_stream = {};
};

struct FreeContext
{
    void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
};

UnpackEnding EndingOf(ZSTD_ErrorCode error)
{
    switch (error)
    {
    case ZSTD_error_memory_allocation:
        return {UnpackResult::NoMemory};
    case ZSTD_error_checksum_wrong:
        return {UnpackResult::Damaged, CXStreamDamage::kChecksum};
    case ZSTD_error_prefix_unknown:
    case ZSTD_error_version_unsupported:
    case ZSTD_error_frameParameter_unsupported:
    case ZSTD_error_frameParameter_windowTooLarge:
        return {UnpackResult::Damaged, CXStreamDamage::kHeader};
    default:
        return {UnpackResult::Damaged, CXStreamDamage::kData};
    }
}
} // namespace

UnpackEnding UnpackGzip(const wchar_t* path, const UnpackSink& sink)
{
    return GzipUnpacking(path, sink).Run();
}

UnpackEnding UnpackZstd(const wchar_t* path, const UnpackSink& sink)
{
    Input input(path, kZstdInputSize);
    std::vector<unsigned char> bytes(kZstdOutputSize);
    const std::unique_ptr<ZSTD_DCtx, FreeContext> context(ZSTD_createDCtx());
    if (!input.IsOpen())
        return {UnpackResult::SourceFailed};
    if (context == nullptr)
        return {UnpackResult::NoMemory};

    std::size_t wanted = 1; // 0 where a frame is complete
    for (std::size_t size = input.Fill(); size != 0; size = input.Fill())
    {
        ZSTD_inBuffer chunk = {input.Bytes(), size, 0};
        bool isFull = false; // then there may be more that needs no further input
        while (chunk.pos < chunk.size || isFull)
        {
            ZSTD_outBuffer output = {bytes.data(), bytes.size(), 0};
            wanted = ZSTD_decompressStream(context.get(), &output, &chunk);
            const bool isError = ZSTD_isError(wanted) != 0;
            const std::uint64_t consumed = input.Position() - (chunk.size - chunk.pos);
            if (output.pos != 0 && !sink(bytes.data(), output.pos, consumed))
                return {UnpackResult::Stopped};
            if (isError)
                return EndingOf(ZSTD_getErrorCode(wanted));
            isFull = output.pos == output.size && wanted != 0;
        }
    }
    if (input.HasFailed())
        return input.Failure();
    return wanted == 0 ? UnpackEnding() : kTruncated;
}
} // namespace tev::platform
