#include "tools/tev/LogCommands.h"

#include "files/CXFile.h"
#include "text/TextEncoding.h"
#include "tools/tev/CommandLine.h"
#include "tools/tev/Encodings.h"
#include "tools/tev/Json.h"
#include "tools/tev/TextSource.h"
#include "tools/tev/Tool.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace tev::tool
{
namespace
{
constexpr std::size_t kReadAtOnce = 256 * 1024;
constexpr auto kBetweenLooks = std::chrono::milliseconds(200);

/// Reads the lines of a log that may grow meanwhile, as UTF-8 with their line ends.
class LogReader
{
public:
    explicit LogReader(std::string name) : m_name(std::move(name)), m_file(OpenInput(m_name)), m_block(kReadAtOnce) {}

    /// Returns the lines that were completed since the last call. False at the current end of the log.
    bool Next(std::string& lines)
    {
        const unsigned count = m_file->Read(m_block.data(), static_cast<unsigned>(m_block.size()));
        m_bytes.append(m_block.data(), count);
        if (!m_knowsMark && count != 0)
            TakeMark();
        const std::size_t end = EndOfLines();
        lines = ToUtf8(std::string_view(m_bytes).substr(0, end));
        m_bytes.erase(0, end);
        return count != 0;
    }
    /// The incomplete last line.
    std::string Rest() const { return ToUtf8(m_bytes); }

    /// A log that is shorter than what was read was started again: reads it from its start.
    void NoticeNewStart()
    {
        if (m_file->GetLength() >= m_file->GetPosition())
            return;
        m_file->SeekToBegin();
        m_bytes.clear();
        m_knowsMark = false;
    }

private:
    void TakeMark()
    {
        const XTextMark mark = XFindTextMark(m_bytes.data(), m_bytes.size());
        m_encoding = mark.m_size == 0 ? xEncodingUtf8 : mark.m_encoding;
        m_bytes.erase(0, mark.m_size);
        m_knowsMark = true;
        if (m_encoding == xEncodingUtf8)
            RequireText();
    }

    /// A log is text: looks at its start only, since a crash of the system may leave anything at the end.
    void RequireText() const
    {
        constexpr std::size_t kLooked = 4096;
        constexpr std::size_t kLongestCharacter = 4; // the last one may not be complete
        for (std::size_t at = 0; at < std::min(m_bytes.size(), kLooked);)
        {
            const std::size_t length = CharacterLength(std::string_view(m_bytes).substr(at));
            if (m_bytes[at] == '\0' || (length == 0 && at + kLongestCharacter <= m_bytes.size()))
                throw Failure(m_name, "is no log");
            at += std::max<std::size_t>(length, 1);
        }
    }

    std::size_t EndOfLines() const
    {
        CXTString<char> bytesOfFeed;
        if (!XEncodeText(L"\n", 1, m_encoding, bytesOfFeed))
            return 0;
        const std::string_view feed(bytesOfFeed.GetConstBuffer(), bytesOfFeed.GetLength64());
        const std::size_t unit = feed.size();
        std::size_t found = m_bytes.rfind(feed);
        while (found != m_bytes.npos && found % unit != 0)
            found = found == 0 ? m_bytes.npos : m_bytes.rfind(feed, found - 1);
        return found == m_bytes.npos ? 0 : found + unit;
    }

    std::string ToUtf8(std::string_view bytes) const
    {
        if (m_encoding == xEncodingUtf8)
            return std::string(bytes);
        CXTString<wchar_t> text;
        CXTString<char> utf8;
        if (!XDecodeText(bytes.data(), bytes.size(), m_encoding, text) ||
            !XEncodeText(text.GetConstBuffer(), text.GetLength64(), xEncodingUtf8, utf8))
            return {};
        return std::string(utf8.GetConstBuffer(), utf8.GetLength64());
    }

    const std::string m_name;
    std::unique_ptr<CXFile> m_file;
    std::vector<char> m_block;
    std::string m_bytes; // of the last line, which is not complete yet
    bool m_knowsMark = false;
    xStringEncoding m_encoding = xEncodingUtf8;
};

struct LogOptions
{
    std::string m_file;
    bool m_follow = false;
    unsigned m_deepest = std::numeric_limits<unsigned>::max();
    bool m_isJson = false;
};

/// What a program may have put before a line, see docs/formats.md.
struct LinePrefix
{
    explicit LinePrefix(std::string_view line)
    {
        const std::size_t end = line.find("] ");
        if (line.substr(0, 1) != "[" || end == line.npos)
            return;
        std::string_view rest = line.substr(1, end - 1);
        LinePrefix found;
        for (int part = 0; part < 3 && !rest.empty(); ++part)
        {
            const std::string_view word = rest.substr(0, rest.find(' '));
            const bool isTaken = part == 0   ? found.TakeTime(word)
                                 : part == 1 ? found.TakeThread(word)
                                             : found.TakeLevel(word);
            if (isTaken)
                rest.remove_prefix(std::min(word.size() + 1, rest.size()));
        }
        if (!rest.empty() || line[end - 1] == ' ' || end == 1) // brackets of a message
            return;
        *this = found;
        m_size = end + 2;
    }

    std::size_t m_size = 0; ///< 0 where there is none
    std::string_view m_time;
    std::optional<unsigned> m_thread;
    std::optional<unsigned> m_level;

private:
    LinePrefix() = default;

    bool TakeTime(std::string_view word)
    {
        constexpr std::string_view kForm = "0000-00-00T00:00:00.000Z";
        const auto fits = [](char c, char form) { return form == '0' ? c >= '0' && c <= '9' : c == form; };
        if (word.size() != kForm.size() || !std::equal(word.begin(), word.end(), kForm.begin(), fits))
            return false;
        m_time = word;
        return true;
    }
    bool TakeThread(std::string_view word)
    {
        m_thread = Number(word);
        return m_thread.has_value();
    }
    bool TakeLevel(std::string_view word)
    {
        if (word.substr(0, 1) != "L")
            return false;
        m_level = Number(word.substr(1));
        return m_level.has_value() || word == "L-";
    }

    static std::optional<unsigned> Number(std::string_view digits)
    {
        unsigned number = 0;
        const char* const end = digits.data() + digits.size();
        const auto [stop, error] = std::from_chars(digits.data(), end, number);
        return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
    }
};

/// Prints the lines that the options ask for.
class LinePrinter
{
public:
    LinePrinter(Output& output, const LogOptions& options) : m_output(output), m_options(options) {}

    void Print(std::string_view lines)
    {
        while (!lines.empty())
        {
            const std::size_t length = std::min(lines.find('\n'), lines.size() - 1) + 1;
            PrintLine(lines.substr(0, length));
            lines.remove_prefix(length);
        }
    }

private:
    void PrintLine(std::string_view line)
    {
        ++m_number;
        const LinePrefix prefix(line);
        const std::string_view message = line.substr(prefix.m_size);
        const std::size_t tabs = std::min(message.find_first_not_of('\t'), message.size());
        if (tabs > m_options.m_deepest || prefix.m_level.value_or(0) > m_options.m_deepest)
            return;
        if (!m_options.m_isJson)
            return m_output.Write(line);
        m_output.Write(Json::Object({{"line", m_number},
                                     {"time", prefix.m_time.empty() ? Json() : Json(prefix.m_time)},
                                     {"thread", prefix.m_thread ? Json(*prefix.m_thread) : Json()},
                                     {"level", prefix.m_level ? Json(*prefix.m_level) : Json()},
                                     {"tabs", tabs},
                                     {"text", message.substr(tabs, message.find_last_not_of("\r\n") + 1 - tabs)}})
                           .Line());
    }

    Output& m_output;
    const LogOptions& m_options;
    unsigned __int64 m_number = 0;
};

void Show(Session& session, const LogOptions& options)
{
    LogReader reader(options.m_file);
    const bool follow = options.m_follow && options.m_file != kStandardStream;
    LinePrinter printer(session.m_output, options);
    std::string lines;
    while (!session.m_output.IsBroken())
    {
        const bool hasMore = reader.Next(lines);
        printer.Print(lines);
        if (hasMore)
            continue;
        if (!follow)
            break;
        session.m_output.Flush();
        std::this_thread::sleep_for(kBetweenLooks);
        reader.NoticeNewStart();
    }
    printer.Print(reader.Rest());
}
} // namespace

void AddLogCommands(const ToolCommand& tool, Session& session)
{
    const ToolCommand log = tool.AddFamily("log", "Print log files");
    const auto options = std::make_shared<LogOptions>();
    const ToolCommand command = log.AddCommand("show", "Print a log as UTF-8");
    command.AddArgument("FILE", options->m_file, "The log; - is standard input").Required();
    command.AddFlag("--follow", options->m_follow, "Continue with what is appended to it, until interrupted");
    command
        .AddOption("--level", options->m_deepest,
                   "Omit lines that are indented by more tabs than this,\nor whose prefix has a higher level")
        .ValueName("NUMBER");
    command.AddFlag("--json", options->m_isJson, "As JSON, an object a line");
    command.OnRun([&session, options] { Attempt(session, options->m_file, [&] { Show(session, *options); }); });
}

} // namespace tev::tool
