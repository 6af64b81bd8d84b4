#include "ui/CLogInfo.h"

#include "files/CXArchive.h"

X_IMPLEMENT_ABSTRACT_LIBRARY_CLASS(CLogInfo, CXObject, xSchemaNotSerializable)

namespace
{
constexpr float kShade = 0.25F; // for light colours on a dark background

struct LevelColor
{
    unsigned m_bit;
    CRGBColor m_light;
    CRGBColor m_dark;
    bool m_isShaded;
};

// The first bit that is set counts.
constexpr LevelColor kColors[] = {
    {IoLogInfo::kInformation, CRGBColor(0, 0, 192), CRGBColor(160, 213, 52), true},
    {IoLogInfo::kWarning, CRGBColor(255, 128, 0), CRGBColor(156, 220, 255), true},
    {IoLogInfo::kError, CRGBColor(255, 0, 0), CRGBColor(245, 87, 98), false},
};
} // namespace

CXArchive& operator<<(CXArchive& archive, const IoLogInfo& record)
{
    return archive << record.m_text << record.m_level;
}

CXArchive& operator>>(CXArchive& archive, IoLogInfo& record)
{
    return archive >> record.m_text >> record.m_level;
}

CLogInfo::CLogInfo(CXArray<IoLogInfo>& records, unsigned int flags, void* parent)
    : m_records(records), m_flags(flags), m_parent(parent)
{
}

bool CLogInfo::GetColor(unsigned int level, bool isDark, CRGBColor& color)
{
    for (const LevelColor& row : kColors)
    {
        if ((level & row.m_bit) == 0)
            continue;
        color = isDark ? row.m_dark : row.m_light;
        if (isDark && row.m_isShaded)
            color.Darken(kShade);
        return true;
    }
    return false;
}

bool CLogInfo::OnInitDialog()
{
    const bool isDark = XGetUserInterface().IsDarkTheme();
    m_lines.clear();
    XColoredLine line;
    for (int i = 0; i < m_records.GetSize(); ++i)
    {
        line.m_text = m_records[i].m_text;
        line.m_hasColor = GetColor(m_records[i].m_level, isDark, line.m_color) || line.m_hasColor;
        m_lines.push_back(line);
    }
    return true;
}

void CLogInfo::DoModal()
{
    if (OnInitDialog())
        XGetUserInterface().ShowLines(m_lines, m_parent);
}
