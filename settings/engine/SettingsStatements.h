#pragma once

#include <string>

namespace tev
{
/// The statements of a database, with the columns of their rows.
enum class SettingsStatement
{
    Begin,
    BeginWriting,
    Commit,
    FindKey, ///< as KeyAt
    KeyExists,
    AddKey, ///< id
    SealKey,
    DeleteKey,
    HasKeys,
    KeyAt,        ///< name, fold, id, checksum
    KeyFrom,      ///< as KeyAt
    KeyAfter,     ///< as KeyAt
    ValueAt,      ///< name, fold, type, size, checksum
    ValueFrom,    ///< as ValueAt
    ValueAfter,   ///< as ValueAt
    ReadValue,    ///< as AllValues
    MeasureValue, ///< as ValueAt
    WriteValue,
    DeleteValue,
    AllKeys,   ///< as KeyAt
    AllValues, ///< name, fold, type, size, checksum, data
    Count
};

/// The text of a statement; without checksums the one for the older layout, whose rows have null in their place.
std::string SettingsStatementText(SettingsStatement statement, bool hasChecksums);
} // namespace tev
