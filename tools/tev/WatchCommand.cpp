#include "tools/tev/WatchCommand.h"

#include "objects/LastFailure.h"
#include "services/CWatchFolder.h"
#include "tools/tev/CommandLine.h"
#include "tools/tev/Json.h"
#include "tools/tev/System.h"
#include "tools/tev/Tool.h"

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace tev::tool
{
namespace
{
const std::map<std::string, unsigned> kFilters = {
    {"files", CWatchFolder::kFileNames},       {"folders", CWatchFolder::kFolderNames},
    {"attributes", CWatchFolder::kAttributes}, {"size", CWatchFolder::kSize},
    {"write", CWatchFolder::kLastWrite},       {"access", CWatchFolder::kLastAccess},
    {"creation", CWatchFolder::kCreation},     {"security", CWatchFolder::kSecurity},
};

std::string FilterNames()
{
    std::string names;
    for (const auto& filter : kFilters)
        names += (names.empty() ? "" : ", ") + filter.first;
    return names;
}

struct WatchOptions
{
    std::vector<std::string> m_folders;
    bool m_tree = false;
    std::vector<std::string> m_filters = {"files", "folders", "size", "write"};
    unsigned m_interval = 100;
    bool m_null = false;
    bool m_isJson = false;
};

const char* Word(CWatchFolder::FileChange change)
{
    switch (change)
    {
    case CWatchFolder::xChangeAdded:
        return "added";
    case CWatchFolder::xChangeRemoved:
        return "removed";
    case CWatchFolder::xChangeModified:
        return "modified";
    case CWatchFolder::xChangeRenamed:
        return "renamed";
    case CWatchFolder::xChangeWholeFolder:
        break;
    }
    return "folder";
}

void Print(Output& output, CWatchFolder& watcher, char end)
{
    const bool isTerminal = IsTerminal(kStandardOutput);
    std::map<std::string, CWatchFolder::FileChange> sorted;
    const CWatchFolder::Changes& changes = watcher.GetChanges();
    CXTString<wchar_t> path;
    CWatchFolder::FileChange change{};
    for (unsigned position = changes.GetFirst(); changes.GetNext(position, path, change);)
        sorted[isTerminal ? Printable(path) : Narrow(path)] = change;
    watcher.ReleaseChanges();
    for (const auto& [name, what] : sorted)
        output.Write(Word(what) + ("\t" + name) + end);
    output.Flush();
}

/// In their order, with both names of what was renamed.
void PrintJson(Output& output, CWatchFolder& watcher)
{
    std::string lines;
    watcher.GetChanges();
    for (const CWatchFolder::OrderedChange& change : watcher.GetChangeList())
    {
        Json::Members members = {{"change", Word(change.m_change)}, {"path", change.m_path}};
        if (change.m_change == CWatchFolder::xChangeRenamed)
        {
            members.emplace_back("from", change.m_oldPath);
            members.emplace_back("exchanged", change.m_isExchange);
        }
        lines += Json::Object(members).Line();
    }
    watcher.ReleaseChanges();
    output.Write(lines);
    output.Flush();
}

void Watch(Session& session, const WatchOptions& options)
{
    unsigned filter = 0;
    for (const std::string& name : options.m_filters)
        filter |= kFilters.at(name);
    CWatchFolder watcher;
    for (const std::string& folder : options.m_folders)
    {
        const CXTString<wchar_t> path(Widen(folder).c_str());
        if (!watcher.AddRefreshNotification(path, options.m_tree, filter))
            throw Failure(folder, Narrow(XGetSystemErrorText(XLastFailure().GetSystemError())));
    }
    while (!session.m_output.IsBroken())
    {
        const bool hasChanged = watcher.CheckRefreshNotification();
        if (hasChanged && options.m_isJson)
            PrintJson(session.m_output, watcher);
        else if (hasChanged)
            Print(session.m_output, watcher, options.m_null ? '\0' : '\n');
        std::this_thread::sleep_for(std::chrono::milliseconds(options.m_interval));
    }
}
} // namespace

void AddWatchCommand(const ToolCommand& tool, Session& session)
{
    const auto options = std::make_shared<WatchOptions>();
    const ToolCommand command = tool.AddCommand("watch", "Print what changes in folders, until interrupted");
    command.Footer(
        "Each line is `added`, `removed`, `modified`, `renamed` (for the old name and for the new one) or\n"
        "`folder` (too many changes to list: read it again), a tab, and the path.\n\n"
        "WHAT: files and folders that are created, deleted or renamed, and changes of files: attributes, size,\n"
        "time of the last write, of access or of creation, permissions (security).");
    command.AddArgument("DIR", options->m_folders, "The folders").Required();
    command.AddFlag("--tree", options->m_tree, "With all folders beneath them");
    command.AddOption("--filter", options->m_filters, "What to report: " + FilterNames())
        .CommaSeparated()
        .OneOf(kFilters)
        .ValueName("WHAT,...")
        .ShowDefault();
    command.AddOption("--interval", options->m_interval, "Time between two polls, 1 to 60000 milliseconds")
        .InRange(1, 60000)
        .ValueName("MS")
        .ShowDefault();
    const ToolOption null =
        command.AddFlag("-0,--null", options->m_null, "End each line with a NUL, for names that hold line ends");
    command.AddFlag("--json", options->m_isJson, "As JSON, an object a line, with both names of what was renamed")
        .Excludes(null);
    command.OnRun(
        [&session, options] { Attempt(session, options->m_folders.front(), [&] { Watch(session, *options); }); });
}

} // namespace tev::tool
