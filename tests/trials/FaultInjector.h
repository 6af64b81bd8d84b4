#pragma once

#include <functional>
#include <string>

// Work in a child process in which one thing fails, or which ends in the middle. Linux on x86-64.
namespace tev::trials
{
enum class Fault
{
    None,
    Kill,          ///< the process is killed before its n-th system call
    Error,         ///< its n-th call that can fail in this way does
    ShortTransfer, ///< its n-th read or write moves half of what it should
    OneAllocation, ///< its n-th allocation fails
    AllAllocations ///< and all after it
};

struct Plan
{
    Fault fault = Fault::None;
    int error = 0;   ///< of Fault::Error
    unsigned at = 0; ///< the n, from 1; 0 only counts
};

/// What a child does.
struct Work
{
    std::function<void()> begin;
    std::function<bool()> run;            ///< what can meet the fault; returns whether it succeeded
    std::function<std::string()> inspect; ///< looks at the process afterwards: what is wrong with it, or nothing
};

struct Ending
{
    unsigned count = 0;     ///< of what the plan counts
    bool isHit = false;     ///< the plan's fault has happened
    std::string call;       ///< the system call that it happened to
    std::string durability; ///< "fsync close rename fsync close "; only of a child that is traced
    bool hasEnded = false;  ///< by itself, else `signal` ended it
    bool answer = false;    ///< of `run`
    std::string wrong;      ///< of `inspect`
    int exitCode = -1;      ///< -1 where a signal ended it
    int signal = 0;
};

/// Runs the work in a child that is forked for it. One thread only may run in this process.
Ending RunInChild(const Work& work, const Plan& plan = {});

/// Whether this system lets a process trace its children.
bool CanTrace();
} // namespace tev::trials
