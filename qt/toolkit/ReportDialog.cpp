#include "qt/toolkit/ReportDialog.h"

#include "crash/CCrashHandler.h"
#include "qt/toolkit/Dialogs.h"
#include "qt/toolkit/QtText.h"
#include "qt/toolkit/ReportPreview.h"

#include <QApplication>
#include <QFileInfo>
#include <QFontDatabase>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTableWidget>
#include <QVBoxLayout>

namespace
{
constexpr int kReportColumns = 110;
constexpr int kReportRows = 44;
constexpr int kIntroductionRows = 5;
constexpr unsigned kColumnTexts[] = {xTextReportName, xTextReportDescription, xTextReportSize, xTextReportType};

QStringList ColumnNames()
{
    QStringList names;
    for (const unsigned id : kColumnTexts)
    {
        CXTString<wchar_t> name;
        name.LoadString(id);
        names += XToQString(name);
    }
    return names;
}

/// The size, or why the file is left out.
QString SizeText(const tev::ReportPreview& look)
{
    if (!look.m_isReadable)
        return XInLanguage(u"left out: not readable", u"omis : illisible");
    if (look.m_size >= CCrashHandler::GetFileSizeLimit())
        return XInLanguage(u"left out: too large", u"omis : trop grand");
    return tev::DataSizeText(look.m_size);
}

QLabel* LabelOf(const QString& text, QWidget* field)
{
    auto* const label = new QLabel(text);
    label->setBuddy(field);
    field->setAccessibleName(QString(text).remove(u'&'));
    return label;
}
} // namespace

namespace tev
{
ReportDialog::ReportDialog(const CXTString<wchar_t>& introduction, const std::vector<XReportFile>& files,
                           QWidget* parent)
    : QDialog(parent), m_files(files)
{
    setWindowTitle(QApplication::applicationDisplayName());
    setSizeGripEnabled(true);
    auto* const note = new QLabel(XInLanguage(
        u"Only what is shown here is sent: these files, and what you enter below. Choose a file to look inside.",
        u"Seul ce qui est affiché ici est envoyé : ces fichiers et ce que vous saisissez ci-dessous. Choisissez un "
        u"fichier pour voir son contenu."));
    note->setWordWrap(true);

    auto* const splitter = new QSplitter(Qt::Vertical);
    splitter->setChildrenCollapsible(false);
    splitter->addWidget(MakeFiles());
    splitter->addWidget(MakeFields());
    splitter->setStretchFactor(0, 1);
    splitter->setSizes({3, 1});
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(MakeMessageView(XToQString(introduction), kIntroductionRows));
    layout->addWidget(note);
    layout->addWidget(splitter, 1);
    layout->addWidget(MakeButtons());
    ResizeToCharacters(*this, kReportColumns, kReportRows);
    m_description->setFocus();
}

QWidget* ReportDialog::MakeFiles()
{
    m_table = new QTableWidget(static_cast<int>(m_files.size()), static_cast<int>(std::size(kColumnTexts)));
    m_table->setAccessibleName(XInLanguage(u"Files of the report", u"Fichiers du rapport"));
    m_table->setHorizontalHeaderLabels(ColumnNames());
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setTextElideMode(Qt::ElideMiddle);
    m_table->setTabKeyNavigation(false);
    m_table->setWordWrap(false);
    m_table->verticalHeader()->hide();
    m_table->verticalHeader()->setDefaultSectionSize(fontMetrics().lineSpacing() * 3 / 2);
    m_table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_table->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    m_table->horizontalHeader()->setHighlightSections(false);
    for (std::size_t i = 0; i < m_files.size(); ++i)
        FillRow(static_cast<int>(i), m_files[i]);

    m_preview = new TextView(XInLanguage(u"Content of the file", u"Contenu du fichier"));
    m_preview->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_preview->setLineWrapMode(QPlainTextEdit::NoWrap);
    connect(m_table, &QTableWidget::currentCellChanged, this, [this](int row) { ShowFile(row); });

    auto* const splitter = new QSplitter(Qt::Vertical);
    splitter->setChildrenCollapsible(false);
    splitter->addWidget(m_table);
    splitter->addWidget(m_preview);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({2, 3});
    if (!m_files.empty())
        m_table->setCurrentCell(0, 0);
    return splitter;
}

void ReportDialog::FillRow(int row, const XReportFile& file)
{
    const QString path = XToQString(file.m_path);
    const QString name = XToQString(file.m_path.GetFileName());
    const QString texts[] = {name, XToQString(file.m_description), SizeText(LookAtFile(file.m_path)),
                             QFileInfo(name).suffix().toUpper()};
    int column = 0;
    for (const QString& text : texts)
    {
        auto* const item = new QTableWidgetItem(text);
        item->setToolTip(XPlainToolTip(column == 0 ? path : text));
        m_table->setItem(row, column++, item);
    }
}

void ReportDialog::ShowFile(int row)
{
    if (row < 0 || row >= static_cast<int>(m_files.size()))
        return m_preview->clear();
    m_preview->setPlainText(PreviewFile(m_files[static_cast<std::size_t>(row)].m_path).m_text);
}

QWidget* ReportDialog::MakeFields()
{
    m_description = new QPlainTextEdit;
    m_description->setTabChangesFocus(true);
    m_description->setMinimumHeight(fontMetrics().lineSpacing() * 3);
    m_address = new QLineEdit;
    m_address->setInputMethodHints(Qt::ImhEmailCharactersOnly);
    m_address->setPlaceholderText(
        XInLanguage(u"for a copy and for answers; may be empty", u"pour une copie et les réponses ; facultative"));
    auto* const fields = new QWidget;
    auto* const layout = new QVBoxLayout(fields);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(LabelOf(XInLanguage(u"&What were you doing?", u"&Que faisiez-vous ?"), m_description));
    layout->addWidget(m_description, 1);
    layout->addWidget(LabelOf(XInLanguage(u"Your mail &address", u"Votre &adresse électronique"), m_address));
    layout->addWidget(m_address);
    return fields;
}

QWidget* ReportDialog::MakeButtons()
{
    auto* const box = new QDialogButtonBox;
    // None has the role of a default button: Enter in a field decides nothing.
    const auto add = [box](const QString& text, QDialogButtonBox::ButtonRole role) {
        QPushButton* const button = box->addButton(text, role);
        button->setAutoDefault(false);
        return button;
    };
    connect(add(XInLanguage(u"&Mail…", u"&Envoyer par courriel…"), QDialogButtonBox::ActionRole), &QPushButton::clicked,
            this, [this] { Decide(true, false); });
    connect(add(XInLanguage(u"&Save…", u"En&registrer…"), QDialogButtonBox::ActionRole), &QPushButton::clicked, this,
            [this] { Decide(false, true); });
    connect(add(XInLanguage(u"&Don't send", u"&Ne pas envoyer"), QDialogButtonBox::RejectRole), &QPushButton::clicked,
            this, &QDialog::reject);
    return box;
}

void ReportDialog::Decide(bool send, bool save)
{
    m_answer = {send, save, XFromQString(m_address->text().trimmed()), XFromQString(m_description->toPlainText())};
    accept();
}
} // namespace tev
