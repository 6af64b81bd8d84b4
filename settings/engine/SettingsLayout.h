#pragma once

#include <initializer_list>

namespace tev
{
class SettingsConnection;

/// The tables of a database: makes them, recognises them and converts those of the older layout.
class SettingsLayout
{
public:
    explicit SettingsLayout(SettingsConnection& connection) noexcept : m_connection(connection) {}

    /// Adds the functions that statements use to the connection.
    unsigned AddFunctions();
    /// Within a transaction. `isNew`: there is nothing in the file yet.
    unsigned Check(bool& isNew);
    /// In an empty file, with a write-ahead log where the file system can have one.
    unsigned Make(bool hasLog);
    /// Gives the rows checksums.
    unsigned Convert();

private:
    unsigned InOneTransaction(bool (*isNeeded)(bool isNew, bool hasChecksums),
                              std::initializer_list<const char*> changes);

    SettingsConnection& m_connection;
};
} // namespace tev
