#pragma once

#include "files/CXFile.h"
#include "objects/CXCriticalSection.h"
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

/// An open file of text, and its form. The form is detected when the file is opened, and again as long as the file was too
/// short to tell: then Detect makes another object. Safe from several threads at once.
class TextFile
{
public:
    /// Null when the file cannot be opened, with the reason in `error`. An encoding other than unknown is not detected.
    static std::shared_ptr<TextFile> Open(const CXTString<wchar_t>& path, xStringEncoding encoding,
                                          CXFileException& error);

    const TextForm& GetForm() const noexcept { return m_form; }
    std::uint64_t GetLength() const;
    /// Reads fewer bytes only at the end of the file and where reading fails; `failed` becomes true then.
    std::size_t Read(std::uint64_t position, char* bytes, std::size_t size, bool& failed) const;

    enum class Change
    {
        None,
        Cut,      ///< shorter than what was read
        Replaced, ///< the path leads to another file
        Changed   ///< what was read has other bytes now
    };
    /// What happened to what was read of the file, which ended at `end`, since Remember was called.
    Change FindChange(const CXTString<wchar_t>& path, CXFileException& error) const;
    /// Remembers what the file holds in front of `end`.
    void Remember(std::uint64_t end);

private:
    struct Sample
    {
        std::uint64_t m_position = 0;
        std::vector<char> m_bytes;
    };

    explicit TextFile(xStringEncoding encoding);
    void Detect(xStringEncoding encoding);
    Sample Take(std::uint64_t position, std::size_t size) const;
    bool IsUnchanged(const Sample& sample) const;

    mutable CXCriticalSection m_lock;
    mutable CXFile m_file X_GUARDED_BY(m_lock);
    TextForm m_form;
    Sample m_head;
    Sample m_tail X_GUARDED_BY(m_lock);
    std::uint64_t m_end X_GUARDED_BY(m_lock) = 0;
};
