#include "tests/trials/Operations.h"
#include "tests/trials/OperationFiles.h"

#include "TevTools.h"

#include <map>
#include <memory>
#include <new>
#include <vector>

namespace tev::trials
{
namespace
{
using Texts = CXArray<Text, const Text&>;

constexpr unsigned kKey = 7;
constexpr unsigned kId = 3;
constexpr std::size_t kBigSize = 300000;

/// Hardly compressible, the same each time.
std::string BigText()
{
    std::string text;
    for (unsigned x = 1; text.size() < kBigSize; x = x * 1664525 + 1013904223)
        text += static_cast<char>(x >> 24);
    return text;
}

Told g_told;
bool g_hasThrown = false;

/// Calls what throws nothing, whatever fails.
template <class Call>
auto Quietly(Call&& call)
{
    try
    {
        return call();
    }
    catch (...)
    {
        g_hasThrown = true;
        throw;
    }
}

// Preference files.

bool SaveStore(const fs::path& folder, unsigned key, int value)
{
    CCustomData store;
    return store.SetInt(kId, value) && store.SaveToPrefs(PathOf(folder, "prefs"), key, kKey);
}

int LoadStore(const fs::path& folder, unsigned key)
{
    CCustomData store;
    int value = 0;
    if (store.LoadFromPrefs(PathOf(folder, "prefs"), key, kKey, true))
        store.GetInt(kId, value, 0);
    return value;
}

void PreparePreferences(const fs::path& folder)
{
    SaveStore(folder, 1, 10);
    SaveStore(folder, 2, 20);
    HideBehindLink(folder, "prefs");
}

State LookAtPreferences(const fs::path& folder, int newValue)
{
    std::vector<XPreferenceRecord> records;
    if (!XListPreferences(PathOf(folder, "prefs"), records) || LoadStore(folder, 2) != 20 ||
        !IsLinkKept(folder, "prefs"))
        return State::Damaged;
    const int value = LoadStore(folder, 1);
    return value == newValue ? State::New : value == 10 ? State::Old : State::Damaged;
}

State LookAtSavedPreferences(const fs::path& folder)
{
    return LookAtPreferences(folder, 11);
}

State LookAtRemovedPreferences(const fs::path& folder)
{
    return LookAtPreferences(folder, 0);
}

bool SavePreferences(const fs::path& folder)
{
    return SaveStore(folder, 1, 11);
}

bool UpdatePreferences(const fs::path& folder)
{
    return XUpdatePreferences(PathOf(folder, "prefs"), 1, kKey, [](CCustomData& store) {
        if (!store.SetInt(kId, 11))
            throw std::bad_alloc();
    });
}

bool RemovePreferences(const fs::path& folder)
{
    return XRemovePreference(PathOf(folder, "prefs"), 1, kKey);
}

// Archives that are changed.

/// A change that ends half-way is not saved.
struct Discarding
{
    ~Discarding() { m_zip.Discard(); }
    CZip& m_zip;
};

/// Notes why the last operation of an archive failed.
bool Note(const CZip& zip, bool isDone)
{
    if (isDone)
        return true;
    const XZipFailure failure = zip.GetLastFailure();
    g_told.byClass =
        failure == XZipFailure::kSystem ? zip.GetLastSystemError() : kToldOther + static_cast<unsigned>(failure);
    return false;
}

/// Notes why an extraction failed.
bool Note(const CMiniZip& zip, bool isDone)
{
    if (isDone)
        return true;
    const CXExtractionFailure failure = zip.GetFailure();
    g_told.byClass = failure == CXExtractionFailure::kNoMemory           ? kToldMemory
                     : failure == CXExtractionFailure::kTooManyOpenFiles ? kToldDescriptors
                     : failure == CXExtractionFailure::kNotWritable || failure == CXExtractionFailure::kNoArchive
                         ? kToldUnreachable
                         : kToldOther + static_cast<unsigned>(failure);
    return false;
}

unsigned ToldBy(const XFailure& failure)
{
    if (!failure)
        return kToldNothing;
    if (failure.GetKind() == XFailureKind::kMemory)
        return kToldMemory;
    return failure.GetSystemError() != 0 ? failure.GetSystemError()
                                         : kToldOther + static_cast<unsigned>(failure.GetKind());
}

template <class Change>
bool ChangeArchive(const fs::path& folder, ZipOpenMode mode, Change&& change)
{
    const Text path = PathOf(folder, "x.zip");
    CZip zip;
    const Discarding discarding{zip};
    if (!Note(zip, Quietly([&] { return zip.Open(path, mode, false, nullptr); })) || !change(zip))
        return false;
    Quietly([&] { zip.Close(false); });
    return Note(zip, zip.GetLastFailure() == XZipFailure::kNone);
}

bool Add(CZip& zip, const fs::path& folder, const wchar_t* name)
{
    const Text path = PathOf(folder, "big");
    return Note(zip, Quietly([&] { return zip.AddNewFile(path, name, zipLevelFastest); }));
}

void PrepareFile(const fs::path& folder)
{
    WriteAll(folder / "big", BigText());
}

void PrepareArchive(const fs::path& folder)
{
    PrepareFile(folder);
    ChangeArchive(folder, zipCreate, [&](CZip& zip) { return Add(zip, folder, L"one") && Add(zip, folder, L"two"); });
    HideBehindLink(folder, "x.zip");
}

/// The names of the entries, of which each is sound, each followed by '|'; "?" where one is not.
std::wstring SoundEntries(const fs::path& folder)
{
    CZip zip;
    zip.SetPassword(L"secret");
    std::wstring names;
    if (!zip.Open(PathOf(folder, "x.zip"), zipOpenReadOnly, false, nullptr))
        return L"?";
    for (unsigned index = 0; index < static_cast<unsigned>(zip.GetCount(false)); ++index)
    {
        CZipFileInfo info;
        if (!zip.GetFileInfo(info, index) || zip.TestFile(index) != zipExtracted)
            return L"?";
        names += std::wstring(info.GetFileName()) + L"|";
    }
    return names;
}

template <const wchar_t* Expected>
State LookAtArchive(const fs::path& folder)
{
    const std::wstring names = SoundEntries(folder);
    if (!IsLinkKept(folder, "x.zip"))
        return State::Damaged;
    return names == L"one|two|" ? State::Old : names == Expected ? State::New : State::Damaged;
}

State LookAtNewArchive(const fs::path& folder)
{
    if (!fs::exists(folder / "x.zip"))
        return State::Old;
    return SoundEntries(folder) == L"one|two|" ? State::New : State::Damaged;
}

bool CreateArchive(const fs::path& folder)
{
    return ChangeArchive(folder, zipCreate,
                         [&](CZip& zip) { return Add(zip, folder, L"one") && Add(zip, folder, L"two"); });
}

/// Whether the archive has the entry; `isKnown` is false when memory ran out over that.
bool Has(CZip& zip, const wchar_t* name, bool& isKnown)
{
    const bool isFound = Quietly([&] { return zip.FindFile(name, true, false); }) != xZipNoEntry;
    isKnown = isFound || Note(zip, zip.GetLastFailure() == XZipFailure::kNotFound);
    return isFound;
}

bool AddUnlessThere(CZip& zip, const fs::path& folder)
{
    bool isKnown = false;
    return Has(zip, L"three", isKnown) || (isKnown && Add(zip, folder, L"three"));
}

bool AddEntry(const fs::path& folder)
{
    return ChangeArchive(folder, zipOpenReadWrite, [&](CZip& zip) { return AddUnlessThere(zip, folder); });
}

bool AddEncrypted(const fs::path& folder)
{
    return ChangeArchive(folder, zipOpenReadWrite, [&](CZip& zip) {
        Quietly([&] { zip.SetPassword(L"secret"); });
        return AddUnlessThere(zip, folder);
    });
}

bool DeleteEntry(const fs::path& folder)
{
    return ChangeArchive(folder, zipOpenReadWrite, [](CZip& zip) {
        Texts names;
        names.Add(L"one");
        bool isKnown = false;
        if (!Has(zip, L"one", isKnown))
            return isKnown;
        return Note(zip, Quietly([&] { return zip.DeleteFiles(names); }));
    });
}

bool RenameEntries(const fs::path& folder)
{
    return ChangeArchive(folder, zipOpenReadWrite, [](CZip& zip) {
        CZipFileInfo info;
        if (!Note(zip, Quietly([&] { return zip.GetCount(true) == 2 && zip.GetFileInfo(info, 0); })))
            return false;
        Texts oldNames;
        Texts newNames;
        for (const wchar_t* const name : {L"one", L"two"})
        {
            oldNames.Add(name);
            newNames.Add(Text(name) + L"-new");
        }
        return info.GetFileName() != L"one" || Note(zip, Quietly([&] { return zip.RenameFiles(oldNames, newNames); }));
    });
}

bool DiscardChanges(const fs::path& folder)
{
    const Text path = PathOf(folder, "x.zip");
    CZip zip;
    const bool isChanged = Note(zip, Quietly([&] { return zip.Open(path, zipOpenReadWrite, false, nullptr); })) &&
                           Add(zip, folder, L"new");
    zip.Discard();
    return isChanged;
}

// Extraction.

const std::map<std::string, std::string>& ExtractedFiles()
{
    static const std::map<std::string, std::string> files = {
        {"one", BigText()}, {"sub/two", "small"}, {"three", std::string(5000, 't')}};
    return files;
}

void PrepareExtraction(const fs::path& folder)
{
    CZip zip;
    zip.Open(PathOf(folder, "x.zip"), zipCreate, false, nullptr);
    for (const auto& [name, contents] : ExtractedFiles())
    {
        const std::string source = "source-" + std::to_string(contents.size());
        WriteAll(folder / source, contents);
        zip.AddNewFile(PathOf(folder, source.c_str()), Text(name.c_str()), zipLevelFastest);
    }
    zip.Close(false);
    fs::create_directory(folder / "out");
    WriteAll(folder / "out/one", "old");
    GiveAway(folder / "out/one");
}

State LookAtFiles(const std::map<std::string, std::string>& files, const fs::path& folder)
{
    std::size_t complete = 0;
    for (const auto& [name, contents] : files)
    {
        const std::string found = ReadAll(folder / name);
        if (found == contents)
            ++complete;
        else if (name == "one" ? found != "old" : fs::exists(folder / name))
            return State::Damaged;
    }
    return complete == files.size() ? State::New : complete == 0 ? State::Old : State::Partly;
}

State LookAtExtraction(const fs::path& folder)
{
    return IsOwnerKept(folder / "out/one") ? LookAtFiles(ExtractedFiles(), folder / "out") : State::Damaged;
}

bool ExtractArchive(const fs::path& folder)
{
    const Text archive = PathOf(folder, "x.zip");
    const Text out = PathOf(folder, "out");
    CMiniZip zip;
    const bool isExtracted = Note(zip, Quietly([&] { return zip.ExtractZip(archive, out, true); }));
    // Without a failure, whatever is skipped is listed.
    return isExtracted && zip.GetFailure() == CXExtractionFailure::kNone && zip.GetSkippedEntries().empty();
}

void PrepareStream(const fs::path& folder, const char* command)
{
    fs::create_directory(folder / "out");
    WriteAll(folder / "source", BigText());
    if (std::system((std::string(command) + " < '" + (folder / "source").string() + "' > '" +
                     (folder / "packed").string() + "'")
                        .c_str()) != 0)
        std::abort();
    WriteAll(folder / "out/one", "old");
    HideBehindLink(folder / "out", "one");
}

void PrepareGZip(const fs::path& folder)
{
    PrepareStream(folder, "gzip -c");
}

void PrepareZStd(const fs::path& folder)
{
    PrepareStream(folder, "zstd -qc");
}

State LookAtStream(const fs::path& folder)
{
    const std::string found = ReadAll(folder / "out/one");
    const std::string whole = BigText();
    if (!IsLinkKept(folder / "out", "one"))
        return State::Damaged;
    const bool isCut = !found.empty() && found.size() < whole.size() && whole.compare(0, found.size(), found) == 0;
    return found == "old" ? State::Old : found == whole ? State::New : isCut ? State::Partly : State::Damaged;
}

bool ExtractStream(const fs::path& folder)
{
    const Text packed = PathOf(folder, "packed");
    const Text target = PathOf(folder, "out/one");
    CMiniZip zip;
    return Note(zip, Quietly([&] { return zip.ExtractZFile(packed, target, true); })) &&
           zip.GetFailure() == CXExtractionFailure::kNone;
}

constexpr wchar_t kOneAdded[] = L"one|two|three|";
constexpr wchar_t kOneDeleted[] = L"two|";
constexpr wchar_t kRenamed[] = L"one-new|two-new|";
} // namespace

const std::vector<Operation>& Operations()
{
    static const std::vector<Operation> operations = [] {
        std::vector<Operation> made = {
            {"preferences: save", PreparePreferences, SavePreferences, LookAtSavedPreferences, State::New, false, true},
            {"preferences: update", PreparePreferences, UpdatePreferences, LookAtSavedPreferences, State::New, false,
             true},
            {"preferences: remove", PreparePreferences, RemovePreferences, LookAtRemovedPreferences, State::New, false,
             true},
            {"CZip: create", PrepareFile, CreateArchive, LookAtNewArchive, State::New, false, true},
            {"CZip: add", PrepareArchive, AddEntry, LookAtArchive<kOneAdded>, State::New, false, true},
            {"CZip: add, encrypted", PrepareArchive, AddEncrypted, LookAtArchive<kOneAdded>, State::New, false, true},
            {"CZip: delete", PrepareArchive, DeleteEntry, LookAtArchive<kOneDeleted>, State::New, false, true},
            {"CZip: rename", PrepareArchive, RenameEntries, LookAtArchive<kRenamed>, State::New, false, true},
            {"CZip: discard", PrepareArchive, DiscardChanges, LookAtArchive<kOneAdded>, State::Old},
            {"CMiniZip: ZIP", PrepareExtraction, ExtractArchive, LookAtExtraction, State::New, true},
            {"CMiniZip: gzip", PrepareGZip, ExtractStream, LookAtStream, State::New, false, false, true},
            {"CMiniZip: Zstandard", PrepareZStd, ExtractStream, LookAtStream},
        };
        const std::vector<Operation> others = ServiceOperations();
        made.insert(made.end(), others.begin(), others.end());
        return made;
    }();
    return operations;
}

Told WhatWasTold()
{
    return g_told;
}

bool HasThrown()
{
    return g_hasThrown;
}

bool Succeeds(const Operation& operation, const fs::path& folder)
{
    XClearLastFailure();
    try
    {
        if (operation.run(folder))
            return true;
        g_told.byRecord = ToldBy(XLastFailure());
    }
    catch (CXException* failure)
    {
        failure->Delete();
    }
    catch (const std::bad_alloc&)
    {
        g_told.byRecord = kToldMemory;
    }
    return false;
}
} // namespace tev::trials
