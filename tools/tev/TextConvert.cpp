#include "tools/tev/TextConvert.h"

#include "objects/CXFileException.h"
#include "services/Paths.h"
#include "text/TextLoss.h"
#include "tools/tev/Encodings.h"
#include "tools/tev/Progress.h"
#include "tools/tev/System.h"
#include "tools/tev/TextSource.h"
#include "tools/tev/Tool.h"

#include <cstdint>
#include <functional>

namespace tev::tool
{
namespace
{
constexpr wchar_t kMeaningless = 0xFFFD; // replaces invalid bytes

using Sink = std::function<void(std::string_view)>;

std::string_view View(const CXTString<char>& bytes)
{
    return {bytes.GetConstBuffer(), bytes.GetLength64()};
}

bool HasReplacement(xStringEncoding encoding)
{
    CXTString<char> bytes;
    XTextLoss loss;
    return XEncodeText(&kMeaningless, 1, encoding, bytes, loss) && loss.m_count == 0;
}

/// Converts blocks from one encoding to another and counts lost characters.
class Converter
{
public:
    Converter(xStringEncoding from, xStringEncoding to) : m_from(from), m_to(to), m_keepsReplacement(HasReplacement(to))
    {
    }

    std::string_view Convert(std::string_view bytes)
    {
        XTextLoss loss;
        if (!XDecodeText(bytes.data(), bytes.size(), m_from, m_text, loss))
            throw Failure(EncodingName(m_from), LastFailureText());
        if (m_meaningless == 0)
            m_firstMeaningless = m_bytesDone + loss.m_first;
        m_bytesDone += bytes.size();
        m_meaningless += loss.m_count;
        // Where the other encoding has no U+FFFD, those characters are lost once more, but count once.
        m_lacking -= m_keepsReplacement ? 0 : loss.m_count;
        return Encode();
    }

    std::string_view Mark()
    {
        m_text = CXTString<wchar_t>(kByteOrderMark, 1);
        return Encode();
    }

    std::uint64_t Meaningless() const noexcept { return m_meaningless; }
    /// Where the first of them stands, from the first byte that was converted.
    std::uint64_t FirstMeaningless() const noexcept { return m_firstMeaningless; }
    std::uint64_t Lacking() const noexcept { return m_lacking; }

private:
    std::string_view Encode()
    {
        XTextLoss loss;
        if (!XEncodeText(m_text.GetConstBuffer(), m_text.GetLength64(), m_to, m_bytes, loss))
            throw Failure(EncodingName(m_to), LastFailureText());
        m_lacking += loss.m_count;
        return View(m_bytes);
    }

    xStringEncoding m_from;
    xStringEncoding m_to;
    bool m_keepsReplacement;
    CXTString<wchar_t> m_text;
    CXTString<char> m_bytes;
    std::uint64_t m_bytesDone = 0;
    std::uint64_t m_meaningless = 0;
    std::uint64_t m_firstMeaningless = 0;
    std::uint64_t m_lacking = 0;
};

/// Messages about a finished conversion; empty where there are none.
struct Notes
{
    std::string m_losses;
    std::string m_work;
};

std::string DescribeLosses(const Converter& converter, xStringEncoding from, xStringEncoding to, unsigned markSize)
{
    std::string text;
    if (converter.Meaningless() != 0)
        text = std::to_string(converter.Meaningless()) + " without meaning in " + EncodingName(from);
    if (converter.Lacking() != 0)
        text += (text.empty() ? "" : ", ") + std::to_string(converter.Lacking()) + " missing in " + EncodingName(to);
    if (converter.Meaningless() != 0)
        text += "; the first without meaning at byte " + std::to_string(markSize + converter.FirstMeaningless());
    return text.empty() ? text : "lost characters: " + text;
}

Notes ConvertInto(const ConvertOptions& options, const Sink& sink)
{
    TextSource source(options.m_in);
    const xStringEncoding from = source.Mark().m_size != 0 ? source.Mark().m_encoding : options.m_from;
    Converter converter(from, options.m_to);
    std::uint64_t written = 0;
    const auto put = [&](std::string_view bytes) {
        sink(bytes);
        written += bytes.size();
    };

    Progress progress(options.m_in, source.Size(), Progress::Beside::kNothing);
    if (options.m_writeMark)
        put(converter.Mark());
    for (std::string_view bytes = source.Next(from); !bytes.empty(); bytes = source.Next(from))
    {
        put(converter.Convert(bytes));
        progress.Show(source.BytesRead());
    }

    Notes notes;
    notes.m_losses = DescribeLosses(converter, from, options.m_to, source.Mark().m_size);
    if (!notes.m_losses.empty() && options.m_strict)
        throw Failure(options.m_in, notes.m_losses);
    notes.m_work = EncodingName(from) + ", " + std::to_string(source.BytesRead()) + " bytes, to " + options.m_out +
                   ": " + EncodingName(options.m_to) + (options.m_writeMark ? " with mark, " : ", ") +
                   std::to_string(written) + " bytes";
    return notes;
}

Notes ConvertToFile(const ConvertOptions& options)
{
    Replacement replacement(options.m_out);
    CXFile file(Widen(replacement.Path()).c_str(), CXFile::modeWrite | CXFile::modeNoInherit);
    file.SetFilePath(Widen(options.m_out).c_str()); // failures name the file that the user knows
    Notes notes = ConvertInto(options, [&](std::string_view bytes) { WriteAll(file, bytes); });
    file.Flush();
    file.Close();
    if (fileIsSameFile(Widen(options.m_in).c_str(), Widen(options.m_out).c_str()))
        replacement.RequireUnchanged();
    replacement.TakePlace();
    return notes;
}

Notes ConvertToOutput(Session& session, const ConvertOptions& options)
{
    Notes notes = ConvertInto(options, [&](std::string_view bytes) { session.m_output.WriteBytes(bytes); });
    session.m_output.Flush();
    return notes;
}
} // namespace

void RunTextConvert(Session& session, const ConvertOptions& options)
{
    Attempt(session, options.m_in, [&] {
        const Notes notes =
            options.m_out == kStandardStream ? ConvertToOutput(session, options) : ConvertToFile(options);
        if (!notes.m_losses.empty())
            Report(session, options.m_in, notes.m_losses);
        if (options.m_verbose)
            Report(session, options.m_in, notes.m_work);
    });
}

} // namespace tev::tool
