#pragma once

#include "arrays/CXArray.h"
#include "platform/ContainedFolder.h"
#include "zip/CXExtraction.h"
#include "zip/CZipExtractCallback.h"
#include "zip/Password.h"
#include "zip/ZipFile.h"
#include "zip/ZipNames.h"
#include "zip/ZipOutcome.h"
#include "zip/ZipTypes.h"
#include "zip/engine/ZipEngine.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tev
{
using ZipNames = CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&>;

/// The open archive behind CZip. One thread at a time.
class ZipArchive
{
public:
    struct Secret
    {
        Password m_password;
        XZipEncryption m_encryption;
    };

    static ZipOutcome Open(const wchar_t* path, ZipOpenMode mode, CXZipCallback* callback,
                           std::unique_ptr<ZipArchive>& archive);

    bool IsReadOnly() const noexcept { return m_isReadOnly; }

    unsigned Count() const noexcept;
    ZipOutcome CountFiles(unsigned& count) const;
    ZipOutcome Describe(unsigned index, CZipFileInfo& info) const;
    /// The first entry of that name, xZipNoEntry if there is none.
    unsigned Find(std::wstring_view name, const NameRule& rule);
    std::vector<unsigned> FindMatching(std::wstring_view pattern, const NameRule& rule) const;

    /// Where an entry is extracted to, as CZip::ExtractFile takes it.
    struct Destination
    {
        const wchar_t* m_folder;
        bool m_withFolders;
        const wchar_t* m_newName;
    };
    ZipOutcome Extract(unsigned index, const Destination& destination, const std::string& password,
                       const CXExtractionLimits& limits);
    ZipOutcome Test(unsigned index, const std::string& password);

    ZipOutcome Add(const wchar_t* path, const wchar_t* name, ZipCompressionLevel level, const Secret& secret);
    ZipOutcome Delete(const ZipNames& names);
    ZipOutcome Rename(const ZipNames& oldNames, const ZipNames& newNames);
    ZipOutcome Save();

private:
    struct Renaming
    {
        unsigned m_index;
        std::string m_name;
    };

    ZipArchive() = default;

    ZipOutcome RequireEntry(unsigned index, platform::ZipEntry& entry) const;
    std::wstring NameFor(unsigned index, const NameRule& rule) const;
    static void FillInfo(const platform::ZipEntry& entry, CZipFileInfo& info);
    int AskCallback(const platform::ZipEntry& entry, const std::wstring& target);
    ZipOutcome Unpack(unsigned index, const platform::ZipEntry& entry, const std::string& password, XZipAction action,
                      platform::ContainedFile* file, const CXExtractionLimits& limits);
    /// All entries of that name, in their order; where one is enough, the first one.
    std::vector<unsigned> FindEach(std::wstring_view name, const NameRule& rule, bool oneIsEnough);
    ZipOutcome PlanRenaming(const ZipNames& oldNames, const ZipNames& newNames, std::vector<Renaming>& renamings);
    std::string UnusedName();
    template <class Steps>
    ZipOutcome ChangeAll(Steps&& steps);
    void ForgetNames() noexcept
    {
        for (auto& byName : m_byName)
            byName.clear();
    }

    std::unique_ptr<platform::ZipEngine> m_engine;
    CXZipCallback* m_callback = nullptr;
    std::wstring m_path; ///< from the root
    std::optional<FileStamp> m_stamp;
    bool m_isOfNewFile = false; ///< it did not exist when the archive was created
    bool m_isReadOnly = false;
    bool m_isCreated = false;
    ZipOutcome m_spoiledBy; ///< why the archive cannot be saved
    std::uint64_t m_extractedBytes = 0;
    /// The entries by the hash of their names as each rule compares them; empty until the first search by that rule.
    std::array<std::vector<std::pair<std::uint64_t, unsigned>>, 4> m_byName;
};
} // namespace tev
