#include "platform/PathNames.h"
#include "text/TextView.h"
#include "zip/ZipAction.h"
#include "zip/ZipArchive.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <set>

namespace tev
{
namespace
{
using platform::FileInformation;
using platform::FileKind;
using platform::ZipEntryKind;
using platform::ZipError;

constexpr NameRule kExact = {true, false};
constexpr unsigned kNotEnoughMemory = 8;

constexpr ZipOutcome Refused(XZipFailure failure)
{
    return {failure, 0};
}

platform::ZipEncryption EngineEncryption(const ZipArchive::Secret& secret)
{
    if (secret.m_password.IsEmpty())
        return platform::ZipEncryption::None;
    switch (secret.m_encryption)
    {
    case XZipEncryption::kTraditional:
        return platform::ZipEncryption::Traditional;
    case XZipEncryption::kAes128:
        return platform::ZipEncryption::Aes128;
    case XZipEncryption::kAes192:
        return platform::ZipEncryption::Aes192;
    default:
        return platform::ZipEncryption::Aes256;
    }
}
} // namespace

ZipOutcome ZipArchive::Add(const wchar_t* path, const wchar_t* name, ZipCompressionLevel level, const Secret& secret)
{
    if (m_isReadOnly)
        return Refused(XZipFailure::kReadOnly);
    if (path == nullptr || name == nullptr || level < zipLevelDefault || level > zipLevelBest)
        return Refused(XZipFailure::kInvalidArgument);
    const std::wstring fullPath = platform::FullPath(path);
    FileInformation information;
    if (!platform::GetFileInformation(fullPath.c_str(), information))
        return ZipOutcome::OfSystem();
    if (information.kind == FileKind::Other)
        return Refused(XZipFailure::kSpecialFile);
    const bool isFolder = information.kind == FileKind::Folder;
    if (!isFolder && m_stamp && m_stamp->IsSameFile(information))
        return Refused(XZipFailure::kInvalidArgument); // an archive cannot hold itself
    const std::optional<std::string> entryName = NewEntryName(name, isFolder);
    if (!entryName)
        return Refused(XZipFailure::kUnsafeName);

    platform::ZipAddition addition;
    addition.name = *entryName;
    addition.modified = information.lastWrite;
    addition.permissions = information.permissions;
    addition.level = level;
    addition.encryption = EngineEncryption(secret);
    addition.password = secret.m_password;
    if (!isFolder)
    {
        const std::unique_ptr<ZipFileBytes> bytes = ZipFileBytes::Open(fullPath.c_str());
        if (bytes == nullptr)
            return ZipOutcome::OfSystem();
        addition.size = bytes->Size();
        addition.open = [fullPath] { return ZipFileBytes::Open(fullPath.c_str()); };
    }
    ZipError error;
    if (!m_engine->Add(std::move(addition), error))
        return ZipOutcome::Of(error);
    ForgetNames();
    return {};
}

ZipOutcome ZipArchive::Delete(const ZipNames& names)
{
    if (m_isReadOnly)
        return Refused(XZipFailure::kReadOnly);
    std::vector<unsigned> indexes;
    for (const CXTString<wchar_t>& name : names)
    {
        const std::vector<unsigned> found = FindEach(ViewOf(name), kExact, false);
        if (found.empty())
            return Refused(XZipFailure::kNotFound);
        indexes.insert(indexes.end(), found.begin(), found.end());
    }
    std::sort(indexes.begin(), indexes.end(), std::greater<>());
    indexes.erase(std::unique(indexes.begin(), indexes.end()), indexes.end());
    return ChangeAll([&](ZipError& error) {
        // The last one first, so that the others keep theirs.
        return std::all_of(indexes.begin(), indexes.end(),
                           [&](unsigned index) { return m_engine->Delete(index, error); });
    });
}

ZipOutcome ZipArchive::PlanRenaming(const ZipNames& oldNames, const ZipNames& newNames,
                                    std::vector<Renaming>& renamings)
{
    if (oldNames.GetSize() != newNames.GetSize())
        return Refused(XZipFailure::kInvalidArgument);
    std::vector<unsigned> indexes;
    for (const CXTString<wchar_t>& name : oldNames)
    {
        indexes.push_back(Find(ViewOf(name), kExact));
        if (indexes.back() == xZipNoEntry)
            return Refused(XZipFailure::kNotFound);
    }
    const std::set<unsigned> renamed(indexes.begin(), indexes.end());
    if (renamed.size() != indexes.size())
        return Refused(XZipFailure::kInvalidArgument);
    std::set<std::wstring> taken;
    for (std::size_t i = 0; i < indexes.size(); ++i)
    {
        const std::wstring_view newName = ViewOf(newNames[static_cast<int>(i)]);
        const std::string oldName = m_engine->Name(indexes[i]);
        if (oldName.empty()) // which the engine refuses
            return Refused(XZipFailure::kUnsupported);
        const bool isNamedAsFolder = oldName.back() == '/';
        const bool isFolder = isNamedAsFolder || m_engine->Kind(indexes[i]) == ZipEntryKind::Folder;
        std::optional<std::string> name = NewEntryName(newName, isFolder);
        if (!name)
            return Refused(XZipFailure::kUnsafeName);
        if (isFolder && !isNamedAsFolder)
            name->pop_back(); // the engine requires a separator at the end of both names or of none
        const std::wstring wide = WideEntryName(*name);
        const std::vector<unsigned> holders = FindEach(wide, kExact, false);
        const bool isHeld =
            std::any_of(holders.begin(), holders.end(), [&](unsigned holder) { return renamed.count(holder) == 0; });
        if (isHeld || !taken.insert(ComparableName(wide, kExact)).second)
            return Refused(XZipFailure::kExists);
        renamings.push_back({indexes[i], std::move(*name)});
    }
    return {};
}

std::string ZipArchive::UnusedName()
{
    for (unsigned number = 0;; ++number)
    {
        std::string name = ".renamed-" + std::to_string(number);
        if (Find(WideEntryName(name), kExact) == xZipNoEntry)
            return name;
    }
}

ZipOutcome ZipArchive::Rename(const ZipNames& oldNames, const ZipNames& newNames)
{
    if (m_isReadOnly)
        return Refused(XZipFailure::kReadOnly);
    std::vector<Renaming> renamings;
    const ZipOutcome planned = PlanRenaming(oldNames, newNames, renamings);
    if (!planned)
        return planned;
    // Through unused names, because the engine requires each new name to be free.
    const std::string between = UnusedName();
    std::vector<std::string> namesBetween;
    namesBetween.reserve(renamings.size());
    for (const Renaming& renaming : renamings)
        namesBetween.push_back(between + "-" + std::to_string(renaming.m_index) +
                               (renaming.m_name.back() == '/' ? "/" : ""));
    return ChangeAll([&](ZipError& error) {
        for (std::size_t i = 0; i < renamings.size(); ++i)
        {
            if (!m_engine->Rename(renamings[i].m_index, namesBetween[i], error))
                return false;
        }
        return std::all_of(renamings.begin(), renamings.end(), [&](const Renaming& renaming) {
            return m_engine->Rename(renaming.m_index, renaming.m_name, error);
        });
    });
}

/// Makes all steps of a change. Where some are made and the rest cannot be, also because memory runs out, what is saved
/// must not be half of it.
template <class Steps>
ZipOutcome ZipArchive::ChangeAll(Steps&& steps)
{
    if (!m_spoiledBy)
        return m_spoiledBy;
    ForgetNames();
    m_spoiledBy = {XZipFailure::kSystem, kNotEnoughMemory}; // unless the steps return
    ZipError error;
    m_spoiledBy = steps(error) ? ZipOutcome() : ZipOutcome::Of(error);
    return m_spoiledBy;
}

ZipOutcome ZipArchive::Save()
{
    if (!m_spoiledBy)
        return m_spoiledBy;
    if (!m_isCreated && !m_engine->IsChanged())
        return {};
    const std::uint64_t total = m_engine->SaveSize();
    ZipAction action(m_callback, XZipAction::kSaving, total);
    const platform::ZipEngine::Progress progress = [&](std::uint64_t processed) {
        return action.AdvanceTo(processed) && (processed < total || action.Finish());
    };
    ZipFileTarget target(m_path.c_str(), m_stamp, m_isOfNewFile);
    ZipError error;
    if (m_engine->Save(target, progress, error))
        return {};
    return target.IsReplacedByOthers() ? Refused(XZipFailure::kReplaced) : ZipOutcome::Of(error);
}
} // namespace tev
