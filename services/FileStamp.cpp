#include "services/FileStamp.h"

#include "objects/FailureNote.h"
#include "platform/FileInformation.h"

bool XGetFileStamp(const CXTString<wchar_t>& path, XFileStamp& stamp)
{
    tev::platform::FileInformation information;
    if (!tev::platform::GetFileInformation(path, information))
        return tev::NoteLastError("XGetFileStamp", path);
    stamp.m_device = information.device;
    stamp.m_number = information.number;
    stamp.m_size = information.size;
    stamp.m_lastWrite = information.lastWrite;
    stamp.m_nanoseconds = information.lastWriteNanoseconds;
    return true;
}
