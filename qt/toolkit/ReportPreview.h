#pragma once

#include "services/CPathString.h"

#include <QString>

namespace tev
{
/// A look into a file of a report, whatever is in it.
struct ReportPreview
{
    bool m_isReadable = false;
    unsigned __int64 m_size = 0; ///< of the file, in bytes
    QString m_text;              ///< for a person; says itself where it does not have the whole file
};

/// Reads the start of a file at most: a dump as the stack of its thread, a text as that, anything else in hexadecimal.
ReportPreview PreviewFile(const CPathString& path);
/// Whether the file can be read, and its size; without its text.
ReportPreview LookAtFile(const CPathString& path);
/// A number of bytes, such as "1.5 KiB".
QString DataSizeText(unsigned __int64 bytes);
} // namespace tev
