// Stacks of a dump, for people.

#include "crash/XMinidump.h"

namespace
{
using Text = CXTString<wchar_t>;

Text ModuleText(const XMinidump& dump, int index)
{
    if (index < 0)
        return L"no module";
    const Text& path = dump.GetModules()[static_cast<std::size_t>(index)].m_path;
    return path.Mid(path.ReverseFind(L'/') + 1);
}

Text FrameText(const XMinidump& dump, const XMinidumpFrame& frame)
{
    const Text module = ModuleText(dump, frame.m_module);
    const bool isNamed = !frame.m_function.IsEmpty();
    Text text = isNamed ? frame.m_function : module;
    text.AppendFormat(L"+0x%llx", static_cast<unsigned long long>(frame.m_offset));
    if (isNamed)
        text += L"  " + module;
    return text;
}

/// Why a stack has no more frames; empty when it is complete.
Text EndText(const XMinidump& dump, XMinidumpStackEnd end, const std::vector<XMinidumpFrame>& frames)
{
    if (end == XMinidumpStackEnd::kComplete)
        return {};
    const bool isOfModule = end == XMinidumpStackEnd::kNoFile || end == XMinidumpStackEnd::kNoRules;
    return (isOfModule ? ModuleText(dump, frames.back().m_module) + L": " : Text()) + XGetText(end);
}
} // namespace

std::vector<CXTString<wchar_t>> XMinidump::DescribeThread(int thread) const
{
    std::vector<Text> lines;
    if (thread < 0 || static_cast<std::size_t>(thread) >= m_threads.size())
        return lines;
    Text line;
    line.Format(L"thread %u", m_threads[static_cast<std::size_t>(thread)].m_id);
    lines.push_back(line + (thread == GetFaultThread() ? L", this one:" : L":"));
    XMinidumpStackEnd end{};
    const std::vector<XMinidumpFrame> frames = GetStack(thread, end);
    for (std::size_t i = 0; i < frames.size(); ++i)
    {
        line.Format(L"  %u  ", static_cast<unsigned>(i));
        lines.push_back(line + FrameText(*this, frames[i]));
    }
    const Text reason = EndText(*this, end, frames);
    if (!reason.IsEmpty())
        lines.push_back(L"  (" + reason + L")");
    return lines;
}
