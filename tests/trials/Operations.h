#pragma once

#include <filesystem>
#include <string>
#include <vector>

// The writers of the library, each with what it finds and how its result is recognised.
namespace tev::trials
{
enum class State
{
    Old,
    New,
    Partly, ///< of several files some are new, and each is complete; of a stream that is cut its beginning is there
    Damaged
};

struct Operation
{
    const char* name;
    /// Makes what is there before, in an empty folder.
    void (*prepare)(const std::filesystem::path& folder);
    /// Returns whether it succeeded; what the library throws is a failure.
    bool (*run)(const std::filesystem::path& folder);
    State (*look)(const std::filesystem::path& folder);
    State done = State::New;       ///< what a success leaves
    bool isInParts = false;        ///< a failure may leave some of the files
    bool replaces = false;         ///< a file by another one, which must be on the disk before
    bool endsAtReadError = false;  ///< takes what could be read for all, as it is documented
    bool keepsConnection = false;  ///< its descriptors stay until the process ends
    bool leavesWhenKilled = false; ///< a temporary file
};

const std::vector<Operation>& Operations();
/// Those of them that write neither preference files nor archives.
std::vector<Operation> ServiceOperations();

// Why an operation failed, as it is told: the system's codes, and what stands for none of them.
constexpr unsigned kToldDescriptors = 4;
constexpr unsigned kToldMemory = 8;
constexpr unsigned kToldInputOutput = 23;
constexpr unsigned kToldDiskFull = 112;
constexpr unsigned kToldDevice = 1117; ///< as kToldInputOutput, by the registry
constexpr unsigned kToldNothing = 10000;
constexpr unsigned kToldUnreachable = 10001; ///< cannot be read or written, where the class does not say more
constexpr unsigned kToldOther = 10002;       ///< plus the number of the failure in its enumeration

struct Told
{
    unsigned byClass = kToldNothing;  ///< by the object
    unsigned byRecord = kToldNothing; ///< by XLastFailure, or an exception
};
Told WhatWasTold();
/// Whether an exception has left a call that throws none.
bool HasThrown();

/// As `run`, with what it throws caught.
bool Succeeds(const Operation& operation, const std::filesystem::path& folder);
} // namespace tev::trials
