#include "platform/PathNames.h"
#include "services/CPathString.h"
#include "zip/EntryName.h"
#include "zip/ZipAction.h"
#include "zip/ZipArchive.h"

#include <algorithm>
#include <array>

namespace tev
{
namespace
{
using platform::ContainedFolder;
using platform::ZipEntry;
using platform::ZipEntryKind;
using platform::ZipError;

constexpr std::size_t kCopiedAtOnce = 64 * 1024;

/// The path of the entry beneath the destination; empty when it must not be extracted.
std::optional<std::string> PlaceOf(const ZipEntry& entry, const ZipArchive::Destination& destination)
{
    const wchar_t* const newName = destination.m_newName;
    const std::optional<EntryName> name = SafeEntryName(entry.name);
    if (!name)
        return std::nullopt;
    const std::size_t leafAt = name->m_path.rfind('/') + 1;
    std::string place = destination.m_withFolders ? name->m_path.substr(0, leafAt) : std::string();
    if (newName == nullptr || *newName == L'\0')
        return place + name->m_path.substr(leafAt);
    const std::optional<std::string> given = NewEntryName(newName, false);
    if (!given)
        return std::nullopt;
    return place + *given;
}
} // namespace

int ZipArchive::AskCallback(const ZipEntry& entry, const std::wstring& target)
{
    if (m_callback == nullptr)
        return xZipExtractEntry;
    CZipFileInfo info;
    FillInfo(entry, info);
    m_callback->m_engineStep = ZipAction::kStep;
    return m_callback->MyInit(info, target.c_str());
}

ZipOutcome ZipArchive::Extract(unsigned index, const Destination& destination, const std::string& password,
                               const CXExtractionLimits& limits)
{
    ZipEntry entry;
    const ZipOutcome found = RequireEntry(index, entry);
    if (!found)
        return found;
    if (entry.kind == ZipEntryKind::Special)
        return {XZipFailure::kSpecialFile, 0};
    const std::optional<std::string> place = PlaceOf(entry, destination);
    if (!place)
        return {XZipFailure::kUnsafeName, 0};

    // Never more than the declared size is written, so that is what the limits apply to.
    CXExtractionLimits left = limits;
    left.m_totalBytes -= std::min<std::uint64_t>(left.m_totalBytes, m_extractedBytes);
    if (entry.kind == ZipEntryKind::File && !left.Allows(entry.size, entry.isNew ? entry.size : entry.compressedSize))
        return {XZipFailure::kTooLarge, 0};

    const std::wstring folderPath = platform::FullPath(destination.m_folder);
    const CPathString target = CPathString(folderPath.c_str()) / WideEntryName(*place).c_str();
    const int answer = AskCallback(entry, target.GetConstBuffer());
    if (answer != xZipExtractEntry)
        return {answer == xZipSkipEntry ? XZipFailure::kSkipped : XZipFailure::kCancelled, 0};

    const std::unique_ptr<ContainedFolder> folder =
        ContainedFolder::Open(folderPath.c_str(), ContainedFolder::Missing::Create);
    if (folder == nullptr)
        return ZipOutcome::OfSystem();
    if (m_stamp)
        folder->Protect({m_stamp->m_information.device, m_stamp->m_information.number});
    if (entry.kind == ZipEntryKind::Folder)
        return folder->CreateFolders(*place) ? ZipOutcome() : ZipOutcome::OfSystem();
    if (!folder->HasSpaceFor(entry.size))
        return ZipOutcome::OfSystem();
    constexpr unsigned kOwnersUse = 0600;
    const std::optional<unsigned> permissions =
        entry.permissions ? std::optional(*entry.permissions | kOwnersUse) : std::nullopt;
    const std::unique_ptr<platform::ContainedFile> file = folder->CreateFile(*place, permissions);
    if (file == nullptr)
        return ZipOutcome::OfSystem();
    const ZipOutcome unpacked = Unpack(index, entry, password, XZipAction::kExtracting, file.get(), left);
    platform::FileIdentity identity;
    if (unpacked && !file->Keep(entry.times.lastWrite, identity))
        return ZipOutcome::OfSystem();
    m_extractedBytes += unpacked ? entry.size : 0;
    return unpacked;
}

ZipOutcome ZipArchive::Test(unsigned index, const std::string& password)
{
    ZipEntry entry;
    const ZipOutcome found = RequireEntry(index, entry);
    if (!found || entry.kind == ZipEntryKind::Folder)
        return found;
    constexpr CXExtractionLimits kNone = {~0ull, ~0ull};
    return Unpack(index, entry, password, XZipAction::kTesting, nullptr, kNone);
}

/// Reads an entry, and writes it where there is a file.
ZipOutcome ZipArchive::Unpack(unsigned index, const ZipEntry& entry, const std::string& password, XZipAction kind,
                              platform::ContainedFile* file, const CXExtractionLimits& limits)
{
    ZipError error;
    const std::unique_ptr<platform::ZipReader> reader = m_engine->OpenEntry(index, password, error);
    if (reader == nullptr)
        return ZipOutcome::Of(error);
    ZipAction action(m_callback, kind, entry.size);
    std::array<char, kCopiedAtOnce> block; // written before it is read
    for (;;)
    {
        std::size_t delivered = 0;
        if (!reader->Read(block.data(), block.size(), delivered, error))
            return ZipOutcome::Of(error);
        if (delivered == 0)
        {
            // The declared compressed size may be larger than what was needed of it.
            if (!limits.Allows(entry.size, entry.isNew ? entry.size : reader->Consumed()))
                return {XZipFailure::kTooLarge, 0};
            return action.Finish() ? ZipOutcome() : ZipOutcome{XZipFailure::kCancelled, 0};
        }
        if (file != nullptr && !file->Write(block.data(), delivered))
            return ZipOutcome::OfSystem();
        if (!action.Advance(delivered))
            return {XZipFailure::kCancelled, 0};
    }
}
} // namespace tev
