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

/// An open archive that shows on a terminal how far it is, and that an interrupt leaves as it was. What is not saved in the
/// end changes nothing.
class ZipWork final : private CZipExtractCallback
{
public:
    ZipWork(const std::string& name, ZipOpenMode mode);
    ~ZipWork() override;

    CZip& Zip() noexcept { return m_zip; }
    /// The entries that the names and patterns find, in the archive's order; all when there are none. A name that finds
    /// nothing is thrown.
    std::vector<unsigned> Find(const std::vector<std::string>& names);
    /// The bytes of all the actions that follow.
    void ExpectBytes(unsigned __int64 total);
    void Save();

    /// Throws what the archive's last operation failed for, as a failure of `subject`, unless it is done.
    void Require(bool done, const std::string& subject) const;

private:
    bool OnProgress(unsigned __int64 processed) override;
    int OnExtractEntry(const CZipFileInfo&, const wchar_t*) override;
    void OnActionBegin(XZipAction action, unsigned __int64 total) override;
    void OnActionEnd(XZipAction action) noexcept override;

    EndingSignalsHeld m_held; // goes last, when all is undone
    std::string m_name;
    CZip m_zip;
    std::optional<Progress> m_progress;
    unsigned __int64 m_doneBefore = 0; ///< by the actions before this one
    unsigned __int64 m_done = 0;
};

/// Each file of what the user names, with the name that it gets in the archive; what lies in folders, too.
struct ZipAdding
{
    std::string m_path;
    std::string m_entryName;
};
std::vector<ZipAdding> FilesToAdd(const std::vector<std::string>& paths, bool fullPath);

} // namespace tev::tool
