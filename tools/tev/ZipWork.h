#pragma once

#include "tools/tev/Progress.h"
#include "tools/tev/System.h"
#include "zip/CZip.h"

#include <optional>
#include <string>
#include <vector>

// What the commands of `tev zip` do with an archive. Failures are thrown.
namespace tev::tool
{
/// Why the archive's last operation failed.
std::string FailureText(const CZip& zip);

/// An open archive that shows its progress on a terminal. An interrupt leaves the archive unchanged, and so does
/// destroying this object without Save().
class ZipWork final : private CZipExtractCallback
{
public:
    ZipWork(const std::string& name, ZipOpenMode mode);
    ~ZipWork() override;

    CZip& Zip() noexcept { return m_zip; }
    /// The entries that match the names and patterns, in the archive's order; all when there are none. A name without a
    /// match is thrown.
    std::vector<unsigned> Find(const std::vector<std::string>& names);
    /// Sets the total number of bytes of the actions that follow.
    void ExpectBytes(unsigned __int64 total);
    /// False, with the archive unchanged, where other programs changed it meanwhile and the changes may be made again.
    bool Save(bool mayBeRepeated);

    /// Throws the reason why the archive's last operation failed, as a failure of `subject`, unless `done`.
    void Require(bool done, const std::string& subject) const;

private:
    bool OnProgress(unsigned __int64 processed) override;
    int OnExtractEntry(const CZipFileInfo&, const wchar_t*) override;
    void OnActionBegin(XZipAction action, unsigned __int64 total) override;
    void OnActionEnd(XZipAction action) noexcept override;

    EndingSignalsHeld m_held; // destroyed last, when everything is undone
    std::string m_name;
    CZip m_zip;
    std::optional<Progress> m_progress;
    unsigned __int64 m_doneBefore = 0; ///< by the actions before this one
    unsigned __int64 m_done = 0;
};

/// Each file that the user names, with its name in the archive; folders include their contents.
struct ZipAdding
{
    std::string m_path;
    std::string m_entryName;
};
std::vector<ZipAdding> FilesToAdd(const std::vector<std::string>& paths, bool fullPath);

} // namespace tev::tool
