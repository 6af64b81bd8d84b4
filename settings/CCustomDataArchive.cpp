// The store as bytes: the present layout, and the two older ones, which are read but no longer written.

#include "arrays/ArrayBlock.h"
#include "files/CXArchive.h"
#include "files/CXFile.h"
#include "files/CXMemFile.h"
#include "objects/CXException.h"
#include "objects/CXFileException.h"
#include "objects/FailureNote.h"
#include "settings/CCustomData.h"
#include "settings/CustomDataChunk.h"
#include "settings/StoreChange.h"

#include <cstring>
#include <new>

using tev::LockGuard;

namespace
{
constexpr unsigned kSignature = 0x43555335;        // "CUS5"
constexpr unsigned kEarlierSignature = 0x43555334; // "CUS4", the same layout
constexpr unsigned kUnicodeSignature = 0x43555355; // "CUSU", the first older layout
constexpr unsigned kTextSignature = 0x43555354;    // "CUST", the second
constexpr unsigned kUnicodeMode = 1;
constexpr unsigned kTextMode = 2;
constexpr unsigned kVersion = 1;
constexpr unsigned kStartSize = 8;   // signature and total
constexpr unsigned kHeaderSize = 20; // behind them, in a store that is not empty
constexpr unsigned kRecordHeader = 8;
constexpr unsigned __int64 kNoLimit = ~0ULL;

[[noreturn]] void Fail(const CXArchive& archive, FileExceptionType cause)
{
    const CXFile* file = archive.GetFile();
    CXFileException::Throw(cause, file == nullptr ? CXTString<wchar_t>() : file->GetFilePath());
}

void ReadAll(CXArchive& archive, void* target, unsigned size)
{
    if (archive.Read(target, size) != size)
        Fail(archive, fileEndOfFile);
}

template <class Block>
Block ReadBlock(CXArchive& archive, unsigned size)
{
    const auto read = [&archive](unsigned char* target, std::uint64_t count) {
        ReadAll(archive, target, static_cast<unsigned>(count));
    };
    try
    {
        return Block(tev::ReadArrayBlock(size, read).release());
    }
    catch (const std::bad_alloc&)
    {
        CXMemoryException::Throw();
    }
}
} // namespace

/// A value of the older layouts, which had no kinds.
struct CCustomData::CustomPrivateDataOld
{
    unsigned m_id;
    unsigned m_size;
    Block m_data;
};

void CCustomData::ComposeHeader(unsigned char* header) const
{
    const bool isEmpty = m_used == 0;
    const unsigned count = isEmpty ? 0 : m_offsets->GetCount();
    const unsigned fields[] = {kSignature, isEmpty ? 0 : m_used + kHeaderSize, kVersion,
                               count,      m_used - count * tev::kChunkHeader, m_legacyMode,
                               0};
    for (const unsigned field : fields)
    {
        tev::StoreLittleEndian(header, field);
        header += sizeof(field);
    }
}

void CCustomData::Serialize(CXArchive& archive)
{
    const LockGuard lock(m_lock);
    if (archive.IsLoading())
    {
        Load(archive);
        return;
    }
    FreeExtra();
    unsigned char header[kStartSize + kHeaderSize];
    ComposeHeader(header);
    archive.Write(header, m_used == 0 ? kStartSize : sizeof(header));
    archive.Write(m_buffer, m_used);
}

void* CCustomData::SerializeToData(unsigned __int64& size) const
{
    const LockGuard lock(m_lock);
    CloseGaps();
    unsigned char header[kStartSize + kHeaderSize];
    ComposeHeader(header);
    const unsigned headerSize = m_used == 0 ? kStartSize : static_cast<unsigned>(sizeof(header));
    const unsigned __int64 total = static_cast<unsigned __int64>(headerSize) + m_used;
    auto* block = CXMemFile::Alloc(total);
    size = block == nullptr ? 0 : total;
    if (block == nullptr)
        return nullptr;
    std::memcpy(block, header, headerSize);
    if (m_used != 0)
        std::memcpy(block + headerSize, m_buffer, m_used);
    return block;
}

