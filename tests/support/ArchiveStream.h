#pragma once

#include "files/CXArchive.h"
#include "tests/support/ArchiveTools.h"
#include "tests/support/BufferedMemFile.h"

namespace tev::test
{
// The ways in which an archive can get at its bytes: in place, or through a buffer of a size, its own or the caller's.
struct Way
{
    bool m_direct;
    unsigned m_bufferSize;
    bool m_callersBuffer;
    unsigned m_piece = 0xFFFFFFFF; // the most that the file delivers at once
};
inline const Way kWays[] = {{true, 4096, false}, {true, 0, false},       {true, 131, false},   {false, 4096, false},
                            {false, 128, false}, {false, 131, false},    {false, 0, false},    {false, 200, true},
                            {false, 5000, true}, {false, 150, false, 1}, {false, 128, true, 7}};

class Stream
{
public:
    Stream(const Way& way, unsigned mode, const Bytes& contents = {})
        : m_buffer(way.m_callersBuffer ? way.m_bufferSize : 0)
    {
        if (way.m_direct)
            m_file = std::make_unique<CXMemFile>();
        else
        {
            auto file = std::make_unique<BufferedMemFile>();
            file->m_piece = way.m_piece;
            m_file = std::move(file);
        }
        m_file->Write(contents.data(), static_cast<unsigned>(contents.size()));
        m_file->SeekToBegin();
        m_archive = std::make_unique<CXArchive>(m_file.get(), mode, way.m_bufferSize,
                                                m_buffer.empty() ? nullptr : m_buffer.data());
    }
    CXArchive& operator*() { return *m_archive; }
    CXArchive* operator->() { return m_archive.get(); }
    CXMemFile& File() { return *m_file; }
    Bytes Finish()
    {
        m_archive->Close();
        return {m_file->GetBuffer(), m_file->GetBuffer() + m_file->GetLength()};
    }

private:
    std::unique_ptr<CXMemFile> m_file;
    Bytes m_buffer;
    std::unique_ptr<CXArchive> m_archive;
};

inline Bytes StoredBy(const std::function<void(CXArchive&)>& write, const Way& way = kWays[0])
{
    Stream stream(way, xArchiveStore);
    write(*stream);
    return stream.Finish();
}

// Cause of what the call throws; -1 when it throws nothing, -2 for an invalid argument, -3 for a lack of memory.
template <class Call>
int CauseOf(const Call& call)
{
    return Thrown<CXArchiveException>(call);
}

inline int CauseOfReading(const Bytes& bytes, const std::function<void(CXArchive&)>& read, unsigned mode = xArchiveLoad)
{
    return CauseOf([&] {
        Stream stream(kWays[0], mode, bytes);
        read(*stream);
    });
}

inline Bytes operator+(Bytes left, const char* right)
{
    return std::move(left) + Bytes(right, right + std::char_traits<char>::length(right));
}
} // namespace tev::test
