#pragma once

#include "settings/engine/SettingsStatements.h"
#include "settings/engine/SettingsStore.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace tev
{
/// The state of a database. It is another one after each change, whoever made it.
using SettingsMark = std::array<std::uint64_t, 12>;

/// A connection to a database, with the statements that were prepared for it. One thread at a time.
class SettingsConnection
{
public:
    /// `path` must outlive the connection.
    explicit SettingsConnection(const std::string& path) noexcept : m_path(path) {}
    ~SettingsConnection() { Close(false); }
    SettingsConnection(const SettingsConnection&) = delete;
    SettingsConnection& operator=(const SettingsConnection&) = delete;

    /// The name and the flags are those of the database library. Close also ends an attempt that failed.
    unsigned Open(const std::string& name, int flags);
    /// `emptiesLog`: the write-ahead log is copied into the database; else it is left as it is.
    void Close(bool emptiesLog) noexcept;

    bool IsOpen() const noexcept { return m_handle != nullptr; }
    /// Whether an error says that the file has to be opened anew.
    bool IsBroken() const noexcept { return m_isBroken; }
    sqlite3* Get() const noexcept { return m_handle; }

    /// From now on the state is told by ReadMark, where the file system permits. After a query, with a write-ahead log.
    void FindMark() noexcept;
    /// False where the state is not known without a query.
    bool ReadMark(SettingsMark& mark) const noexcept;

    unsigned Execute(const char* text);
    unsigned ReadNumber(const char* text, std::int64_t& number);
    unsigned Prepare(SettingsStatement statement, sqlite3_stmt*& prepared);
    void FinalizeStatements() noexcept;

    /// The system error code of a result of the database library.
    unsigned ErrorOf(int result);

    /// Whether the rows have checksums: all but those of the older layout.
    bool HasChecksums() const noexcept { return m_hasChecksums; }
    void SetHasChecksums(bool hasChecksums) noexcept { m_hasChecksums = hasChecksums; }

private:
    const std::string& m_path;
    sqlite3* m_handle = nullptr;
    const volatile std::uint64_t* m_logIndex = nullptr;
    std::array<sqlite3_stmt*, static_cast<std::size_t>(SettingsStatement::Count)> m_statements{};
    bool m_isBroken = false;
    bool m_hasChecksums = true;
};
} // namespace tev
