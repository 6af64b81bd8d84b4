#pragma once

#include "qt/toolkit/QtExport.h"
#include "ui/CUserInterface.h"

#include <QDialog>

class QLineEdit;
class QPlainTextEdit;
class QTableWidget;

namespace tev
{
class TextView;

/// Shows what a report will contain, each file with a look inside, and asks what to do with it. Nothing that is not shown
/// here is in the report, but for what could not be read.
class TEVTOOLS_QT_API ReportDialog : public QDialog
{
    Q_OBJECT

public:
    ReportDialog(const CXTString<wchar_t>& introduction, const std::vector<XReportFile>& files, QWidget* parent);

    /// What the person has decided so far.
    const XReportAnswer& Answer() const noexcept { return m_answer; }

private:
    QWidget* MakeFiles();
    QWidget* MakeFields();
    QWidget* MakeButtons();
    void FillRow(int row, const XReportFile& file);
    void ShowFile(int row);
    void Decide(bool send, bool save);

    const std::vector<XReportFile> m_files;
    QTableWidget* m_table = nullptr;
    TextView* m_preview = nullptr;
    QPlainTextEdit* m_description = nullptr;
    QLineEdit* m_address = nullptr;
    XReportAnswer m_answer;
};
} // namespace tev
