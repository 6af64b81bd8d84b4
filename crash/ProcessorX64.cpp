#include "crash/Processor.h"

#include "platform/MinidumpFormat.h"

namespace tev
{
namespace
{
// DWARF: rax rdx rcx rbx rsi rdi rbp rsp r8 to r15 rip; the record: rax rcx rdx rbx rsp rbp rsi rdi r8 to r15 rip.
constexpr unsigned char kRecordIndex[] = {0, 2, 1, 3, 6, 7, 5, 4, 8, 9, 10, 11, 12, 13, 14, 15, 16};
} // namespace

const Processor kProcessorX64 = {minidump::kX64, 62, 1232, 120, 17, sizeof kRecordIndex, kRecordIndex, 7, 16, true};
} // namespace tev
