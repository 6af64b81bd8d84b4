#pragma once

// What surrounds a crash: signals and limits, the user, other threads, the helper process, a child.

#include <string>

#include <sys/resource.h>

namespace ways
{
void BlockSignals();
void Limit(int resource, rlim_t limit);
/// With the program's folders; where the system's own user runs it.
void BecomeNobody();
/// Does the work on another thread, which then waits for ever.
void RunBeside(void (*work)());
/// A thread waits uninterruptibly for longer than the helper waits for it, and goes on after that.
void DemandBesideUnstoppable();
/// Threads whose stacks lie behind one another in one mapping.
void WaitOnAdjacentStacks();
/// Runs a command of the shell, which gets the number of the helper process as its last argument.
void RunForHelper(const std::string& program);
void SignalHelper(int number);
/// Runs the work in a forked child and ends as that does.
void InChild(void (*work)());
} // namespace ways
