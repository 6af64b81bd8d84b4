#include "zip/CZipExtractCallback.h"

#include <algorithm>

CZipFileInfo::~CZipFileInfo() = default;

CXZipCallback::~CXZipCallback() = default;

int CXZipCallback::MyInit(const CZipFileInfo&, const wchar_t*)
{
    return xZipExtractEntry;
}

void CXZipCallback::OnActionBegin(XZipAction, unsigned __int64) {}

void CXZipCallback::OnActionEnd(XZipAction) noexcept {}

CZipExtractCallback::~CZipExtractCallback() = default;

int CZipExtractCallback::MyInit(const CZipFileInfo& header, const wchar_t* targetPath)
{
    m_step = std::max(1U, GetEngineStep());
    m_entryName = header.GetFileName();
    m_targetPath = targetPath;
    switch (OnExtractEntry(header, targetPath))
    {
    case xZipExtractEntry:
        return xZipExtractEntry;
    case xZipSkipEntry:
        return xZipSkipEntry;
    default:
        return xZipStop;
    }
}
