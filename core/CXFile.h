#pragma once

#include "core/CXObject.h"
#include "core/CXTString.h"

class CXFileException;

class TEVTOOLS_API CXFile : public CXObject
{
public:
    X_DECLARE_CLASS(CXFile)

    enum OpenFlags : unsigned int
    {
        modeRead = 0x0,
        modeWrite = 0x1,
        modeReadWrite = 0x2,
        shareCompat = 0x00,
        shareExclusive = 0x10,
        shareDenyWrite = 0x20,
        shareDenyRead = 0x30,
        shareDenyNone = 0x40,
        modeNoInherit = 0x80,
        modeCreate = 0x1000,
        modeNoTruncate = 0x2000,
        typeText = 0x4000,
        typeBinary = 0x8000
    };

    enum SeekPosition : unsigned int
    {
        begin = 0,
        current = 1,
        end = 2
    };

    enum BufferCommands : unsigned int
    {
        bufferRead = 0,
        bufferWrite = 1,
        bufferCommit = 2,
        bufferCheck = 3
    };

    explicit CXFile(bool throwOnError = true);
    CXFile(void* handle, bool throwOnError);
    CXFile(const wchar_t* path, unsigned int flags);
    ~CXFile() override;
    CXFile(const CXFile&) = delete;
    CXFile& operator=(const CXFile&) = delete;

    virtual bool Open(const wchar_t* path, unsigned int flags, CXFileException* error = nullptr);
    virtual unsigned __int64 Seek(__int64 offset, SeekPosition origin);
    virtual bool SetLength(unsigned __int64 length);
    virtual unsigned __int64 GetLength() const;
    virtual unsigned int Read(void* buffer, unsigned int count);
    virtual void Write(const void* buffer, unsigned int count);
    virtual void Flush();
    virtual void Close();
    virtual void Abort();
    virtual void SetFilePath(const CXTString<wchar_t>& path);
    virtual CXTString<wchar_t> GetFileName() const;
    virtual CXTString<wchar_t> GetFilePath() const;

protected:
    virtual unsigned __int64 BufferCommand(unsigned int command, unsigned __int64 count, unsigned char** start,
                                           unsigned char** end);
    friend class CXArchive;

public:
    virtual unsigned __int64 GetPosition() const;

    void SeekToBegin() { Seek(0, begin); }
    unsigned __int64 SeekToEnd() { return Seek(0, end); }

protected:
    void* m_handle;
    bool m_closeOnDelete;
    bool m_throwOnError;
    CXTString<wchar_t> m_path;
};
