#pragma once

#include "files/CXFile.h"
#include "text/TextDetection.h"

/// What a text file is: reads it from front to back. Throws CXFileException when it cannot be opened or read.
/// Safe from several threads at once.
[[nodiscard]] TEVTOOLS_API XTextInfo XExamineTextFile(const CXTString<wchar_t>& path);

/// What the rest of an open file is, from its position on. Throws what reading throws.
[[nodiscard]] TEVTOOLS_API XTextInfo XExamineTextFile(CXFile& file);
