#pragma once

#include "base/TevTypes.h"

// The version of these headers. The build reads the three numbers from here.
#define TEVTOOLS_VERSION_MAJOR 0
#define TEVTOOLS_VERSION_MINOR 1
#define TEVTOOLS_VERSION_PATCH 0

/// A version as one number, which grows from version to version.
#define TEVTOOLS_MAKE_VERSION(major, minor, patch) ((major)*1000000u + (minor)*1000u + (patch))
/// The version of these headers as one number: `#if TEVTOOLS_VERSION >= TEVTOOLS_MAKE_VERSION(0, 2, 0)`.
#define TEVTOOLS_VERSION TEVTOOLS_MAKE_VERSION(TEVTOOLS_VERSION_MAJOR, TEVTOOLS_VERSION_MINOR, TEVTOOLS_VERSION_PATCH)

#define TEVTOOLS_TEXT_OF_VERSION(major, minor, patch) #major "." #minor "." #patch
#define TEVTOOLS_EXPANDED_VERSION(major, minor, patch) TEVTOOLS_TEXT_OF_VERSION(major, minor, patch)
/// The version of these headers as a narrow literal, such as "0.1.0".
#define TEVTOOLS_VERSION_TEXT                                                                                          \
    TEVTOOLS_EXPANDED_VERSION(TEVTOOLS_VERSION_MAJOR, TEVTOOLS_VERSION_MINOR, TEVTOOLS_VERSION_PATCH)

/// The version of the library that the program runs with, a number like TEVTOOLS_VERSION; another patch level than that of
/// the headers where the shared library was replaced since the program was built. Safe from several threads at once.
TEVTOOLS_API unsigned XGetVersion() noexcept;
