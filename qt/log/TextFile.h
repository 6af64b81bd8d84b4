#pragma once

#include "files/CXFile.h"
#include "objects/CXCriticalSection.h"
#include "services/FileStamp.h"
#include "text/TextEncoding.h"

#include <QString>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

/// How the bytes of a text become lines.
struct TextForm
{
    xStringEncoding m_encoding = xEncodingUtf8;
    unsigned m_markSize = 0;
    bool m_returnsEndLines = false; ///< as CStdioFileEx has it: a CR ends a line where the first line holds one
    bool m_isSettled = false;       ///< the first bytes and the first line end are known

    /// Bytes of one unit of the encoding.
    std::size_t UnitSize() const noexcept;
    bool IsUnit(const char* unit, char character) const noexcept;
    /// Adds the text of the bytes. What is no text becomes U+FFFD.
    void Decode(const char* bytes, std::size_t size, QString& text) const;
};

/// A complete line among bytes.
struct LineBytes
{
    std::size_t m_offset;
    std::size_t m_size; ///< without its end
    std::size_t m_next; ///< where the next line starts
};

/// Finds the line that starts at an offset. False where it does not end within the bytes; a CR that ends a line must be
/// followed by another unit, since an LF may belong to it.
bool FindLine(const char* bytes, std::size_t size, std::size_t offset, const TextForm& form, LineBytes& line) noexcept;

/// An open file of text, and its form, which is detected when the file is opened. Safe from several threads at once.
class TextFile
{
public:
    /// Null when the file cannot be opened, with the reason in `error`. An encoding other than unknown is not detected.
    static std::shared_ptr<TextFile> Open(const CXTString<wchar_t>& path, xStringEncoding encoding,
                                          CXFileException& error);

    const TextForm& GetForm() const noexcept { return m_form; }
    /// As the file states it: some files of the system hold more or fewer bytes.
    std::uint64_t GetLength() const;
    /// Whether the file, which was too short to tell its form, should be opened anew because there is more of it.
    bool IsUnsettled() const;
    /// Reads fewer bytes only at the end of the file, and where reading fails; `failed` becomes true then, and
    /// XLastFailure() says why.
    std::size_t Read(std::uint64_t position, char* bytes, std::size_t size, bool& failed) const;

    enum class Change
    {
        None,
        Cut,      ///< shorter than what was read
        Replaced, ///< the path leads to another file
        Changed   ///< what was read has other bytes now
    };
    /// What happened to what was read of the file. A change in place is known by the start and the end of what was read, and
    /// where the file has not grown since the last call, by the time at which it was written. None where there is an error.
    Change FindChange(const CXTString<wchar_t>& path, CXFileException& error);
    /// Remembers the end of what was read, in front of `end`, and the length that the file stated before.
    void Remember(std::uint64_t end, std::uint64_t length);

private:
    struct Sample
    {
        std::uint64_t m_position = 0;
        std::vector<char> m_bytes;
    };
    struct Memory
    {
        Sample m_tail;
        std::uint64_t m_end = 0;
        std::uint64_t m_length = 0;
        XFileStamp m_stamp; // from before what was new then was read
    };

    explicit TextFile(xStringEncoding encoding);
    void Detect(xStringEncoding encoding);
    Sample Take(std::uint64_t position, std::size_t size, bool& failed) const;
    bool IsUnchanged(const Sample& sample, bool& failed) const;

    mutable CXCriticalSection m_lock;
    mutable CXFile m_file X_GUARDED_BY(m_lock);
    TextForm m_form;
    std::uint64_t m_detectedLength = 0;
    Sample m_head;
    Memory m_memory X_GUARDED_BY(m_lock);
};
