#pragma once

#include "tests/support/ForkedChild.h"

#include <linux/filter.h>
#include <linux/seccomp.h>

namespace tev::test
{
/// From now on each call of that number fails with the error in this process, a child of a test. False where the system
/// does not permit it.
inline bool ForbidCall(unsigned number, unsigned error)
{
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {sizeof filter / sizeof filter[0], filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

/// From now on this process creates no file without a name, as on a file system that cannot. For a child of a test. False
/// where the system does not permit to forbid it.
inline bool ForbidUnnamedFiles()
{
    constexpr unsigned kNumber = offsetof(seccomp_data, nr);
    constexpr unsigned kFlags = offsetof(seccomp_data, args) + 2 * sizeof(std::uint64_t); // their lower half
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kNumber),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kFlags),
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, O_TMPFILE & ~O_DIRECTORY, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EOPNOTSUPP),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {sizeof filter / sizeof filter[0], filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

inline bool CanForbidUnnamedFiles()
{
    return ResultInChild([] { return ForbidUnnamedFiles() ? 0 : 1; }) == 0;
}
} // namespace tev::test
