#include "qt/log/ColorDialog.h"

#include "qt/log/PatternField.h"
#include "qt/toolkit/QtText.h"

#include <QColorDialog>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>

ColorDialog::ColorDialog(std::vector<ColorRule> rules, QWidget* parent)
    : QDialog(parent),
      m_rules(std::move(rules)),
      m_list(new QListWidget(this)),
      m_pattern(new PatternField(XInLanguage(u"Pattern", u"Motif"), this)),
      m_color(new QComboBox(this)),
      m_remove(new QPushButton(XInLanguage(u"&Remove", u"&Retirer"), this)),
      m_up(new QPushButton(XInLanguage(u"Move &Up", u"&Monter"), this)),
      m_down(new QPushButton(XInLanguage(u"Move &Down", u"&Descendre"), this))
{
    setWindowTitle(XInLanguage(u"Colours of lines", u"Couleurs des lignes"));
    auto* const add = new QPushButton(XInLanguage(u"&Add", u"&Ajouter"), this);
    auto* const intro = new QLabel(XInLanguage(u"A line has the colour of the first pattern that it matches.",
                                               u"Une ligne prend la couleur du premier motif qui lui correspond."),
                                   this);
    intro->setWordWrap(true);
    m_list->setAccessibleName(XInLanguage(u"Patterns", u"Motifs"));
    m_color->setAccessibleName(XInLanguage(u"Colour", u"Couleur"));
    // In the order of RuleColor.
    m_color->addItems({XInLanguage(u"As information", u"Comme une information"),
                       XInLanguage(u"As a warning", u"Comme un avertissement"),
                       XInLanguage(u"As an error", u"Comme une erreur"),
                       XInLanguage(u"Another colour\u2026", u"Une autre couleur\u2026")});

    auto* const side = new QVBoxLayout;
    for (QPushButton* const button : {add, m_remove, m_up, m_down})
    {
        button->setAutoDefault(false);
        side->addWidget(button);
    }
    side->addStretch();
    auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    auto* const layout = new QGridLayout(this);
    layout->addWidget(intro, 0, 0, 1, 2);
    layout->addWidget(m_list, 1, 0);
    layout->addLayout(side, 1, 1);
    layout->addWidget(m_pattern, 2, 0, 1, 2);
    layout->addWidget(m_color, 3, 0, 1, 2);
    layout->addWidget(buttons, 4, 0, 1, 2);
    QWidget* const order[] = {m_list, add, m_remove, m_up, m_down, m_pattern, m_color, buttons};
    for (std::size_t i = 1; i < std::size(order); ++i)
        setTabOrder(order[i - 1], order[i]);

    connect(m_list, &QListWidget::currentRowChanged, this, &ColorDialog::ShowRule);
    connect(m_pattern, &PatternField::PatternChanged, this, &ColorDialog::TakeRule);
    connect(m_color, &QComboBox::activated, this, &ColorDialog::ChooseColor);
    connect(add, &QPushButton::clicked, this, &ColorDialog::Add);
    connect(m_remove, &QPushButton::clicked, this, &ColorDialog::Remove);
    connect(m_up, &QPushButton::clicked, this, [this] { Move(-1); });
    connect(m_down, &QPushButton::clicked, this, [this] { Move(1); });
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    ShowRules();
    m_list->setCurrentRow(m_rules.empty() ? -1 : 0);
    ShowRule(m_list->currentRow());
}

std::vector<ColorRule> ColorDialog::GetRules() const
{
    std::vector<ColorRule> rules;
    std::copy_if(m_rules.begin(), m_rules.end(), std::back_inserter(rules),
                 [](const ColorRule& rule) { return !rule.m_pattern.m_text.isEmpty(); });
    return rules;
}

void ColorDialog::ShowRules()
{
    m_list->clear();
    for (std::size_t i = 0; i < m_rules.size(); ++i)
    {
        m_list->addItem(QString());
        Describe(static_cast<int>(i));
    }
}

void ColorDialog::Describe(int row)
{
    const ColorRule& rule = m_rules[static_cast<std::size_t>(row)];
    QListWidgetItem* const item = m_list->item(row);
    const QString text = rule.m_pattern.m_text;
    item->setText(text.isEmpty() ? XInLanguage(u"(no text)", u"(sans texte)") : text);
    item->setForeground(LogColors::ColorOf(rule, palette()));
}

void ColorDialog::ShowRule(int row)
{
    const bool isOne = row >= 0 && row < static_cast<int>(m_rules.size());
    for (QWidget* const widget :
         {static_cast<QWidget*>(m_pattern), static_cast<QWidget*>(m_color), static_cast<QWidget*>(m_remove)})
        widget->setEnabled(isOne);
    m_up->setEnabled(isOne && row > 0);
    m_down->setEnabled(isOne && row + 1 < static_cast<int>(m_rules.size()));
    m_isShowing = true;
    const ColorRule rule = isOne ? m_rules[static_cast<std::size_t>(row)] : ColorRule();
    m_pattern->SetPattern(rule.m_pattern);
    m_color->setCurrentIndex(static_cast<int>(rule.m_color));
    m_isShowing = false;
}

void ColorDialog::TakeRule()
{
    const int row = m_list->currentRow();
    if (m_isShowing || row < 0)
        return;
    m_rules[static_cast<std::size_t>(row)].m_pattern = m_pattern->GetPattern();
    Describe(row);
}

void ColorDialog::ChooseColor(int index)
{
    const int row = m_list->currentRow();
    if (row < 0)
        return;
    ColorRule& rule = m_rules[static_cast<std::size_t>(row)];
    if (static_cast<RuleColor>(index) == RuleColor::Custom)
    {
        const QColor color = QColorDialog::getColor(QColor::fromRgb(rule.m_custom), this, windowTitle());
        if (!color.isValid())
            return m_color->setCurrentIndex(static_cast<int>(rule.m_color));
        rule.m_custom = color.rgb();
    }
    rule.m_color = static_cast<RuleColor>(index);
    Describe(row);
}

void ColorDialog::Add()
{
    m_rules.emplace_back();
    ShowRules();
    m_list->setCurrentRow(static_cast<int>(m_rules.size()) - 1);
    m_pattern->setFocus();
}

void ColorDialog::Remove()
{
    const int row = m_list->currentRow();
    m_rules.erase(m_rules.begin() + row);
    ShowRules();
    m_list->setCurrentRow(std::min(row, static_cast<int>(m_rules.size()) - 1));
    ShowRule(m_list->currentRow());
}

void ColorDialog::Move(int by)
{
    const int row = m_list->currentRow();
    std::swap(m_rules[static_cast<std::size_t>(row)], m_rules[static_cast<std::size_t>(row + by)]);
    ShowRules();
    m_list->setCurrentRow(row + by);
}
