#pragma once

#include "ui/XReportFile.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

// What a report is made of, and its form in a file by which another process can finish the report.
namespace tev
{
/// The parts of a report, known before a crash but for the details.
struct CrashRecord
{
    bool m_isCrash = true;       ///< else a files report
    CPathString m_archiveFolder; ///< empty when there is none: then the report goes to the temporary files
    CPathString m_writtenDump;   ///< the path at which the dump is written
    CPathString m_dump;          ///< its final path; the details lie beside it
    CPathString m_log;           ///< may be empty
    CPathString m_made;          ///< the archive, when it has been made and the user has not answered yet
    std::vector<XReportFile> m_files;
    CXTString<wchar_t> m_product; ///< the application's name in file names
    CXTString<wchar_t> m_name;    ///< and for the user
    CXTString<wchar_t> m_version;
    CXTString<wchar_t> m_dialogLanguage; ///< where another program shows the report: "en" or "fr"; else empty
    CXTString<wchar_t> m_support;        ///< the address of technical support, for that program
    /// What is known of the crash: keys and values in UTF-8.
    std::vector<std::pair<std::string, std::string>> m_details;
};

/// The keys of details.
namespace crashdetail
{
constexpr const char* kType = "type";
constexpr const char* kSignal = "signal";
constexpr const char* kCode = "code";
constexpr const char* kTime = "time";     ///< in seconds since 1970
constexpr const char* kUptime = "uptime"; ///< of the process, in seconds
constexpr const char* kException = "exception";
constexpr const char* kMessage = "message";
constexpr const char* kExpression = "expression";
constexpr const char* kFunction = "function";
constexpr const char* kSource = "source";
constexpr const char* kLine = "line";
} // namespace crashdetail
/// The key of the log in a record.
constexpr const char* kLogKey = "log";

/// All but the log and the details, which are known only at the crash: they are appended. Paths become absolute.
std::string ComposeRecord(const CrashRecord& record);
/// False for bytes that are not a record.
[[nodiscard]] bool ParseRecord(std::string_view bytes, CrashRecord& record);
/// Appends the pairs of texts, as they stand in a record, to the details; the log is taken as that.
void AddNotes(std::string_view notes, CrashRecord& record);

/// Append to the record that a crash has left on the disk. False when nothing could be added; the record may then be cut.
bool AddDetailTo(const CPathString& recordPath, const char* key, const std::string& value) noexcept;
bool AddArchiveTo(const CPathString& recordPath, const CPathString& archive) noexcept;

/// Adds the dump, the details and the log to the files; what does not exist is left out. Where there is no archive yet, moves the
/// dump to its final path and writes the details beside it before.
void AddOwnFiles(CrashRecord& record);
/// Deletes the dump and the details after the report was packed, where there is no final path for them.
void RemoveUnplacedDump(const CrashRecord& record) noexcept;
/// The path of the file with the details of a crash.
CPathString DetailsPath(const CrashRecord& record);
/// xCrashWithoutPointers for a crash whose hook had no exception pointers, else 0.
unsigned PointerFlagOf(const CrashRecord& record) noexcept;
/// The text of the details for a reader.
std::string ComposeDetails(const CrashRecord& record);

// Message texts.
constexpr unsigned kTextSubject = 0xE100;
constexpr unsigned kTextDump = 0xE101;
constexpr unsigned kTextLog = 0xE102;
constexpr unsigned kTextZipFilter = 0xE103;
constexpr unsigned kTextSaveName = 0xE104;
constexpr unsigned kTextByHandTitle = 0xE105;
constexpr unsigned kTextByHand = 0xE106;
constexpr unsigned kTextCrash = 0xE107;
constexpr unsigned kTextFiles = 0xE108;
constexpr unsigned kTextSupportAddress = 0xE109;
constexpr unsigned kTextDetails = 0xE10E;
constexpr unsigned kTextNotSavedTitle = 0xE10F;
constexpr unsigned kTextNotSaved = 0xE110;
} // namespace tev
