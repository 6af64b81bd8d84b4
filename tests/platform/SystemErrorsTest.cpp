#include "platform/SystemErrors.h"

#include "core/CXFileException.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using namespace tev::platform;

TEST(SystemErrors, ErrnoValuesMeanTheseCodesAndCauses)
{
    const struct
    {
        int errnoValue;
        unsigned code;
        FileExceptionType cause;
    } cases[] = {
        {0, 0, fileNone},
        {ENOENT, 2, fileNotFound},
        {ENOTDIR, 3, fileBadPath},
        {ENAMETOOLONG, 206, fileBadPath},
        {EILSEQ, 123, fileBadPath},
        {EXDEV, 17, fileBadPath},
        {EMFILE, 4, fileTooManyOpenFiles},
        {ENFILE, 4, fileTooManyOpenFiles},
        {EACCES, 5, fileAccessDenied},
        {EPERM, 5, fileAccessDenied},
        {EISDIR, 5, fileAccessDenied},
        {EROFS, 19, fileAccessDenied},
        {EBUSY, 170, fileAccessDenied},
        {EEXIST, 183, fileAccessDenied},
        {ENOEXEC, 193, fileInvalidFile},
        {ENOTEMPTY, 145, fileRemoveCurrentDir},
        {ESPIPE, 132, fileBadSeek},
        {EIO, 23, fileHardIO},
        {ENXIO, 20, fileHardIO},
        {ENODEV, 20, fileHardIO},
        {ENOMEDIUM, 21, fileHardIO},
        {EINTR, 995, fileHardIO},
        {ETXTBSY, 32, fileSharingViolation},
        {EWOULDBLOCK, 33, fileLockViolation},
        {ENOLCK, 33, fileLockViolation},
        {ENOSPC, 112, fileDiskFull},
        {EDQUOT, 112, fileDiskFull},
        {EINVAL, 87, fileGeneric},
        {ENOMEM, 8, fileGeneric},
        {EPIPE, 109, fileGeneric},
        {EFBIG, 223, fileGeneric},
        {EOPNOTSUPP, 50, fileGeneric},
        {ECONNREFUSED, 10061, fileGeneric},
        {ETIMEDOUT, 10060, fileGeneric},
        {-1, 31, fileGeneric},
        {4095, 31, fileGeneric},
    };
    for (const auto& c : cases)
    {
        errno = c.errnoValue;
        EXPECT_EQ(LastSystemError(), c.code) << c.errnoValue;
        EXPECT_EQ(SystemErrorFromErrno(c.errnoValue), c.code) << c.errnoValue;
        EXPECT_EQ(CXFileException::OsErrorToException(c.code), c.cause) << c.errnoValue;
    }
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

TEST(SystemErrors, RealFailuresAreRecognised)
{
    const tev::test::TempFolder folder;
    folder.WriteFile("full/file", "x");
    const std::string file = folder.Path("full/file").string();
    const std::string full = folder.Path("full").string();
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);

    const struct
    {
        const char* what;
        std::function<long()> call;
        unsigned code;
    } cases[] = {
        {"open a missing file", [&] { return open((file + "x").c_str(), O_RDONLY); }, 2},
        {"open below a file", [&] { return open((file + "/x").c_str(), O_RDONLY); }, 3},
        {"open a name of 300 characters", [&] { return open((full + "/" + std::string(300, 'x')).c_str(), O_RDONLY); },
         206},
        {"write to a folder", [&] { return open(full.c_str(), O_WRONLY); }, 5},
        {"create what is there", [&] { return mkdir(full.c_str(), 0700); }, 183},
        {"remove a full folder", [&] { return rmdir(full.c_str()); }, 145},
        {"seek in a pipe", [&] { return lseek(pipes[0], 0, SEEK_SET); }, 132},
        {"use a closed handle", [&] { return close(-1); }, 6},
    };
    for (const auto& c : cases)
    {
        errno = 0;
        EXPECT_EQ(c.call(), -1) << c.what;
        EXPECT_EQ(LastSystemError(), c.code) << c.what;
    }
    close(pipes[0]);
    close(pipes[1]);
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