// The block may lie in this store, so the store is not changed while the block is read.
bool CCustomData::SerializeFromData(const void* data, unsigned __int64 size)
{
    const LockGuard lock(m_lock);
    CCustomData loaded;
    bool isLoaded = false;
    try
    {
        CXMemFile file(static_cast<const unsigned char*>(data), size, false);
        CXArchive archive(&file, xArchiveLoad);
        loaded.Serialize(archive);
        isLoaded = true;
    }
    catch (CXException* exception)
    {
        tev::NoteException("CCustomData::SerializeFromData", *exception);
        exception->Delete();
    }
    TakeFrom(loaded); // empty when the block could not be read
    return isLoaded;
}

void CCustomData::Load(CXArchive& archive)
{
    WholeChange change(*this);
    change.Released();
    Clear();
    Touch();
    unsigned signature = 0;
    archive >> signature;
    switch (signature)
    {
    case kSignature:
    case kEarlierSignature:
        LoadCurrent(archive);
        break;
    case kUnicodeSignature:
        ReadPreviousVersion(archive, kUnicodeMode);
        break;
    case kTextSignature:
        ReadPreviousVersion(archive, kTextMode);
        break;
    default:
        Fail(archive, fileInvalidFile);
    }
}

void CCustomData::LoadCurrent(CXArchive& archive)
{
    unsigned total = 0;
    archive >> total;
    if (total == 0)
        return;
    if (total < kHeaderSize)
        Fail(archive, fileInvalidFile);
    unsigned char header[kHeaderSize];
    ReadAll(archive, header, kHeaderSize);
    if (tev::LoadLittleEndian<unsigned>(header) != kVersion)
        Fail(archive, fileInvalidFile);
    const auto legacyMode = tev::LoadLittleEndian<unsigned>(header + 12);
    const unsigned size = total - kHeaderSize;
    const Outcome outcome = TakeBlock(ReadBlock<Block>(archive, size), size, legacyMode);
    if (outcome == Outcome::kNoMemory)
        CXMemoryException::Throw();
    if (outcome == Outcome::kMalformed)
        Fail(archive, fileInvalidFile);
}

// The first layout begins with the size of its records in bytes, the second with their number.
void CCustomData::ReadPreviousVersion(CXArchive& archive, unsigned legacyMode)
{
    const bool countsBytes = legacyMode == kUnicodeMode;
    unsigned extent = 0;
    archive >> extent;
    try
    {
        for (unsigned left = extent; left != 0;)
        {
            const CustomPrivateDataOld record = ReadPreviousRecord(archive, countsBytes ? left : kNoLimit);
            if (record.m_size != 0 && FindChunk(record.m_id) != nullptr)
                Fail(archive, fileInvalidFile);
            ConvertPreviousData(record);
            left -= countsBytes ? kRecordHeader + record.m_size : 1;
        }
    }
    catch (...)
    {
        Clear();
        throw;
    }
    m_legacyMode = legacyMode;
}

CCustomData::CustomPrivateDataOld CCustomData::ReadPreviousRecord(CXArchive& archive, unsigned __int64 room)
{
    unsigned char header[kRecordHeader];
    if (room < kRecordHeader)
        Fail(archive, fileInvalidFile);
    ReadAll(archive, header, kRecordHeader);
    const auto size = tev::LoadLittleEndian<unsigned>(header + 4);
    if (size > room - kRecordHeader)
        Fail(archive, fileInvalidFile);
    return {tev::LoadLittleEndian<unsigned>(header), size, ReadBlock<Block>(archive, size)};
}

// A record without bytes is no value in the present layout, and is dropped.
void CCustomData::ConvertPreviousData(const CustomPrivateDataOld& record)
{
    if (record.m_size != 0 && !SetChunk(record.m_id, record.m_data.get(), record.m_size, kAnyKind))
        CXMemoryException::Throw();
}
