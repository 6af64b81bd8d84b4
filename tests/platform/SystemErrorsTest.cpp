#include "platform/SystemErrors.h"

#include "objects/CXFileException.h"
#include "tests/support/Testing.h"

using namespace tev::platform;

TEST(SystemErrors, ErrnoValuesMeanTheseCodesAndCauses)
{
    const std::map<FileExceptionType, std::vector<int>> conditions = {
        {fileNone, {0}},
        {fileNotFound, {ENOENT, EBADF}},
        {fileBadPath, {ENOTDIR, ENAMETOOLONG, EILSEQ, EXDEV}},
        {fileTooManyOpenFiles, {EMFILE, ENFILE}},
        {fileAccessDenied, {EACCES, EPERM, EISDIR, EROFS, EBUSY, EEXIST}},
        {fileInvalidFile, {ENOEXEC}},
        {fileRemoveCurrentDir, {ENOTEMPTY}},
        {fileBadSeek, {ESPIPE}},
        {fileHardIO, {EIO, ENXIO, ENODEV, ENOMEDIUM, EINTR}},
        {fileSharingViolation, {ETXTBSY}},
        {fileLockViolation, {EWOULDBLOCK, ENOLCK}},
        {fileDiskFull, {ENOSPC, EDQUOT}},
        {fileGeneric, {EINVAL, ENOMEM, EPIPE, EFBIG, EOPNOTSUPP, ECONNREFUSED, ETIMEDOUT, -1, 4095}},
    };
    for (const auto& [cause, errnoValues] : conditions)
    {
        for (const int error : errnoValues)
            EXPECT_EQ(CXFileException::OsErrorToException(SystemErrorFromErrno(error)), cause) << error;
    }
    std::vector<unsigned> codes;
    for (const int error :
         {ENOENT, ENOTDIR, EACCES, EBADF, EIO, ETXTBSY, EAGAIN, EINVAL, ENOSPC, EEXIST, ECONNREFUSED, -1})
    {
        errno = error;
        codes.push_back(LastSystemError());
    }
    EXPECT_EQ(codes, (std::vector<unsigned>{2, 3, 5, 6, 23, 32, 33, 87, 112, 183, 10061, 31}));
}

TEST(SystemErrors, EveryErrnoOfTheCLibraryIsKnown)
{
    const std::set<int> driversAndStreams = {
        ENOMSG,   EIDRM,     ECHRNG,  EL2NSYNC, EL3HLT,  EL3RST,   ELNRNG,  EUNATCH,         ENOCSI,  EL2HLT,
        EBADE,    EBADR,     EXFULL,  ENOANO,   EBADRQC, EBADSLT,  EBFONT,  ENOSTR,          ENOSR,   ENOPKG,
        EADV,     ESRMNT,    EDOTDOT, ENOTUNIQ, EBADFD,  EREMCHG,  ELIBACC, ELIBSCN,         ELIBMAX, ELIBEXEC,
        ESTRPIPE, EMULTIHOP, ENOTNAM, ENAVAIL,  EISNAM,  ERESTART, ERFKILL, ENOTRECOVERABLE,
    };
    for (int error = 1; error < 200; ++error)
    {
        const char* name = strerrorname_np(error);
        if (name == nullptr)
            continue;
        EXPECT_EQ(SystemErrorFromErrno(error) == 31, driversAndStreams.count(error) == 1) << name;
    }
}

TEST(SystemErrors, TextsAreTheSystems)
{
    for (const int error : {ENOENT, EACCES, EMFILE, ENOSPC, EIO, EINVAL, ECONNREFUSED})
    {
        const std::string expected = std::strerror(error);
        EXPECT_EQ(SystemErrorText(SystemErrorFromErrno(error)), std::wstring(expected.begin(), expected.end()));
    }
    for (const unsigned code : {0u, 31u, 12003u, 0xFFFFFFFFu})
        EXPECT_EQ(SystemErrorText(code), L"") << code;
}
