#include "tools/tev/CrashCommands.h"

#include "crash/CCrashHandler.h"
#include "crash/XMinidump.h"
#include "services/Paths.h"
#include "tools/tev/CommandLine.h"
#include "tools/tev/Json.h"
#include "tools/tev/Listing.h"
#include "tools/tev/System.h"
#include "tools/tev/Tool.h"
#include "tools/tev/ZipWork.h"
#include "values/CXTime.h"
#include "zip/CZip.h"

#include <cinttypes>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace tev::tool
{
namespace
{
struct CrashOptions
{
    std::string m_file;
    bool m_allThreads = false;
    bool m_modules = false;
    bool m_isJson = false;
};

std::string Hex(unsigned __int64 number)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%" PRIx64, static_cast<std::uint64_t>(number));
    return text;
}

bool EndsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string ModuleName(const XMinidump& dump, int index)
{
    if (index < 0)
        return "no module";
    const std::string path = Printable(dump.GetModules()[static_cast<std::size_t>(index)].m_path);
    return path.substr(path.rfind('/') + 1);
}

void PrintThread(Output& output, const XMinidump& dump, int index)
{
    for (const CXTString<wchar_t>& line : dump.DescribeThread(index))
        output.Write(Printable(line) + "\n");
}

std::string TimeText(const XMinidump& dump)
{
    return Printable(CXTime(dump.GetTime()).FormatGmt(L"%Y-%m-%d %H:%M:%S UTC"));
}

std::string FaultText(const XMinidump& dump)
{
    if (!dump.Has(XMinidumpPart::kException))
        return "no record of a fault";
    if (!dump.HasSignal())
        return "no signal";
    const unsigned number = dump.GetSignal();
    if (!dump.IsLinux())
        return "exception " + Hex(number) + ", address " + Hex(dump.GetFaultAddress());
    return "signal " + std::to_string(number) + " (" + SignalName(static_cast<int>(number)) + "), code " +
           std::to_string(static_cast<int>(dump.GetSignalCode())) + ", address " + Hex(dump.GetFaultAddress());
}

std::string ListText(const XMinidump& dump, XMinidumpPart part, const std::string& name, std::size_t count)
{
    if (!dump.Has(part))
        return "no list of " + name;
    return name + " " + std::to_string(count) + (dump.IsCut(part) ? " (others are missing)" : "");
}

std::string BuildIdText(const XMinidumpModule& module)
{
    return Hexadecimal(module.m_buildId.data(), module.m_buildId.size());
}

void PrintDump(Output& output, const XMinidump& dump, const std::string& name, const CrashOptions& options)
{
    const std::string process =
        dump.Has(XMinidumpPart::kProcess) ? "process " + std::to_string(dump.GetProcessId()) : "unknown process";
    output.Write(name + ": " + process + ", " + FaultText(dump) + ", " +
                 ListText(dump, XMinidumpPart::kThreads, "threads", dump.GetThreads().size()) + ", " +
                 ListText(dump, XMinidumpPart::kModules, "modules", dump.GetModules().size()) + "\n");
    if (!dump.Has(XMinidumpPart::kSystem))
        output.Write("of an unknown system\n");
    else
        output.Write("of " + Printable(dump.GetSystemName()) +
                     (dump.GetProcessorCount() == 0 ? "" : ", processors " + std::to_string(dump.GetProcessorCount())) +
                     (dump.GetTime() == 0 ? "" : ", " + TimeText(dump)) +
                     (dump.GetSystemText().IsEmpty() ? "" : ", " + Printable(dump.GetSystemText())) + "\n");
    if (dump.GetFaultThread() < 0 && !dump.GetThreads().empty() && !options.m_allThreads)
        output.Write("which thread crashed is unknown; --threads shows all\n");
    for (int i = 0; i < static_cast<int>(dump.GetThreads().size()); ++i)
    {
        if (options.m_allThreads || i == dump.GetFaultThread())
            PrintThread(output, dump, i);
    }
    if (!options.m_modules)
        return;
    for (const XMinidumpModule& module : dump.GetModules())
    {
        const std::string buildId = BuildIdText(module);
        PrintFields(output, {Hex(module.m_base), std::to_string(module.m_size), buildId.empty() ? kEmptyField : buildId,
                             Printable(module.m_path)});
    }
}

const char* EndName(XMinidumpStackEnd end)
{
    switch (end)
    {
    case XMinidumpStackEnd::kComplete:
        return "complete";
    case XMinidumpStackEnd::kNoRegisters:
        return "no registers";
    case XMinidumpStackEnd::kNoMemory:
        return "no memory";
    case XMinidumpStackEnd::kNoModule:
        return "no module";
    case XMinidumpStackEnd::kNoFile:
        return "no file";
    case XMinidumpStackEnd::kNoRules:
        return "no rules";
    case XMinidumpStackEnd::kTooDeep:
        break;
    }
    return "too deep";
}

Json OrNull(bool isKnown, const Json& value)
{
    return isKnown ? value : Json();
}

Json FrameJson(const XMinidump& dump, const XMinidumpFrame& frame)
{
    return Json::Object({{"address", Hex(frame.m_instruction)},
                         {"module", OrNull(frame.m_module >= 0, ModuleName(dump, frame.m_module))},
                         {"function", OrNull(!frame.m_function.IsEmpty(), frame.m_function)},
                         {"offset", frame.m_offset}});
}

Json ThreadJson(const XMinidump& dump, int index)
{
    XMinidumpStackEnd end{};
    const std::vector<XMinidumpFrame> frames = dump.GetStack(index, end);
    return Json::Object(
        {{"id", dump.GetThreads()[static_cast<std::size_t>(index)].m_id},
         {"crashed", index == dump.GetFaultThread()},
         {"frames", Json::ListOf(frames, [&dump](const auto& frame) { return FrameJson(dump, frame); })},
         {"end", EndName(end)}});
}

Json FaultJson(const XMinidump& dump)
{
    if (!dump.Has(XMinidumpPart::kException) || !dump.HasSignal())
        return {};
    const unsigned number = dump.GetSignal();
    return Json::Object({{dump.IsLinux() ? "signal" : "exception", number},
                         {"name", OrNull(dump.IsLinux(), SignalName(static_cast<int>(number)))},
                         {"code", static_cast<int>(dump.GetSignalCode())},
                         {"address", Hex(dump.GetFaultAddress())}});
}

Json SystemJson(const XMinidump& dump)
{
    if (!dump.Has(XMinidumpPart::kSystem))
        return {};
    return Json::Object({{"name", dump.GetSystemName()},
                         {"processors", OrNull(dump.GetProcessorCount() != 0, dump.GetProcessorCount())},
                         {"text", OrNull(!dump.GetSystemText().IsEmpty(), dump.GetSystemText())}});
}

/// What PrintDump prints; stacks and modules where the options ask for them.
Json DumpJson(const XMinidump& dump, const std::string& name, const CrashOptions& options)
{
    std::vector<Json> threads;
    for (int i = 0; i < static_cast<int>(dump.GetThreads().size()); ++i)
    {
        if (options.m_allThreads || i == dump.GetFaultThread())
            threads.push_back(ThreadJson(dump, i));
    }
    Json::Members members = {
        {"name", name},
        {"process", OrNull(dump.Has(XMinidumpPart::kProcess), dump.GetProcessId())},
        {"fault", FaultJson(dump)},
        {"system", SystemJson(dump)},
        {"time", OrNull(dump.GetTime() != 0, IsoTime(dump.GetTime()))},
        {"threadCount", OrNull(dump.Has(XMinidumpPart::kThreads), dump.GetThreads().size())},
        {"threadsCut", dump.IsCut(XMinidumpPart::kThreads)},
        {"moduleCount", OrNull(dump.Has(XMinidumpPart::kModules), dump.GetModules().size())},
        {"modulesCut", dump.IsCut(XMinidumpPart::kModules)},
        {"threads", Json::List(threads)},
    };
    if (options.m_modules)
        members.emplace_back("modules", Json::ListOf(dump.GetModules(), [](const XMinidumpModule& module) {
                                 return Json::Object(
                                     {{"base", Hex(module.m_base)},
                                      {"size", module.m_size},
                                      {"buildId", OrNull(!module.m_buildId.empty(), BuildIdText(module))},
                                      {"path", module.m_path}});
                             }));
    return Json::Object(members);
}

/// A temporary folder, deleted with its contents.
class ScratchFolder
{
public:
    ScratchFolder() : m_path(fileCreateTemporaryFolder(L"TevCrash")) {}
    ~ScratchFolder()
    {
        std::error_code failure; // then it stays among the temporary files
        std::filesystem::remove_all(SystemPath(Narrow(m_path)), failure);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const CPathString& Path() const noexcept { return m_path; }

private:
    const CPathString m_path;
};

/// Loads a dump of a report.
void LoadDumpOf(const CrashOptions& options, CZip& zip, unsigned index, const std::string& name, XMinidump& dump)
{
    constexpr const wchar_t* kDump = L"report.dmp";
    const ScratchFolder scratch;
    if (zip.ExtractFile(index, scratch.Path(), false, kDump, false) != zipExtracted)
        throw Failure(options.m_file, name + ": " + FailureText(zip));
    if (!dump.Load(scratch.Path() / kDump))
        throw Failure(options.m_file, name + ": " + LastFailureText());
}

/// Prints the report: as JSON one object, with `files` empty where the file is a dump by itself.
class ReportPrinter
{
public:
    ReportPrinter(Session& session, const CrashOptions& options) : m_session(session), m_options(options) {}

    void Files(const std::vector<std::pair<std::string, unsigned __int64>>& files)
    {
        std::vector<Row> rows;
        for (const auto& [name, size] : files)
        {
            rows.push_back({name, std::to_string(size)});
            m_files.push_back(Json::Object({{"name", name}, {"bytes", size}}));
        }
        if (!m_options.m_isJson)
            PrintTable(m_session.m_output, {{"FILE"}, {"BYTES", true}}, rows);
    }

    void Dump(const XMinidump& dump, const std::string& name)
    {
        if (m_options.m_isJson)
            m_dumps.push_back(DumpJson(dump, name, m_options));
        else
            PrintDump(m_session.m_output, dump, name, m_options);
    }

    void Finish() const
    {
        if (!m_options.m_isJson)
            return;
        const Json report =
            Json::Object({{"file", m_options.m_file}, {"files", Json::List(m_files)}, {"dumps", Json::List(m_dumps)}});
        m_session.m_output.Write(report.Line());
    }

private:
    Session& m_session;
    const CrashOptions& m_options;
    std::vector<Json> m_files;
    std::vector<Json> m_dumps;
};

void ShowArchive(Session& session, const CrashOptions& options, ReportPrinter& printer)
{
    CZip zip;
    if (!zip.Open(Widen(options.m_file).c_str(), zipOpenReadOnly, false, nullptr))
        throw Failure(options.m_file, FailureText(zip));
    // A report is untrusted input and may be made to fill the disk; a genuine one holds no larger files.
    CXExtractionLimits limits;
    limits.m_totalBytes = CCrashHandler::GetFileSizeLimit();
    zip.SetLimits(limits);
    std::vector<std::pair<std::string, unsigned __int64>> files;
    std::vector<std::pair<unsigned, std::string>> dumps;
    for (unsigned i = 0; i < static_cast<unsigned>(zip.GetCount(false)); ++i)
    {
        CZipFileInfo info;
        if (!zip.GetFileInfo(info, i))
            continue;
        const std::string name = Printable(info.GetFileName());
        files.emplace_back(name, info.GetUncompressedSize());
        if (EndsWith(name, ".dmp"))
            dumps.emplace_back(i, name);
    }
    printer.Files(files);
    for (const auto& [index, name] : dumps)
        Attempt(session, options.m_file, [&, i = index, &text = name] {
            XMinidump dump;
            LoadDumpOf(options, zip, i, text, dump);
            printer.Dump(dump, text);
        });
}

void ShowReport(Session& session, const CrashOptions& options)
{
    ReportPrinter printer(session, options);
    XMinidump single;
    if (single.Load(Widen(options.m_file).c_str()))
        printer.Dump(single, options.m_file);
    else
        ShowArchive(session, options, printer);
    printer.Finish();
}
} // namespace

void AddCrashCommands(const ToolCommand& tool, Session& session)
{
    const ToolCommand crash = tool.AddFamily("crash", "Look into crash reports");
    const auto options = std::make_shared<CrashOptions>();
    const ToolCommand show =
        crash.AddCommand("show", "Show what a report holds: its files, the signal, threads, stacks");
    show.AddArgument("REPORT", options->m_file, "The archive, or the dump by itself").Required();
    show.AddFlag("--threads", options->m_allThreads, "The stacks of all threads, not only of the one that crashed");
    show.AddFlag("--modules", options->m_modules, "The programs and libraries: base, size, build identifier, path");
    AddJsonFlag(show, options->m_isJson);
    show.OnRun([&session, options] { Attempt(session, options->m_file, [&] { ShowReport(session, *options); }); });
}

} // namespace tev::tool
