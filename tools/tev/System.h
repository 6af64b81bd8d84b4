#pragma once

#include "files/CXFile.h"

#include <filesystem>
#include <string>

// The tool's calls into the operating system.
namespace tev::tool
{

constexpr int kStandardInput = 0;
constexpr int kStandardOutput = 1;
constexpr int kStandardError = 2;

/// A closed output pipe ends the tool without a message; an interrupt leaves no temporary file and no progress line.
void InstallSignalRules();

/// While an object exists, the first signal that would end the tool is only recorded, so that unfinished work can be
/// undone; a second one ends the tool. The destructor raises a recorded signal. One object at a time.
class EndingSignalsHeld
{
public:
    EndingSignalsHeld();
    ~EndingSignalsHeld();
    EndingSignalsHeld(const EndingSignalsHeld&) = delete;
    EndingSignalsHeld& operator=(const EndingSignalsHeld&) = delete;

    static bool HasCome() noexcept;
};

/// Such as "SIGSEGV"; "?" for a number that is no signal.
std::string SignalName(int number);

bool IsTerminal(int descriptor);
void WriteError(const std::string& text);

/// Replaces the progress line on the terminal; an empty one removes it.
void ShowErrorLine(const std::string& line);

/// The system's form of a path, in which both slashes separate folders.
std::filesystem::path SystemPath(const std::string& name);

/// Throws CXFileException with the system's last error.
void ThrowSystemError(const std::string& name);

/// Throws Failure that names the folder where that of a file to be written does not exist.
void RequireFolderOf(const std::string& target);
/// Creates a folder with those above it where it is missing; throws CXFileException.
void CreateFolder(const std::string& name);

/// An unnamed temporary file, deleted with the object, for input that cannot be read twice.
class SpoolFile
{
public:
    SpoolFile();
    ~SpoolFile();
    SpoolFile(const SpoolFile&) = delete;
    SpoolFile& operator=(const SpoolFile&) = delete;

    /// A path to open the file by while the object exists.
    const std::string& Path() const noexcept { return m_path; }

private:
    int m_descriptor;
    std::string m_path;
};

/// A new file that replaces `target` when it is complete, and is deleted otherwise: the target is never partly written.
/// A link is followed; an existing target keeps its permissions.
/// Throws Failure where the target cannot be replaced. One object at a time.
class Replacement
{
public:
    explicit Replacement(const std::string& target);
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    const std::string& Path() const noexcept { return m_path; }
    /// Throws where another program has changed the target since the construction: for one that is read, too.
    void RequireUnchanged() const;
    /// The file must be closed and its bytes on the disk.
    void TakePlace();

private:
    std::string m_name; // as the user gave it
    std::filesystem::path m_target;
    std::filesystem::file_time_type m_written; // the target, before
    std::uintmax_t m_size = 0;
    std::string m_path;
};

} // namespace tev::tool
