#pragma once

#include "zip/CZipFileInfo.h"

namespace tev
{
class ZipAction;
}

/// What an archive is doing while it reports progress.
enum class XZipAction : unsigned int
{
    kExtracting,
    kTesting,
    kSaving ///< includes adding, deleting and renaming, which happen when the archive is saved
};

/// What an archive calls while it works, on the thread that called it. An exception that these operations throw leaves
/// the operation that they were called from, which counts as cancelled then. They must not call the archive. One thread
/// at a time.
class TEVTOOLS_API CXZipCallback
{
public:
    CXZipCallback() = default;
    CXZipCallback(const CXZipCallback&) = delete;
    CXZipCallback& operator=(const CXZipCallback&) = delete;

    /// Receives the bytes processed since the action began; false cancels it.
    virtual bool OnProgress(unsigned __int64 processed) = 0;
    virtual ~CXZipCallback();

private:
    friend class tev::ZipAction;
    friend class tev::ZipArchive;
    /// Called before an entry is extracted: 0 extracts it, 1 skips it, 2 stops. Extracts unless overridden.
    virtual int MyInit(const CZipFileInfo& header, const wchar_t* targetPath);

protected:
    /// `total` is what OnProgress will count up to, as far as that is known.
    virtual void OnActionBegin(XZipAction action, unsigned __int64 total);
    virtual void OnActionEnd(XZipAction action) noexcept;

    /// The bytes between two calls of OnProgress.
    unsigned int GetEngineStep() const noexcept { return m_engineStep; }

private:
    unsigned int m_engineStep = 0;
};

/// Reports to a user what an archive does, and lets the user cancel it and decide for each entry whether it is
/// extracted.
class TEVTOOLS_API CZipExtractCallback : public CXZipCallback
{
public:
    ~CZipExtractCallback() override;

    /// The current entry, or the last one, and the full path to which it is extracted.
    const CXTString<wchar_t>& GetEntryName() const noexcept { return m_entryName; }
    const CXTString<wchar_t>& GetTargetPath() const noexcept { return m_targetPath; }
    /// The bytes between two calls of OnProgress; at least 1.
    unsigned int GetStep() const noexcept { return m_step; }

private:
    int MyInit(const CZipFileInfo& header, const wchar_t* targetPath) override;

public:
    /// Returns 0 to extract the entry, 1 to skip it, anything else to stop.
    virtual int OnExtractEntry(const CZipFileInfo& entry, const wchar_t* targetPath) = 0;

private:
    unsigned int m_step = 1;
    CXTString<wchar_t> m_entryName;
    CXTString<wchar_t> m_targetPath;
};
