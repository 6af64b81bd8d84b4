// The tables of docs/limits.md against the library.

#include "arrays/ArrayElements.h"
#include "arrays/ArrayGrowth.h"
#include "arrays/CBitArray.h"
#include "arrays/COffsetArray.h"
#include "crash/CCrashHandler.h"
#include "crash/XMinidump.h"
#include "files/CXArchive.h"
#include "files/CXFile.h"
#include "files/CXMemFile.h"
#include "files/CXStdioFile.h"
#include "maps/HashSizes.h"
#include "objects/FailureNote.h"
#include "platform/CrashDumps.h"
#include "platform/MinidumpWriter.h"
#include "services/CWatchFolder.h"
#include "services/FileWildcards.h"
#include "services/LogFile.h"
#include "settings/CCustomData.h"
#include "settings/CRegUtil.h"
#include "settings/PreferenceFile.h"
#include "tests/support/BufferedMemFile.h"
#include "tests/support/FileFailure.h"
#include "tests/support/Places.h"
#include "tests/support/Sanitized.h"
#include "tests/support/System.h"
#include "tests/support/TestRegistry.h"
#include "threads/CXThread.h"
#include "values/CFRect.h"
#include "values/CRGBColor.h"
#include "values/CXTime.h"
#include "zip/CMiniZip.h"
#include "zip/CXExtraction.h"
#include "zip/EntryName.h"

#include <regex>

namespace
{
using namespace tev::test;
using Number = unsigned __int64;

std::map<std::string, Number> LimitsOfThePage()
{
    std::ifstream page(std::string(kSourceFolder) + "/docs/limits.md");
    const std::regex row(R"(\| `([\w.]+)` \|[^|]+\| (\d+) \|.*)");
    std::map<std::string, Number> limits;
    std::smatch match;
    for (std::string line; std::getline(page, line);)
    {
        if (std::regex_match(line, match, row))
        {
            EXPECT_TRUE(limits.emplace(match[1], std::stoull(match[2])).second) << line;
        }
    }
    return limits;
}

int CauseOf(const std::function<void()>& call)
{
    return Thrown<CXArchiveException>(call);
}

class Link : public CXObject
{
public:
    X_DECLARE_CLASS(Link)
    void Serialize(CXArchive& archive) override { archive << m_next; }
    const Link* m_next = nullptr;
};
X_IMPLEMENT_CLASS(Link, CXObject, 1)

/// On a stack that does not end first.
bool StoresChain(Number length)
{
    struct Work
    {
        Number m_length;
        int m_cause;
    } work = {length, 0};
    const auto store = [](void* data) {
        auto& my = *static_cast<Work*>(data);
        std::vector<Link> links(static_cast<std::size_t>(my.m_length));
        for (std::size_t i = 1; i < links.size(); ++i)
            links[i - 1].m_next = &links[i];
        CXMemFile file;
        CXArchive archive(&file, xArchiveStore);
        my.m_cause = CauseOf([&] { archive << &links[0]; });
        return true;
    };
    const std::unique_ptr<CXThread> thread(CXThread::BeginThread(
        store, &work, xThreadPriorityNormal, CXThread::kBeginWithoutAutoDelete, std::uint64_t{256} << 20));
    EXPECT_TRUE(thread->WaitForEnd(60000));
    EXPECT_TRUE(work.m_cause == kNothingThrown || work.m_cause == archiveGeneric);
    return work.m_cause == kNothingThrown;
}

bool SavesClassName(Number length)
{
    const std::string name(static_cast<std::size_t>(length), 'C');
    const CXRuntimeClass type = {name.c_str(), sizeof(Link), 1, nullptr, nullptr};
    CXMemFile file;
    CXArchive archive(&file, xArchiveStore);
    return CauseOf([&] { type.Save(archive); }) == kNothingThrown;
}

bool SavesSchema(Number schema)
{
    const CXRuntimeClass type = {"Link", sizeof(Link), static_cast<unsigned>(schema), nullptr, nullptr};
    CXMemFile file;
    {
        CXArchive archive(&file, xArchiveStore);
        type.Save(archive);
    }
    file.SeekToBegin();
    CXArchive archive(&file, xArchiveLoad);
    unsigned loaded = 0;
    CXRuntimeClass::Load(archive, loaded);
    return loaded == schema;
}

/// What the system does not give counts as given.
bool HasStack(Number bytes)
{
    const auto measure = [](void* size) {
        pthread_attr_t attributes;
        void* start = nullptr;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstack(&attributes, &start, static_cast<std::size_t*>(size));
        return pthread_attr_destroy(&attributes) == 0;
    };
    std::size_t size = 0;
    const std::unique_ptr<CXThread> thread(
        CXThread::BeginThread(measure, &size, xThreadPriorityNormal, CXThread::kBeginWithoutAutoDelete, bytes));
    return thread == nullptr || (thread->WaitForEnd(60000) && size + 65536 > bytes);
}

/// A dump of one stream, the list of threads.
bool ReadsRecords(Number count)
{
    const auto threads = static_cast<unsigned>(count);
    const unsigned fields[] = {0x504D444D, 0xA793, 1, 32, 0, 0, 0, 0, 3, 4 + threads * 48, 44, threads};
    std::vector<unsigned char> bytes(sizeof(fields) + std::size_t{threads} * 48);
    std::memcpy(bytes.data(), fields, sizeof(fields));
    XMinidump dump;
    return dump.Parse(std::move(bytes)) && !dump.IsCut(XMinidumpPart::kThreads);
}

/// Too many threads and modules, all with large stacks.
struct Crowd final : tev::platform::DumpedProcess, tev::platform::DumpFile
{
    static constexpr std::uint64_t kApart = 1 << 24;

