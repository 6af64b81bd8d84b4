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
    bool keepsConnection = false;  ///< descriptors and files stay until the process ends
    bool leavesWhenKilled = false; ///< a temporary file
};

const std::vector<Operation>& Operations();
/// Those of them that write neither preference files nor archives.
std::vector<Operation> ServiceOperations();

/// What the last failure of a class that tells it was.
enum class Told
{
    Nothing, ///< or there was none
    Memory,
    Descriptors,
    Other
};
Told WhatWasTold();
/// Its number in the enumeration of its class.
unsigned ToldFailure();
/// Whether an exception has left a call that throws none.
bool HasThrown();

/// As `run`, with what it throws caught.
bool Succeeds(const Operation& operation, const std::filesystem::path& folder);
} // namespace tev::trials
