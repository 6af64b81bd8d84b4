#pragma once

#include "files/CXFile.h"

#include <filesystem>
#include <string>

// The questions that only the operating system answers.
namespace tev::tool
{

constexpr int kStandardInput = 0;
constexpr int kStandardOutput = 1;
constexpr int kStandardError = 2;

/// A reader that goes away ends the tool quietly; an interrupt leaves no temporary file and no progress line behind.
void InstallSignalRules();

/// While an object lives, the first signal that would end the tool is only noted, so that what is half done can be undone;
/// a second one ends it. When the object goes, what was noted takes its effect. One object at a time.
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

/// Shows a line in place of the last one shown; an empty one takes it away. For terminals.
void ShowErrorLine(const std::string& line);

/// The system's form of a path, in which both slashes separate folders.
std::filesystem::path SystemPath(const std::string& name);

/// A file without a name, gone when the object goes. Takes what cannot be read twice.
class SpoolFile
{
public:
    SpoolFile();
    ~SpoolFile();
    SpoolFile(const SpoolFile&) = delete;
    SpoolFile& operator=(const SpoolFile&) = delete;

    /// Where the file can be opened while the object lives.
    const std::string& Path() const noexcept { return m_path; }

private:
    int m_descriptor;
    std::string m_path;
};

/// A new file that takes the place of `target` when it is complete, and is removed when it never is: the target is
/// either as it was or as it should be. A link is followed; an existing target keeps its permissions.
/// Throws Failure where the target cannot be replaced. One object at a time.
class Replacement
{
public:
    explicit Replacement(const std::string& target);
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    const std::string& Path() const noexcept { return m_path; }
    /// The file must be closed and its bytes on the disk.
    void TakePlace();

private:
    std::string m_name; // as the user gave it
    std::filesystem::path m_target;
    std::string m_path;
};

} // namespace tev::tool
