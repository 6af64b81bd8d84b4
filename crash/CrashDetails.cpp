#include "crash/CCrashHandler.h"
#include "crash/CrashPaths.h"
#include "crash/CrashRecord.h"
#include "platform/CalendarTime.h"
#include "platform/Demangling.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <iterator>

namespace tev
{
namespace
{
struct TypeName
{
    XCrashType type;
    const char* name;
};
constexpr TypeName kTypeNames[] = {{xCrashTerminate, "std::terminate"},
                                   {xCrashUnexpected, "unexpected exception"},
                                   {xCrashPureCall, "call of a pure virtual function"},
                                   {xCrashNoMemory, "out of memory"},
                                   {xCrashInvalidParameter, "invalid parameter"},
                                   {xCrashAbort, "abort"},
                                   {xCrashFloatingPoint, "floating-point error"},
                                   {xCrashIllegalInstruction, "illegal instruction"},
                                   {xCrashInterrupt, "interrupt"},
                                   {xCrashSegmentViolation, "segment violation"},
                                   {xCrashTermination, "request to end"}};

std::string Detail(const CrashRecord& record, std::string_view key)
{
    const auto found = std::find_if(record.m_details.begin(), record.m_details.end(),
                                    [key](const auto& detail) { return detail.first == key; });
    return found == record.m_details.end() ? std::string() : found->second;
}

std::string CauseText(const CrashRecord& record)
{
    const auto type = static_cast<unsigned>(std::strtoul(Detail(record, crashdetail::kType).c_str(), nullptr, 10));
    const auto* const known = std::find_if(std::begin(kTypeNames), std::end(kTypeNames),
                                           [type](const TypeName& name) { return name.type == type; });
    return known == std::end(kTypeNames) ? "" : known->name;
}

std::string RecordedTimeText(const std::string& seconds)
{
    std::tm parts = {};
    char text[40];
    if (seconds.empty() || !platform::ToUtcTime(std::strtoll(seconds.c_str(), nullptr, 10), parts) ||
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts) == 0)
        return {};
    return text;
}
} // namespace

std::string ComposeDetails(const CrashRecord& record)
{
    std::string text;
    const auto add = [&text](const char* title, const std::string& value, const char* unit = "") {
        if (!value.empty())
            text.append(title).append(": ").append(value).append(unit).append("\n");
    };
    add("Application", Utf8(record.m_name));
    add("Version", Utf8(record.m_version));
    add("Program", Utf8(record.m_product));
    add("Time", RecordedTimeText(Detail(record, crashdetail::kTime)));
    add("Running for", Detail(record, crashdetail::kUptime), " s");
    add("Cause", CauseText(record));
    add("Signal", Detail(record, crashdetail::kSignal));
    add("Code", Detail(record, crashdetail::kCode));
    const std::string exception = Detail(record, crashdetail::kException);
    add("Exception", exception.empty() ? exception : platform::Demangled(exception.c_str()));
    add("Message", Detail(record, crashdetail::kMessage));
    add("Function", Detail(record, crashdetail::kFunction));
    add("Expression", Detail(record, crashdetail::kExpression));
    add("File", Detail(record, crashdetail::kSource));
    add("Line", Detail(record, crashdetail::kLine));
    return text;
}
} // namespace tev
