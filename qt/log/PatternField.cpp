#include "qt/log/PatternField.h"

#include "qt/toolkit/QtText.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLineEdit>

PatternField::PatternField(const QString& name, QWidget* parent)
    : QWidget(parent),
      m_kind(new QComboBox(this)),
      m_edit(new QLineEdit(this)),
      m_case(new QCheckBox(XInLanguage(u"Match case", u"Respecter la casse"), this))
{
    // In the order of PatternKind.
    m_kind->addItems({XInLanguage(u"Text", u"Texte"),
                      XInLanguage(u"Wildcards", u"Caract\u00e8res g\u00e9n\u00e9riques"),
                      XInLanguage(u"Line start", u"D\u00e9but de ligne"), XInLanguage(u"Prefix", u"Pr\u00e9fixe")});
    const QString help[] = {
        XInLanguage(u"Lines that hold this text", u"Les lignes qui contiennent ce texte"),
        XInLanguage(u"* stands for any characters, ? for one",
                    u"* remplace des caract\u00e8res quelconques, ? un seul"),
        XInLanguage(u"Lines whose message begins with this text", u"Les lignes dont le message commence par ce texte"),
        XInLanguage(u"A level and what is more important (L2), a thread (4711), the start of a time (2026-11-22T13)",
                    u"Un niveau et ce qui est plus important (L2), un fil (4711), le d\u00e9but d'une heure "
                    u"(2026-11-22T13)")};
    for (int i = 0; i < m_kind->count(); ++i)
        m_kind->setItemData(i, help[i], Qt::ToolTipRole);
    m_kind->setAccessibleName(name + QStringLiteral(", ") + XInLanguage(u"kind", u"sorte"));
    m_edit->setAccessibleName(name);
    m_edit->setClearButtonEnabled(true);
    m_edit->setMinimumWidth(fontMetrics().averageCharWidth() * 16);
    m_case->setAccessibleName(name + QStringLiteral(", ") + m_case->text());
    auto* const layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_kind);
    layout->addWidget(m_edit, 1);
    layout->addWidget(m_case);
    setFocusProxy(m_edit);
    setTabOrder(m_edit, m_kind);
    setTabOrder(m_kind, m_case);

    const auto explain = [this] { m_edit->setToolTip(m_kind->currentData(Qt::ToolTipRole).toString()); };
    explain();
    connect(m_kind, &QComboBox::currentIndexChanged, this, explain);
    connect(m_kind, &QComboBox::currentIndexChanged, this, &PatternField::PatternChanged);
    connect(m_edit, &QLineEdit::textChanged, this, &PatternField::PatternChanged);
    connect(m_case, &QCheckBox::toggled, this, &PatternField::PatternChanged);
}

LinePattern PatternField::GetPattern() const
{
    return {static_cast<PatternKind>(m_kind->currentIndex()), m_edit->text(), m_case->isChecked()};
}

void PatternField::SetPattern(const LinePattern& pattern)
{
    m_kind->setCurrentIndex(static_cast<int>(pattern.m_kind));
    m_edit->setText(pattern.m_text);
    m_case->setChecked(pattern.m_isCaseSensitive);
}
