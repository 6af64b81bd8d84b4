#pragma once

#include "files/CXMemFile.h"

#include <algorithm>

namespace tev::test
{
// A memory file that does not expose its memory, so that the archive works through a buffer, as over a disk file. It
// may deliver in small pieces, as a pipe does.
class BufferedMemFile : public CXMemFile
{
public:
    using CXMemFile::CXMemFile;
    unsigned Read(void* buffer, unsigned count) override { return CXMemFile::Read(buffer, std::min(count, m_piece)); }
    unsigned m_piece = 0xFFFFFFFF;

protected:
    unsigned __int64 BufferCommand(unsigned, unsigned __int64, unsigned char**, unsigned char**) override { return 0; }
};
} // namespace tev::test
