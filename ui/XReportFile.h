#pragma once

#include "services/CPathString.h"

/// A file that a report is to contain.
struct XReportFile
{
    CPathString m_path;
    CXTString<wchar_t> m_description;
};
