#pragma once

#include "base/TevTypes.h"

#include <string>

/// The error numbers of the platform layer: one set of system codes, whatever the system's own numbers are
/// (2 not found, 3 path not found, 5 access denied, 32 sharing violation, 112 disk full, ...; from 10000 on the network).
/// Safe from several threads at once.
namespace tev::platform
{
// Codes that the library looks for or gives itself.
constexpr unsigned kNotFound = 2;
constexpr unsigned kPathNotFound = 3;
constexpr unsigned kTooManyOpenFiles = 4;
constexpr unsigned kNotEnoughMemory = 8;
constexpr unsigned kInvalidData = 13;
constexpr unsigned kNotReady = 21;
constexpr unsigned kGeneralFailure = 31;
constexpr unsigned kNotSupported = 50;
constexpr unsigned kBadParameter = 87;
constexpr unsigned kDiskFull = 112;
constexpr unsigned kCannotSeek = 132; ///< of a pipe
constexpr unsigned kNoMoreThreads = 164;
constexpr unsigned kNoMoreItems = 259;
constexpr unsigned kTimedOut = 1460;

/// System code for an errno value: 0 for 0, 31 (general failure) for one that has no code of its own.
unsigned SystemErrorFromErrno(int errnoValue) noexcept;

/// System code of the calling thread's last failure. Ask at once: any further call into the system may change it.
unsigned LastSystemError() noexcept;

/// The system's own text for a system code, in the language of the environment's locale; empty when it has none.
std::wstring SystemErrorText(unsigned systemError);
} // namespace tev::platform