    bool Read(std::uint64_t address, void* buffer, std::size_t size) noexcept override
    {
        m_firstStack += address / kApart == 1 ? size : 0;
        return std::memset(buffer, 0, size) != nullptr;
    }
    std::size_t ThreadCount() const noexcept override { return 10000; }
    void GetThread(std::size_t index, tev::platform::DumpedThread& thread) noexcept override
    {
        thread.id = static_cast<unsigned>(index);
        thread.state.size = tev::platform::MachineState::kMostBytes;
        thread.state.stackPointer = (index + 1) * kApart;
        std::memset(thread.state.bytes, 0, sizeof(thread.state.bytes));
    }
    bool FindMapping(std::uint64_t address, tev::platform::DumpedMapping& mapping) noexcept override
    {
        mapping = {address, address + kApart, true, true};
        return true;
    }
    bool FindModule(std::uint64_t address, tev::platform::DumpedModule& module) noexcept override
    {
        module.start = address;
        module.end = address + 4096;
        return true;
    }
    std::uint64_t InterruptedStack(std::uint64_t) noexcept override { return 0; }
    bool Append(const void* bytes, std::size_t size) noexcept override
    {
        m_bytes.append(static_cast<const char*>(bytes), size);
        return true;
    }
    bool Overwrite(const void* bytes, std::size_t size) noexcept override
    {
        m_bytes.replace(0, size, static_cast<const char*>(bytes), size);
        return true;
    }
    std::string m_bytes;
    Number m_firstStack = 0;
};

std::map<std::string, Number> LimitsOfADump()
{
    Crowd crowd;
    tev::platform::DumpFacts facts;
    facts.processor = 9; // x86-64
    std::vector<unsigned char> workspace(tev::platform::kDumpWorkspace);
    EXPECT_TRUE(tev::platform::WriteMinidump(crowd, {1, SIGSEGV, 0, 0, {}, facts, crowd}, workspace.data()));
    XMinidump dump;
    EXPECT_TRUE(dump.Parse(std::vector<unsigned char>(crowd.m_bytes.begin(), crowd.m_bytes.end())));
    const auto& threads = dump.GetThreads();
    const auto hasRegisters = [](const XMinidumpThread& thread) { return thread.m_hasRegisters; };
    return {{"report.threads", threads.size()},
            {"report.registers", std::count_if(threads.begin(), threads.end(), hasRegisters)},
            {"report.stack", crowd.m_firstStack},
            {"report.modules", dump.GetModules().size()}};
}

[[gnu::noinline]] bool DumpBelow(int calls, const std::string& path) // NOLINT(misc-no-recursion)
{
    const volatile bool isDone =
        calls == 0 ? tev::platform::WriteDumpNow(path.c_str(), {}) : DumpBelow(calls - 1, path);
    return isDone; // so that the call above is no jump
}

Number MostFrames()
{
    const TempFolder folder;
    tev::platform::PrepareDumps("");
    std::thread([&] { EXPECT_TRUE(DumpBelow(1500, folder.Path("a.dmp").string())); }).join();
    tev::platform::EndDumps();
    XMinidump dump;
    EXPECT_TRUE(dump.Load(folder.WidePath("a.dmp")));
    XMinidumpStackEnd end = XMinidumpStackEnd::kComplete;
    const std::size_t frames = dump.GetStack(dump.GetFaultThread(), end).size();
    EXPECT_EQ(end, XMinidumpStackEnd::kTooDeep);
    return frames;
}

bool IsAPath(Number length)
{
    CXFile file(false);
    CXFileException error;
    EXPECT_FALSE(file.Open(std::wstring(static_cast<std::size_t>(length), L'/').c_str(), CXFile::modeRead, &error));
    return error.GetCause() != fileBadPath;
}

bool WritesToRegistry(const std::wstring& key, const std::wstring& name)
{
    const TestRegistry registry;
    CRegUtil util(CRegUtil::kAllAccess);
    return util.SetPath(L"HKEY_CURRENT_USER", false) && util.WriteSubKeyInt(key.c_str(), name.c_str(), 1) &&
           util.GetSubKeyInt(key.c_str(), name.c_str(), 0) == 1;
}

std::wstring Levels(Number count)
{
    std::wstring key = L"k";
    while (--count != 0)
        key += L"\\k";
    return key;
}

bool IsLogged(Number level)
{
    const TempFolder folder;
    EXPECT_TRUE(SetLogFile(folder.WidePath("a.log").c_str(), xLogCreate, 0xFF));
    const auto before = std::filesystem::file_size(folder.Path("a.log"));
    WriteToLogFile(static_cast<unsigned>(level), L"message");
    const bool isLogged = std::filesystem::file_size(folder.Path("a.log")) != before;
    CloseLogFile();
    return isLogged;
}

bool IsListed(Number bytes)
{
    const TempFolder folder;
    const auto path = folder.Path("prefs");
    std::ofstream(path).close();
    std::filesystem::resize_file(path, bytes); // takes no room on the disk
    std::vector<XPreferenceRecord> records;
    return Thrown([&] { static_cast<void>(XListPreferences(path.wstring().c_str(), records)); }) != fileInvalidFile;
}

bool IsSafe(const std::string& name)
{
    return tev::SafeEntryName(name).has_value();
}

std::string Components(Number bytes)
{
    std::string name(static_cast<std::size_t>(bytes), 'n');
    for (std::size_t at = 200; at < name.size() - 1; at += 200)
        name[at] = '/';
    return name;
}

std::string Separated(Number components)
{
    std::string name = "n";
    while (--components != 0)
        name += "/n";
    return name;
}

/// The bytes that an archive collects whose buffer was asked to be smaller.
Number LeastBuffer()
{
    BufferedMemFile file;
    CXArchive archive(&file, xArchiveStore, 1);
    while (file.GetLength() == 0)
        archive << 'c';
    return file.GetLength();
}

template <std::size_t... ONE>
bool FormatsPositions(Number count, std::index_sequence<ONE...>)
{
    std::string format;
    for (Number i = 1; i <= count; ++i)
        format += '%' + std::to_string(i) + "$d";
    CXTString<char> text;
    text.Format(format.c_str(), static_cast<int>(ONE)...);
    return !text.IsEmpty();
}

/// Each thread has a failure of its own, the first one looks for its path at the end.
bool KeepsPathsOf(Number threads)
{
    bool isKept = false;
    std::thread first([&] {
        tev::NoteBadData("limits", L"path");
        for (Number i = 1; i < threads; ++i)
            std::thread([] { tev::NoteBadData("limits", L"other"); }).join();
        isKept = XLastFailure().GetPath() == std::wstring(L"path");
    });
    first.join();
    return isKept;
}

template <class VALUE>
bool IsRead(const std::string& text)
{
    std::stringstream stream(text);
    VALUE value(0);
    stream >> value;
    if (stream.fail())
        return false;
    std::ostringstream again;
    again << value;
    return again.str() == text;
}

bool IsExpanded(Number length)
{
    const TestRegistry registry;
    const EnvironmentVariable variable("TEVTOOLS_TEST_TEXT", std::string(static_cast<std::size_t>(length), 'x'));
    CRegUtil util(CRegUtil::kAllAccess);
    CXTString<char> bytes;
    EXPECT_TRUE(XEncodeText(L"%TEVTOOLS_TEST_TEXT%", 21, xEncodingUtf16, bytes));
    EXPECT_TRUE(util.SetPath(L"HKEY_CURRENT_USER\\limits", true));
    EXPECT_TRUE(util.WriteValue(L"text", CRegUtil::kTypeExpandString, bytes, 42));
    return util.GetKeyString(L"text", true).GetLength64() == length;
}

bool IsDumped(Number levels)
{
    CCustomData store;
    EXPECT_TRUE(store.SetFloat(1, 1));
    while (levels-- != 0)
    {
        CCustomData outer;
        EXPECT_TRUE(outer.SetCustomData(1, store));
        store = outer;
    }
    return store.DumpCustomData(true, 0).Find(L"FLOA") >= 0;
}

Number LeastStdioBuffer()
{
    const TempFolder folder;
    CXStdioFile file(folder.WidePath("file"), CXFile::modeCreate | CXFile::modeWrite);
    file.SetBufferSize(1);
    while (std::filesystem::file_size(folder.Path("file")) == 0)
        file.Write("c", 1);
    return std::filesystem::file_size(folder.Path("file"));
}

/// The largest that one of the bytes for a window's size tells.
Number LargestWindow()
{
    const TempFolder folder;
    CMiniZip zip;
    Number largest = 0;
    for (unsigned code = 0x78; code != 0x98; ++code)
    {
        const char frame[] = {'\x28', '\xB5', '\x2F', '\xFD', 0, static_cast<char>(code), '\x09', 0, 0, 'x'};
        const std::wstring source = folder.WriteFile("a.zst", std::string(frame, sizeof(frame)));
        if (zip.ExtractZStd(source, folder.WidePath("a"), false))
            largest = (Number{1} << (10 + (code >> 3))) / 8 * (8 + (code & 7));
    }
    return largest;
}

bool ListsChanges(Number count)
{
    constexpr Number kAtOnce = 64; // fewer than a watch's buffer holds
    const TempFolder folder;
    const std::string path = folder.Path("a").string();
    CWatchFolder watch;
    EXPECT_TRUE(watch.AddRefreshNotification(folder.WidePath(), false, CWatchFolder::kFileNames));
    for (Number i = 0; i < count; ++i)
    {
        EXPECT_EQ(i % 2 == 0 ? mknod(path.c_str(), S_IFREG | 0600, 0) : unlink(path.c_str()), 0);
        if (i % kAtOnce == 0 || i + 1 == count)
            watch.CheckRefreshNotification();
    }
    watch.GetChanges();
    const Number listed = watch.GetChangeList().size();
    watch.ReleaseChanges();
    return listed == count;
}

/// Whether a number is within a limit.
using Holds = std::function<bool(Number)>;
constexpr Number kUnlimited = std::numeric_limits<Number>::max();

const std::map<std::string, Holds> kWithin = {
    {"string.getLength",
     [](Number n) {
         CXTString<char> text;
         CXTCharArray<char>& fields = text;
         fields.m_length = n;
         const bool isReported = static_cast<Number>(text.GetLength()) == n;
         fields.m_length = 0;
         return isReported;
     }},
    {"format.positions", [](Number n) { return FormatsPositions(n, std::make_index_sequence<70>()); }},
    {"failure.path",
     [](Number n) {
         tev::NoteBadData("limits", std::wstring(static_cast<std::size_t>(n), L'p').c_str());
         return !XLastFailure().IsPathCut();
     }},
    {"failure.paths", KeepsPathsOf},
    {"rect.coordinate", [](Number n) { return Number(tev::TruncateToInt(static_cast<double>(n))) == n; }},
    {"color.sum",
     [](Number n) {
         const CRGB32Color sum(static_cast<unsigned>(n), 0, 0);
         return (sum.ConvertToRGBColor(static_cast<float>(n) / 200).GetRGB() & 0xFF) == 200;
     }},
    {"time.seconds",
     [](Number n) {
         const std::string text = '@' + std::to_string(n);
         return IsRead<CXTime>(text) && IsRead<CXTime>("@-" + text.substr(1));
     }},
    {"time.year", [](Number n) { return IsRead<CXTime>(std::to_string(n) + "-12-31T23:59:59Z"); }},
    {"patterns.length",
     [](Number n) {
         const std::wstring list(static_cast<std::size_t>(n), L'p');
         return fileCleanExtensionList(list, true) == CXTString<wchar_t>(L"*" + list + L"*");
     }},
    {"registry.expanded", IsExpanded},
    {"store.dump", IsDumped},
    {"array.elements", [](Number n) { return CauseOf([n] { tev::ArrayCount(n); }) == kNothingThrown; }},
    {"bits.count",
     [](Number n) {
         CBitArray bits;
         bits.SetBuffer(new unsigned[1]{}, static_cast<unsigned>(n), 1);
         return bits.GetSize() == n;
     }},
    {"map.slots", [](Number n) { return n <= 0xFFFFFFFF && tev::HashSizeForRequest(static_cast<unsigned>(n)) == n; }},
    {"archive.nesting", StoresChain},
    {"archive.className", SavesClassName},
    {"archive.schema", SavesSchema},
    {"file.path", IsAPath},
    {"thread.stack", HasStack},
    {"dump.records", ReadsRecords},
    {"registry.keyName", [](Number n) { return WritesToRegistry(std::wstring(n, L'k'), L"value"); }},
    {"registry.valueName", [](Number n) { return WritesToRegistry(L"key", std::wstring(n, L'v')); }},
    {"registry.depth", [](Number n) { return WritesToRegistry(Levels(n), L"value"); }},
    {"watch.list", ListsChanges},
    {"time.format",
     [](Number n) { return !CXTime(0).Format(std::wstring(static_cast<std::size_t>(n), L'x').c_str()).IsEmpty(); }},
    {"log.level", IsLogged},
    {"zip.component", [](Number n) { return IsSafe(std::string(n, 'n')); }},
    {"zip.components", [](Number n) { return IsSafe(Separated(n)); }},
    {"zip.name", [](Number n) { return IsSafe(Components(n)); }},
    {"extraction.bytes", [](Number n) { return CXExtractionLimits().Allows(n, kUnlimited); }},
    {"extraction.ratio", [](Number n) { return CXExtractionLimits().Allows(n, 1); }},
};

/// The same, for limits that take too much memory to be reached: only what is beyond is tried.
const std::map<std::string, Holds> kNotBeyond = {
    {"offsets.entries",
     [](Number n) {
         COffsetArray offsets;
         return CauseOf([&] { offsets.SetAtGrow(static_cast<unsigned>(n - 1), 1); }) != kInvalidArgument;
     }},
    {"memory.setLength", [](Number n) { return Thrown([n] { CXMemFile().SetLength(n); }) == kNothingThrown; }},
    {"store.bytes", [](Number n) { return CCustomData().SetBinary(1, nullptr, static_cast<unsigned>(n - 12)); }},
    {"preferences.bytes", IsListed},
    {"format.length",
     [](Number n) {
         CXTString<char> text;
         text.Format(("x%" + std::to_string(n - 1) + "d").c_str(), 1);
         return !text.IsEmpty();
     }},
};

/// What has one value.
std::map<std::string, Number> Values()
{
    std::map<std::string, Number> values = LimitsOfADump();
    values.insert({{"map.leastSlots", tev::HashSizeForRequest(0)},
                   {"archive.leastBuffer", LeastBuffer()},
                   {"stdio.leastBuffer", LeastStdioBuffer()},
                   {"zstd.window", LargestWindow()},
                   {"report.file", CCrashHandler::GetFileSizeLimit()}});
    return values;
}

TEST(Limits, ThePageSaysWhatHolds)
{
    std::map<std::string, Number> limits = LimitsOfThePage();
    for (const auto& [name, holds] : kWithin)
    {
        ASSERT_EQ(limits.count(name), 1U) << name;
        EXPECT_TRUE(holds(limits[name])) << name;
        EXPECT_FALSE(holds(limits[name] + 1)) << name;
        limits.erase(name);
    }
    for (const auto& [name, holds] : kNotBeyond)
    {
        ASSERT_EQ(limits.count(name), 1U) << name;
        EXPECT_FALSE(holds(limits[name] + 1)) << name;
        limits.erase(name);
    }
    const Number frames = limits["dump.frames"];
    limits.erase("dump.frames");
    EXPECT_TRUE(kIsSanitized || frames == MostFrames()); // which takes half a minute with a sanitizer
    EXPECT_EQ(limits, Values());
}
} // namespace
