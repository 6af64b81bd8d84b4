#include "zip/ZipArchive.h"

#include "platform/PathNames.h"
#include "platform/SystemErrors.h"
#include "services/FileWildcards.h"
#include "zip/engine/ZipVolumes.h"

#include <algorithm>
#include <cerrno>
#include <limits>

namespace tev
{
namespace
{
using platform::ZipEntry;
using platform::ZipEntryKind;
using platform::ZipError;

constexpr std::pair<platform::ZipEncryption, XZipEncryption> kEncryptions[] = {
    {platform::ZipEncryption::None, XZipEncryption::kNone},
    {platform::ZipEncryption::Traditional, XZipEncryption::kTraditional},
    {platform::ZipEncryption::Aes128, XZipEncryption::kAes128},
    {platform::ZipEncryption::Aes192, XZipEncryption::kAes192},
    {platform::ZipEncryption::Aes256, XZipEncryption::kAes256},
};

XZipEncryption EncryptionOf(platform::ZipEncryption encryption)
{
    for (const auto& [engine, documented] : kEncryptions)
    {
        if (engine == encryption)
            return documented;
    }
    return XZipEncryption::kUnknown;
}

/// FNV-1a over the characters of a name.
std::uint64_t HashOf(std::wstring_view name)
{
    std::uint64_t hash = 0xCBF29CE484222325;
    for (const wchar_t c : name)
        hash = (hash ^ static_cast<std::uint32_t>(c)) * 0x100000001B3;
    return hash;
}
} // namespace

ZipOutcome ZipArchive::Open(const wchar_t* path, ZipOpenMode mode, CXZipCallback* callback,
                            std::unique_ptr<ZipArchive>& opened)
{
    std::unique_ptr<ZipArchive> archive(new ZipArchive);
    archive->m_path = platform::FullPath(path);
    archive->m_callback = callback;
    archive->m_isReadOnly = mode == zipOpenReadOnly;
    archive->m_isCreated = mode == zipCreate;
    const wchar_t* const fullPath = archive->m_path.c_str();
    if (mode == zipCreate)
    {
        archive->m_isOfNewFile = !FileStamp::Take(fullPath) && errno == ENOENT;
        if (!ZipFileTarget::IsWritable(fullPath))
            return ZipOutcome::OfSystem();
        archive->m_engine = platform::ZipEngine::Create();
        if (archive->m_engine == nullptr)
            return {XZipFailure::kSystem, platform::kNotEnoughMemory};
    }
    else
    {
        archive->m_stamp = FileStamp::Take(fullPath);
        std::unique_ptr<platform::ZipBytes> bytes = ZipFileBytes::Open(fullPath);
        if (!archive->m_stamp || bytes == nullptr)
            return ZipOutcome::OfSystem();
        const auto openVolume = [fullPath = archive->m_path](std::uint32_t number) {
            return ZipFileBytes::Open(platform::ZipVolumePath(fullPath, number).c_str());
        };
        ZipError error;
        archive->m_engine = platform::ZipEngine::Open(std::move(bytes), openVolume, archive->m_isReadOnly, error);
        if (archive->m_engine == nullptr)
            return ZipOutcome::Of(error);
        if (!archive->m_isReadOnly && !ZipFileTarget::IsWritable(fullPath))
            return ZipOutcome::OfSystem();
    }
    opened = std::move(archive);
    return {};
}

unsigned ZipArchive::Count() const noexcept
{
    constexpr std::uint64_t kMost = std::numeric_limits<int>::max();
    return static_cast<unsigned>(std::min(m_engine->Count(), kMost));
}

ZipOutcome ZipArchive::CountFiles(unsigned& count) const
{
    unsigned files = 0;
    for (unsigned index = 0; index < Count(); ++index)
        files += m_engine->Kind(index) != ZipEntryKind::Folder ? 1 : 0;
    count = files;
    return {};
}

ZipOutcome ZipArchive::RequireEntry(unsigned index, ZipEntry& entry) const
{
    ZipError error;
    if (index >= Count())
        return {XZipFailure::kNotFound, 0};
    return m_engine->Describe(index, entry, error) ? ZipOutcome() : ZipOutcome::Of(error);
}

ZipOutcome ZipArchive::Describe(unsigned index, CZipFileInfo& info) const
{
    ZipEntry entry;
    const ZipOutcome outcome = RequireEntry(index, entry);
    if (outcome)
        FillInfo(entry, info);
    return outcome;
}

void ZipArchive::FillInfo(const ZipEntry& entry, CZipFileInfo& info)
{
    DecodeEntryName(entry.name, info.m_fileName);
    info.m_attributes = entry.attributes;
    info.m_creationTime = entry.times.creation.value_or(0);
    info.m_lastAccessTime = entry.times.lastAccess.value_or(0);
    info.m_modifiedTime = entry.times.lastWrite.value_or(0);
    info.m_compressedSize = entry.compressedSize;
    info.m_uncompressedSize = entry.size;
    info.m_checksum = entry.checksum;
    info.m_method = entry.method;
    info.m_encryption = EncryptionOf(entry.encryption);
}

std::wstring ZipArchive::NameFor(unsigned index, const NameRule& rule) const
{
    return ComparableName(WideEntryName(m_engine->Name(index)), rule);
}

std::vector<unsigned> ZipArchive::FindEach(std::wstring_view name, const NameRule& rule, bool oneIsEnough)
{
    const std::wstring wanted = ComparableName(name, rule);
    auto& known = m_byName[(rule.m_caseSensitive ? 1 : 0) + (rule.m_nameOnly ? 2 : 0)];
    if (known.empty())
    {
        std::vector<std::pair<std::uint64_t, unsigned>> byName; // of all entries, or none where memory runs out
        byName.reserve(Count());
        for (unsigned index = 0; index < Count(); ++index)
            byName.emplace_back(HashOf(NameFor(index, rule)), index);
        std::sort(byName.begin(), byName.end());
        known.swap(byName);
    }
    const std::uint64_t hash = HashOf(wanted);
    std::vector<unsigned> found;
    auto at = std::lower_bound(known.begin(), known.end(), std::make_pair(hash, 0U));
    for (; at != known.end() && at->first == hash && (found.empty() || !oneIsEnough); ++at)
    {
        if (NameFor(at->second, rule) == wanted)
            found.push_back(at->second);
    }
    return found;
}

unsigned ZipArchive::Find(std::wstring_view name, const NameRule& rule)
{
    const std::vector<unsigned> found = FindEach(name, rule, true);
    return found.empty() ? xZipNoEntry : found.front();
}

std::vector<unsigned> ZipArchive::FindMatching(std::wstring_view pattern, const NameRule& rule) const
{
    // The pattern's own folders count where those of the names do not, as they would never match.
    const CXTString<wchar_t> wanted(ComparableName(pattern, {rule.m_caseSensitive, false}).c_str());
    std::vector<unsigned> found;
    for (unsigned index = 0; index < Count(); ++index)
    {
        if (fileMatchWilcards(CXTString<wchar_t>(NameFor(index, rule).c_str()), wanted, true))
            found.push_back(index);
    }
    return found;
}
} // namespace tev
