#pragma once

#include "arrays/CXArray.h"
#include "objects/CXObject.h"
#include "text/CXTString.h"
#include "ui/CUserInterface.h"

#include <vector>

class CXArchive;

/// A log record of loading or saving a file.
struct IoLogInfo
{
    /// Bits of the level.
    static constexpr unsigned int kInformation = 0x1;
    static constexpr unsigned int kWarning = 0x2;
    static constexpr unsigned int kError = 0x4;

    CXTString<wchar_t> m_text;
    unsigned int m_level = 0;
};

TEVTOOLS_API CXArchive& operator<<(CXArchive& archive, const IoLogInfo& record);
TEVTOOLS_API CXArchive& operator>>(CXArchive& archive, IoLogInfo& record);

/// Shows the log records of an operation as coloured lines: prepares the lines, which the user interface draws.
/// One thread at a time.
class TEVTOOLS_API CLogInfo : public CXObject
{
public:
    X_DECLARE_LIBRARY_CLASS(CLogInfo)

    /// The records must outlive the object. The flags and the parent, a window or null, are passed on to the user
    /// interface.
    CLogInfo(CXArray<IoLogInfo>& records, unsigned int flags, void* parent);

    /// Prepares the lines in the colours of the current theme. The lowest bit of a level selects the colour; a record
    /// without level bits has the colour of the record before it.
    virtual bool OnInitDialog();
    /// Prepares the lines and has the user interface show them.
    void DoModal();

    /// The colour of a record with these level bits, on a dark background where `isDark`. False, and `color` is left, without
    /// level bits.
    static bool GetColor(unsigned int level, bool isDark, CRGBColor& color);

    const std::vector<XColoredLine>& GetLines() const noexcept { return m_lines; }
    unsigned int GetFlags() const noexcept { return m_flags; }
    void* GetParent() const noexcept { return m_parent; }

private:
    CXArray<IoLogInfo>& m_records;
    unsigned int m_flags;
    void* m_parent;
    std::vector<XColoredLine> m_lines;
};
