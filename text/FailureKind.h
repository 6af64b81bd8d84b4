#pragma once

/// What kind of reason an operation failed for.
enum class XFailureKind : unsigned char
{
    kNone,
    kSystem,   ///< the operating system refused or failed
    kData,     ///< what was read is damaged, or not of the expected kind
    kMemory,   ///< there was not enough
    kArgument, ///< an argument, or the state of the object, does not allow the call
    kCancelled ///< by the user, or a request to the thread to end
};
