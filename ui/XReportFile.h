#pragma once

#include "services/CPathString.h"

/// A file to be included in a report.
struct XReportFile
{
    CPathString m_path;
    CXTString<wchar_t> m_description;
};
